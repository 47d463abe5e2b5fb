#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "AgentInstallation.h"
#include "PolicyFixture.h"
#include "runtime/CorErrors.h"

namespace {

class DirectiveLoading : public PolicyFixture {
protected:
    // The loading lines of the log, with the agent directory shortened to "~".
    std::vector<std::string> loadLines() {
        std::vector<std::string> lines;
        const std::string prefix = installation->profiles();
        for (std::string line : installation->log()) {
            for (size_t at = line.find(prefix); at != std::string::npos; at = line.find(prefix)) {
                line.replace(at, prefix.size(), "~");
            }
            lines.push_back(line);
        }
        return lines;
    }

    // 0 if the controller selects Shop's class.method.
    int decide(ProfilerController& controller, const char16_t* className, const char16_t* method) {
        return controller.shouldMonitorMethod(at({className}, method));
    }

    std::unique_ptr<AgentInstallation> installation = std::make_unique<AgentInstallation>();
};

} // namespace

TEST_F(DirectiveLoading, EachSourceIsReadOnlyWhereItsSwitchesSayAndSelectsWhenLoaded) {
    const std::string fieldmark = "harrowlite.fieldmark.directivesFile";
    const std::string dynamic = "harrowlite.agent.remoteagentdynamicinstrumentation.enabled";
    struct Case {
        std::string name;
        std::map<std::string, std::string> properties;
        // File and the "Class Method" it selects; it selects if and only if it
        // is loaded. Text of several lines is a list file, written as it is.
        std::map<std::string, std::string> files;
        std::vector<std::string> lines;
        int status = 0;
    };
    const std::vector<Case> cases {
        {"sources in their order, lists trimmed",
         {{fieldmark, "a.fmd, b.fml ,dir"}, {dynamic, "true"}},
         {{"a.fmd", "Shop.Order Place"},
          {"b.fml", "Title: some probes\nDescription: what they are\n# a comment\n\n"
                    "c.fmd trailing words are ignored\nmissing.fmd\n"},
          {"c.fmd", "Shop.Order Dispose"}, {"dir/d1.fmd", "Shop.Invoice Issue"},
          {"dir/d2.netcore.fmd", "Shop.Invoice Cancel"}, {"dir/notes.txt", "Shop.OrderItem Total"},
          {"dynamic/e.fmd", "Shop.OrderRepository Save"}, {"persistedprobes/f.fmd", "Shop.OrderRepository Load"}},
         {"Started loading ~/a.fmd", "Loaded ~/a.fmd", "Started loading ~/b.fml", "Started loading ~/c.fmd",
          "Loaded ~/c.fmd", "Loaded ~/b.fml", "Started loading ~/dir/d1.fmd", "Loaded ~/dir/d1.fmd",
          // On the Core runtime no file is passed over for its marker.
          "Started loading ~/dir/d2.netcore.fmd", "Loaded ~/dir/d2.netcore.fmd", "Started loading ~/dynamic/e.fmd",
          "Loaded ~/dynamic/e.fmd", "Started loading ~/persistedprobes/f.fmd", "Loaded ~/persistedprobes/f.fmd"}},
        {"the native key is the only source",
         {{"harrowlite.nativeprofiler.directivesFile", "a.fmd"}, {fieldmark, "b.fmd"}, {dynamic, "true"}},
         {{"a.fmd", "Shop.Order Place"}, {"b.fmd", "Shop.Order Dispose"}, {"dynamic/e.fmd", "Shop.Invoice Issue"},
          {"persistedprobes/f.fmd", "Shop.Invoice Cancel"}},
         {"Started loading ~/a.fmd", "Loaded ~/a.fmd"}},
        {"a failing entry ends its list, and what was loaded stands",
         {{fieldmark, "a.fmd,missing.fmd,c.fmd"}},
         {{"a.fmd", "Shop.Order Place"}, {"c.fmd", "Shop.Order Dispose"}, {"persistedprobes/f.fmd", "Shop.Invoice Issue"}},
         {"Started loading ~/a.fmd", "Loaded ~/a.fmd", "Invalid file missing.fmd"}, E_FAIL},
        {"entries need a known extension", {{fieldmark, "notes.txt"}}, {{"notes.txt", "Shop.Order Place"}},
         {"Invalid entry notes.txt"}, E_FAIL},
        {"a persistedprobes that is a plain file has no extension at all", {},
         {{"persistedprobes", "Shop.Order Place"}}, {"Invalid entry persistedprobes"}, E_FAIL},
        {"the dynamic folder only with dynamic instrumentation", {},
         {{"dynamic/e.fmd", "Shop.Order Place"}, {"persistedprobes/f.fmd", "Shop.Order Dispose"}},
         {"Started loading ~/persistedprobes/f.fmd", "Loaded ~/persistedprobes/f.fmd"}},
        // " bar" keeps its blank, so xbar.fmd is read; the framework list is not used on Core.
        {"the ignore list is a substring test on the whole path",
         {{fieldmark, "dir"}, {"harrowlite.fieldmark.dotnetcore.ignoreDirectivesFile", "zzz, bar,foo"},
          {"harrowlite.fieldmark.dotnetframework.ignoreDirectivesFile", "keep"}},
         {{"dir/foobar.fmd", "Shop.Order Place"}, {"dir/keep.fmd", "Shop.Order Dispose"},
          {"dir/xbar.fmd", "Shop.Invoice Issue"}},
         {"Skipping ~/dir/foobar.fmd", "Started loading ~/dir/keep.fmd", "Loaded ~/dir/keep.fmd",
          "Started loading ~/dir/xbar.fmd", "Loaded ~/dir/xbar.fmd"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Another installation; the old one gives the environment back first.
        installation.reset();
        installation = std::make_unique<AgentInstallation>();
        for (const auto& [key, value] : c.properties) {
            installation->set(key, value);
        }
        for (const auto& [file, text] : c.files) {
            installation->write(file, text.find('\n') != std::string::npos ? text : "TraceOneMethodOfClass: " + text + "\n");
        }
        std::unique_ptr<ProfilerController> controller = installation->controller(info);
        ASSERT_NE(controller, nullptr);
        EXPECT_EQ(controller->initializeDirectives(), c.status);
        // Loaded once, failed or not: the next question finds the directives in place.
        EXPECT_EQ(controller->initializeDirectives(), 0);
        EXPECT_EQ(loadLines(), c.lines) << joinLines(installation->log());
        for (const auto& [file, method] : c.files) {
            if (method.find('\n') != std::string::npos) continue;
            const size_t blank = method.find(' ');
            const bool loaded = std::count(c.lines.begin(), c.lines.end(), "Loaded ~/" + file) == 1;
            EXPECT_EQ(decide(*controller, RealAssemblies::widen(method.substr(0, blank)).c_str(),
                             RealAssemblies::widen(method.substr(blank + 1)).c_str()),
                      loaded ? 0 : 1)
                << file;
        }
    }
}

TEST_F(DirectiveLoading, ReloadReadsAgainAndKeepsTheMemo) {
    installation->set("harrowlite.fieldmark.directivesFile", "a.fmd");
    installation->write("a.fmd", "TraceOneMethodOfClass: Shop.Order Place\n");
    std::unique_ptr<ProfilerController> controller = installation->controller(info);
    ASSERT_NE(controller, nullptr);
    EXPECT_EQ(controller->initializeDirectives(), 0);
    EXPECT_EQ(decide(*controller, u"Shop.Order", u"Place"), 0);
    EXPECT_EQ(decide(*controller, u"Shop.Order", u"Get"), 1);
    const FunctionID get = context->getFunctionID();

    installation->write("a.fmd", "TraceOneMethodOfClass: Shop.Order Get\n");
    EXPECT_EQ(controller->reloadDirectives(), 0);
    const std::vector<std::string> lines = loadLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Loaded ~/a.fmd"), 2) << joinLines(lines);
    // Decided before the reload, the same function compiled again: the memo
    // answers until it is cleared.
    ASSERT_EQ(context->setFunction(get), S_OK);
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 1);
    controller->clearCacheForFunction(get);
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 0);
    EXPECT_EQ(controller->shouldMonitorMethodUncached(at({u"Shop.Order"}, u"Place")), 1);
}
