// Runs a start-up of the callback object in a child process of its own: the
// process gate and the controller are made once per process and never go, so
// each configuration needs a fresh process. The child lays out an agent
// profile, calls Initialize (or InitializeForAttach) on the profiler info double, lets a
// test body act on the object, and leaves what it saw in files of a scratch
// directory the parent made.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>
#include <string>

#include "hub/ProfilerCallback.h"
#include "runtime/Guids.h"
#include "support/ChildProcess.h"
#include "support/ProfilerInfoDouble.h"
#include "support/ScratchDirectory.h"

struct StartupOutcome {
    HRESULT result = 0;
    unsigned long mask = 0;
    int setEventMaskCalls = 0;
    bool fpcSet = false, released = false;
    std::string log;    // the native log of the child
    std::string notes;  // what the test body wrote
};

struct StartupSetup {
    std::map<std::string, std::string> properties = {{"harrowlite.fieldmark.enable", "true"}};
    // Files laid out beside the profile (directive files), by name.
    std::map<std::string, std::string> files;
    bool attach = false;
    std::function<ProfilerInfoDouble*()> makeInfo = [] { return new ProfilerInfoDouble(); };
    // Runs in the child after the start-up, before the object is released.
    std::function<void(ProfilerCallback*, ProfilerInfoDouble*, std::ostream&)> body;
};

// The child's side: lays out the profile in the parent's scratch directory,
// starts the callback object and leaves what it saw in "outcome" and "notes".
inline void runStartupChild(const StartupSetup& setup, const ScratchDirectory& scratch) {
    unsetenv("com.tarn.harrowlite.agentProfile");
    unsetenv("com.tarn.harrowlite.AgentProfile");
    for (const auto& [name, text] : setup.files) scratch.write(name, text);
    std::string text = "harrowlite.nativeprofiler.logfile=native.log\n";
    for (const auto& [key, value] : setup.properties) text += key + "=" + value + "\n";
    setenv("TMSENV_AGENT_PROFILE", scratch.write("default.properties", text).c_str(), 1);
    ProfilerInfoDouble* info = setup.makeInfo();
    void* out = nullptr;
    if (FAILED(ProfilerCallback::CreateObject(IID_ICorProfilerCallback4, &out))) return;
    auto* callback = static_cast<ProfilerCallback*>(static_cast<ICorProfilerCallback4*>(out));
    const HRESULT result = setup.attach ? callback->InitializeForAttach(info, nullptr, 0) : callback->Initialize(info);
    const bool fpcSet = fpc == callback;
    std::ostringstream notes;
    if (setup.body) setup.body(callback, info, notes);
    callback->Release();
    scratch.write("notes", notes.str());
    scratch.write("outcome", std::to_string(result) + " " + std::to_string(info->lastEventMask()) + " " +
                                 std::to_string(info->calls("SetEventMask")) + " " + std::to_string(fpcSet) + " " +
                                 std::to_string(fpc == nullptr));
}

// Forks, runs the setup in the child and reads what it left. A child that
// does not finish within the limit (a service thread that never stops) is
// killed and leaves no outcome.
inline StartupOutcome runStartup(const StartupSetup& setup) {
    ScratchDirectory scratch;
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        runStartupChild(setup, scratch);
        _exit(0);
    }
    ChildProcess::wait(child, 30);
    StartupOutcome outcome;
    std::istringstream(scratch.read("outcome")) >> outcome.result >> outcome.mask >>
        outcome.setEventMaskCalls >> outcome.fpcSet >> outcome.released;
    outcome.notes = scratch.read("notes");
    outcome.log = readFilesStartingWith(scratch.path(), "native_");
    return outcome;
}
