// The hijack of a desktop core library, on a real scope named like it: the
// switch field opened up, the nine forwarders with their bodies byte for byte,
// and the library's own methods rewritten to call them behind the switch.
#include <cstring>

#include "RewriteChecks.h"
#include "RewriteFixture.h"

namespace {

class Hijack : public RewriteFixture {
protected:
    void SetUp() override {
        RewriteFixture::SetUp();
        host = info->addModule(std::string(TARN_TEST_ASSETS_DIR) + "/HijackHost/mscorlib.dll");
        ASSERT_NE(host, 0u);
        info->setRuntimeType(COR_PRF_DESKTOP_CLR);
        controller.shimSetting = 1;
        profiler.reset(Profiler::newInstance(info.get(), 4, false, &controller));
        ASSERT_NE(profiler, nullptr);
    }

    mdMethodDef library(const char16_t* name) {
        mdMethodDef token = 0;
        IMetaDataImport* import = info->importOf(host);
        HCORENUM enumerator = nullptr;
        ULONG count = 0;
        import->EnumMethodsWithName(&enumerator, RealAssemblies::findType(import, u"Hijacked.Library"), name, &token, 1,
                                    &count);
        import->CloseEnum(enumerator);
        return token;
    }

    HRESULT hijackFrom(const char16_t* method) {
        EXPECT_EQ(context->setFunction(info->addFunction(host, library(method))), S_OK);
        return profiler->hijackMethod(context.get());
    }

    std::u16string memberName(mdToken token) {
        char16_t name[256] = {};
        ULONG length = 0;
        IMetaDataImport* import = info->importOf(host);
        if ((token >> 24) == 0x0A) {
            import->GetMemberRefProps(token, nullptr, name, 256, &length, nullptr, nullptr);
        } else {
            import->GetMethodProps(token, nullptr, name, 256, &length, nullptr, nullptr, nullptr, nullptr, nullptr);
        }
        return name;
    }

    ModuleID host = 0;
};

TEST_F(Hijack, ForwardersCallTheAgentWithTheirOwnArguments) {
    ASSERT_EQ(hijackFrom(u"Touch"), S_OK) << logText();
    IMetaDataImport* import = info->importOf(host);
    DWORD fieldFlags = 0;
    ASSERT_EQ(import->GetFieldProps(profiler->getHijackToken(0), nullptr, nullptr, 0, nullptr, &fieldFlags, nullptr,
                                    nullptr, nullptr, nullptr, nullptr),
              S_OK);
    EXPECT_EQ(fieldFlags, 0x16u);

    const struct {
        const char16_t* name;
        const char16_t* target;
        std::vector<unsigned char> signature;
        std::vector<unsigned char> code;  // before the token
    } expected[] = {
        {u"initTrace", u"corInitTrace", {0, 1, 8, 8}, {0x1E, 0x02, 0x28}},
        {u"loadTrace", u"loadTrace", {0, 0, 1}, {0x1A, 0x28}},
        {u"loadTrace", u"loadTrace", {0, 1, 1, 0x1C}, {0x1E, 0x02, 0x28}},
        {u"pushTrace", u"pushTrace", {0, 2, 1, 8, 0x1C}, {0x22, 0x02, 0x03, 0x28}},
        {u"startTrace", u"startTrace", {0, 0, 1}, {0x1A, 0x28}},
        {u"finishValueTypeTrace", u"finishValueTypeTrace", {0, 1, 1, 0x1C}, {0x1E, 0x02, 0x28}},
        {u"finishTrace", u"finishTrace", {0, 0, 1}, {0x1A, 0x28}},
        {u"finishTrace", u"finishTrace", {0, 1, 1, 0x1C}, {0x1E, 0x02, 0x28}},
        {u"catchTrace", u"catchTrace", {0, 1, 1, 0x1C}, {0x1E, 0x02, 0x28}},
    };
    for (size_t i = 0; i < std::size(expected); ++i) {
        const auto& row = expected[i];
        const mdMethodDef forwarder = profiler->getHijackToken(static_cast<unsigned int>(i + 1));
        SCOPED_TRACE(RealAssemblies::narrow(row.name) + " #" + std::to_string(i + 1));
        EXPECT_EQ(memberName(forwarder), row.name);
        DWORD flags = 0;
        PCCOR_SIGNATURE signature = nullptr;
        ULONG length = 0;
        import->GetMethodProps(forwarder, nullptr, nullptr, 0, nullptr, &flags, &signature, &length, nullptr, nullptr);
        EXPECT_EQ(flags, 0x16u);
        EXPECT_EQ(std::vector<unsigned char>(signature, signature + length), row.signature);

        const unsigned char* body = info->installedBody(host, forwarder);
        ASSERT_NE(body, nullptr);
        EXPECT_EQ(std::vector<unsigned char>(body, body + row.code.size()), row.code);
        uint32_t target = 0;
        std::memcpy(&target, body + row.code.size(), 4);
        EXPECT_EQ(target >> 24, 0x0Au) << "a member reference to the agent";
        EXPECT_EQ(memberName(target), row.target);
        EXPECT_EQ(body[row.code.size() + 4], 0x2A);
        EXPECT_EQ((body[0] >> 2) + 1u, row.code.size() + 4 + 1) << "tiny header counts the code";
    }

    // Once per process: a second candidate defines nothing more.
    const unsigned int first = profiler->getHijackToken(1);
    ASSERT_EQ(hijackFrom(u"Join"), S_OK);
    EXPECT_EQ(profiler->getHijackToken(1), first);
    HCORENUM enumerator = nullptr;
    mdMethodDef tokens[32];
    ULONG count = 0;
    import->EnumMethodsWithName(&enumerator, RealAssemblies::findType(import, u"System.Runtime.Serialization.Formatters.Binary.ObjectProgress"),
                                u"finishTrace", tokens, 32, &count);
    import->CloseEnum(enumerator);
    EXPECT_EQ(count, 2u);
}

}  // namespace
