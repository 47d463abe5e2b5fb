#include <gtest/gtest.h>

#include <set>

#include "metadata/MethodDefEnumWrapper.h"
#include "metadata/TypeDefEnumWrapper.h"
#include "runtime/CorErrors.h"
#include "support/CountingMetaDataImport.h"
#include "offline/HostedRuntime.h"
#include "support/RealAssemblies.h"

namespace {

class TokenEnumWrapperTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(HostedRuntime::instance().ready()) << HostedRuntime::instance().error();
        AutoCOMPointer<IMetaDataImport> real = RealAssemblies::open(RealAssemblies::testAsset("MetadataShapes"));
        ASSERT_NE(real.get(), nullptr);
        import = CountingMetaDataImport::wrap(real);
    }

    // Every token the wrapper yields, with the batch refills it asked for.
    std::vector<mdToken> drain(CoreTokenEnumWrapper& tokens) {
        std::vector<mdToken> all;
        while (tokens.HasNext()) {
            all.push_back(tokens.Next());
        }
        EXPECT_EQ(tokens.Next(), 0u);
        return all;
    }

    std::vector<mdToken> methodsOf(const char16_t* type) {
        MethodDefEnumWrapper methods(import, RealAssemblies::findType(import, type));
        return drain(methods);
    }

    AutoCOMPointer<CountingMetaDataImport> import;
};

}  // namespace

TEST_F(TokenEnumWrapperTest, EmptyExactlyOneBatchAndOneMore) {
    EXPECT_TRUE(methodsOf(u"Shapes.INoMethods").empty());

    import->resetCalls();
    std::vector<mdToken> full = methodsOf(u"Shapes.Methods256");
    EXPECT_EQ(full.size(), 256u);
    // The refill after the last token finds the end.
    EXPECT_EQ(import->calls("EnumMethods"), 2);
    EXPECT_EQ(import->calls("CloseEnum"), 1);

    import->resetCalls();
    std::vector<mdToken> more = methodsOf(u"Shapes.Methods257");
    ASSERT_EQ(more.size(), 257u);
    EXPECT_EQ(import->calls("EnumMethods"), 3);
    std::set<mdToken> distinct(more.begin(), more.end());
    EXPECT_EQ(distinct.size(), 257u);
    // The last one came from the second batch: it is the type's M256.
    char16_t name[16] = {0};
    ULONG length = 0;
    ASSERT_EQ(import->GetMethodProps(more.back(), nullptr, name, 16, &length, nullptr, nullptr, nullptr, nullptr,
                                     nullptr),
              S_OK);
    EXPECT_EQ(RealAssemblies::narrow(name), "M256");
}

TEST_F(TokenEnumWrapperTest, TypeDefinitionsMatchTheScope) {
    std::vector<mdToken> types;
    {
        TypeDefEnumWrapper wrapper(import);
        types = drain(wrapper);
    }
    EXPECT_EQ(import->calls("CloseEnum"), 1);
    // The runtime's own count of the same enumeration.
    HCORENUM enumerator = nullptr;
    mdTypeDef first = 0;
    ULONG fetched = 0;
    ULONG total = 0;
    ASSERT_EQ(import->EnumTypeDefs(&enumerator, &first, 1, &fetched), S_OK);
    ASSERT_EQ(import->CountEnum(enumerator, &total), S_OK);
    import->CloseEnum(enumerator);
    EXPECT_EQ(types.size(), total);
    ASSERT_FALSE(types.empty());
    EXPECT_EQ(types.front(), first);
    EXPECT_NE(std::find(types.begin(), types.end(), RealAssemblies::findType(import, u"Shapes.SixtyFive")),
              types.end());
}
