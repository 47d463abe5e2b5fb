// Precompiled code kept: a selected method of the core library is refused its
// precompiled code, and so are the precompiled methods that inlined it, so
// that exactly the methods traced with precompiled code switched off are
// traced, with the same calls, while the rest of the framework runs as
// precompiled.
#include <set>

#include "AgentInstall.h"

namespace {

using e2e::AgentInstall;

struct Traced {
    std::set<std::string> methods;           // "[A]C::M" of the Instrumented lines
    std::map<std::string, size_t> calls;     // record lines by their kind (the first word)
    int jitted = -1;
    std::string why;
};

Traced traceStrings(bool precompiledOff) {
    AgentInstall install;
    install.directives("TraceAllMethodsOfClass: System.String\n");
    install.set("harrowlite.nativeprofiler.precompiledCode.disabled", precompiledOff ? "true" : "false");
    const e2e::Comparison run = install.compare("JitCount", install.options());
    Traced traced;
    traced.why = run.why;
    EXPECT_TRUE(run.unchanged());
    for (const std::string& line : linesStartingWith(run.log, "Instrumented [")) {
        traced.methods.insert(line.substr(0, line.find(" - 0x")));
    }
    for (const std::string& line : install.record()) ++traced.calls[line.substr(0, line.find(' '))];
    const size_t at = run.run.err.find("jitted=");
    traced.jitted = at == std::string::npos ? -1 : std::stoi(run.run.err.substr(at + 7));
    return traced;
}

TEST(PrecompiledCode, KeptWithTheSameMethodsTraced) {
    const Traced off = traceStrings(true);
    const Traced kept = traceStrings(false);
    ASSERT_GT(off.methods.size(), 10u) << off.why;
    EXPECT_EQ(kept.methods, off.methods) << kept.why;
    EXPECT_EQ(kept.calls, off.calls) << kept.why;
    EXPECT_LT(3 * kept.jitted, off.jitted) << "precompiled code in use\n" << kept.why;
    EXPECT_NE(kept.why.find("Refusing the precompiled code of "), std::string::npos) << kept.why;
}

}  // namespace
