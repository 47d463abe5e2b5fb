#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "PolicyFixture.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "support/RefusingProfilerController.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// The policy as far as the scan asks it: whether every class is to be logged.
class LoggingPolicy : public RefusingProfilerController {
public:
    explicit LoggingPolicy(bool logClasses) : logClasses(logClasses) {}
    int shouldLogUninstrumentedMethods() override { return logClasses ? 0 : 1; }

private:
    bool logClasses;
};

struct Statistics {
    std::string assembly;
    unsigned long long types = 0;
    unsigned long long cumulativeTypes = 0;
    unsigned long long methods = 0;
    unsigned long long cumulativeMethods = 0;
    unsigned long long matched = 0;
    unsigned long long cumulativeMatched = 0;
};

// The last statistics line of a log; an assembly name of "" if there is none.
Statistics statisticsOf(const std::string& log) {
    static const std::regex line(
        R"(\[([^\]]*)\] \((\d+)/(\d+)\)ms to process \((\d+)/(\d+)\) types and \((\d+)/(\d+)\) methods\. )"
        R"(Matched: \((\d+)/(\d+)\)\n)");
    Statistics found;
    for (std::sregex_iterator it(log.begin(), log.end(), line), end; it != end; ++it) {
        const std::smatch& m = *it;
        EXPECT_LE(std::stoull(m[2]), std::stoull(m[3]));
        found = {m[1], std::stoull(m[4]), std::stoull(m[5]), std::stoull(m[6]),
                 std::stoull(m[7]), std::stoull(m[8]), std::stoull(m[9])};
    }
    return found;
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

std::string hex(mdToken token) {
    std::ostringstream text;
    text << "0x" << std::hex << token;
    return text.str();
}

const char* const kEverythingForScan =
    "IdentifyAllClassesAs: All\n"
    "TraceAllMethodsIfFlagged: All\n"
    "TurnOn: All\n";

}  // namespace

class ModuleScan : public PolicyFixture {
protected:
    void SetUp() override {
        PolicyFixture::SetUp();
        log = tmpfile();
    }
    void TearDown() override { fclose(log); }

    std::set<mdMethodDef> scan(const std::string& text, ModuleID where, bool logClasses = false) {
        auto controller = directives(text, nullptr, log);
        LoggingPolicy policy(logClasses);
        std::set<mdMethodDef> methods;
        controller->getMonitoredMethodsForModule(&policy, info, where, methods);
        return methods;
    }

    // The methods that a scan of all classes should find: those of every type
    // but interfaces, without abstract ones; the number of types on the way.
    std::set<mdMethodDef> concreteMethods(ModuleID where, unsigned long long* typeCount) {
        IMetaDataImport* import = info->importOf(where);
        std::set<mdMethodDef> all;
        HCORENUM types = nullptr;
        mdTypeDef type = 0;
        ULONG count = 0;
        *typeCount = 0;
        while (import->EnumTypeDefs(&types, &type, 1, &count) == S_OK && count == 1) {
            ++*typeCount;
            DWORD flags = 0;
            EXPECT_EQ(import->GetTypeDefProps(type, nullptr, 0, nullptr, &flags, nullptr), S_OK);
            HCORENUM methods = nullptr;
            mdMethodDef method = 0;
            while ((flags & tdInterface) == 0 && import->EnumMethods(&methods, type, &method, 1, &count) == S_OK &&
                   count == 1) {
                DWORD attributes = 0;
                EXPECT_EQ(import->GetMethodProps(method, nullptr, nullptr, 0, nullptr, &attributes, nullptr, nullptr,
                                                 nullptr, nullptr),
                          S_OK);
                if ((attributes & mdAbstract) == 0) {
                    all.insert(method);
                }
            }
            import->CloseEnum(methods);
        }
        import->CloseEnum(types);
        return all;
    }

    FILE* log = nullptr;
};

TEST_F(ModuleScan, SelectsConcreteMethodsOfCoveredClassesAndLogsEachMatch) {
    std::set<mdMethodDef> methods = scan(
        "IdentifyAssemblyAs: PolicyShapes All\n"
        "TraceAllMethodsIfFlagged: All\n"
        "TurnOn: All\n"
        "TraceOneMethodOfClass: Shop.Invoice Issue\n",
        shop);
    unsigned long long types = 0;
    EXPECT_EQ(methods, concreteMethods(shop, &types));
    EXPECT_TRUE(methods.count(methodIn(shop, {u"Shop.CardPayment"}, u"Pay")));
    EXPECT_FALSE(methods.count(methodIn(shop, {u"Shop.PaymentBase"}, u"Pay")));
    EXPECT_TRUE(methods.count(methodIn(shop, {u"Shop.PaymentBase"}, u"Refund")));
    EXPECT_FALSE(methods.count(methodIn(shop, {u"Shop.IRepository"}, u"Save")));
    EXPECT_TRUE(methods.count(methodIn(shop, {u"Shop.Order", u"Line"}, u"Touch")));

    const std::string text = contents(log);
    const std::string issue = hex(methodIn(shop, {u"Shop.Invoice"}, u"Issue"));
    EXPECT_THAT(text, HasSubstr("Matched method [PolicyShapes]Shop.Invoice::Issue (All) mdef:" + issue + "\n"));
    EXPECT_THAT(text, HasSubstr("Matched method [PolicyShapes]Shop.Invoice::Issue (Anonymous_0) mdef:" + issue + "\n"));
    EXPECT_THAT(text, HasSubstr("Matched method [PolicyShapes]Shop.Order+Line::Touch (All) mdef:"));
    EXPECT_EQ(occurrences(text, "Matched method "), methods.size() + 1);
    EXPECT_THAT(text, Not(HasSubstr("Processing class")));

    Statistics statistics = statisticsOf(text);
    EXPECT_EQ(statistics.assembly, "PolicyShapes");
    // Every type definition, interfaces included, and the methods of Invoice
    // counted once for each group that covers it.
    EXPECT_EQ(statistics.types, types);
    EXPECT_EQ(statistics.matched, methods.size());
    EXPECT_GE(statistics.cumulativeTypes, statistics.types);
    EXPECT_GE(statistics.cumulativeMatched, statistics.matched);
    const unsigned long long abstractAndInvoice = 1 + 3;
    EXPECT_EQ(statistics.methods, methods.size() + abstractAndInvoice);
}
