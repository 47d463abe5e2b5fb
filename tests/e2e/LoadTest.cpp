// The runtime loads our library, creates the callback object through the class
// factory and keeps it, and the program behaves as it does without us.
#include <gtest/gtest.h>

#include "ProgramRun.h"

namespace {

using e2e::RunOptions;
using e2e::runProgram;

TEST(RuntimeLoad, ProfilerIsKeptAndProgramOutputIsUnchanged) {
    RunOptions plain;
    plain.profiled = false;
    plain.args = {"3"};
    plain.env = {{"TARN_E2E_REPORT_MAPS", "1"}};
    RunOptions profiled = plain;
    profiled.profiled = true;

    auto reference = runProgram("Hello", plain);
    auto run = runProgram("Hello", profiled);

    ASSERT_EQ(reference.exitCode, 3) << reference.describe();
    EXPECT_FALSE(reference.mapsOurLibrary()) << reference.describe();
    EXPECT_TRUE(run.mapsOurLibrary()) << run.describe();
    EXPECT_EQ(run.out, reference.out) << run.describe();
    EXPECT_EQ(run.exitCode, reference.exitCode) << run.describe();
}

// The runtime asks the class factory for the CLSID it was given: for any other one
// our library must refuse, and the runtime then unloads it and runs on unprofiled.
TEST(RuntimeLoad, UnknownClsidIsRefusedAndTheLibraryUnloaded) {
    RunOptions options;
    options.env = {{"TARN_E2E_REPORT_MAPS", "1"},
                   {"CORECLR_PROFILER", "{00000000-1111-2222-3333-444444444444}"}};
    auto run = runProgram("Hello", options);

    EXPECT_EQ(run.exitCode, 0) << run.describe();
    EXPECT_FALSE(run.mapsOurLibrary()) << run.describe();
    EXPECT_NE(run.out.find("sum=5050"), std::string::npos) << run.describe();
}

}  // namespace
