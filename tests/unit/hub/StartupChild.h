// Runs a start-up of the callback object in a child process of its own: the
// process gate and the controller are made once per process and never go, so
// each configuration needs a fresh process. The child lays out an agent
// profile, calls Initialize (or InitializeForAttach) on a fake runtime, lets a
// test body act on the object, and sends back what it saw.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "hub/ProfilerCallback.h"
#include "runtime/Guids.h"
#include "runtime/ProfilerEnumerators.h"
#include "offline/RefusingProfilerInfo.h"
#include "support/ScratchDirectory.h"

// An enumerator with nothing in it.
template <typename Interface, typename Element>
class EmptyEnumerator final : public Interface {
public:
    HRESULT QueryInterface(REFIID, void** out) override {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override {
        ULONG left = --references;
        if (left == 0) delete this;
        return left;
    }
    HRESULT Skip(ULONG) override { return S_OK; }
    HRESULT Reset() override { return S_OK; }
    HRESULT Clone(Interface**) override { return E_NOTIMPL; }
    HRESULT GetCount(ULONG* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT Next(ULONG, Element[], ULONG* fetched) override {
        *fetched = 0;
        return S_FALSE;
    }

private:
    ULONG references = 1;
};

// A runtime that tells its kind and version, has loaded and compiled nothing
// an attach would catch up with, and otherwise fails as the fake does.
class RuntimeInfoFake : public RefusingProfilerInfo {
public:
    HRESULT EnumModules(ICorProfilerModuleEnum** modules) override {
        count("EnumModules");
        *modules = new EmptyEnumerator<ICorProfilerModuleEnum, ModuleID>();
        return S_OK;
    }
    HRESULT EnumJITedFunctions(ICorProfilerFunctionEnum** functions) override {
        count("EnumJITedFunctions");
        *functions = new EmptyEnumerator<ICorProfilerFunctionEnum, COR_PRF_FUNCTION>();
        return S_OK;
    }
    explicit RuntimeInfoFake(int highestVersion = 10) : RefusingProfilerInfo(highestVersion) {}

    COR_PRF_RUNTIME_TYPE type = COR_PRF_CORE_CLR;
    USHORT major = 10;
    USHORT minor = 0;
    USHORT build = 12;

    HRESULT GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType, USHORT* pMajorVersion,
                                  USHORT* pMinorVersion, USHORT* pBuildNumber, USHORT* pQFEVersion,
                                  ULONG cchVersionString, ULONG* pcchVersionString,
                                  WCHAR szVersionString[]) override {
        count("GetRuntimeInformation");
        if (pRuntimeType != nullptr) *pRuntimeType = type;
        if (pMajorVersion != nullptr) *pMajorVersion = major;
        if (pMinorVersion != nullptr) *pMinorVersion = minor;
        if (pBuildNumber != nullptr) *pBuildNumber = build;
        return S_OK;
    }
};

struct StartupOutcome {
    HRESULT result = 0;
    unsigned long mask = 0;
    int setEventMaskCalls = 0;
    bool fpcSet = false;
    bool released = false;
    // References the runtime's object still had, and calls it received,
    // after the final Release of the callback object.
    long infoReferences = -1;
    int releaseCalls = -1;
    std::string log;    // the native log of the child
    std::string notes;  // what the test body wrote
};

struct StartupSetup {
    std::map<std::string, std::string> properties = {{"harrowlite.fieldmark.enable", "true"}};
    bool withProfile = true;
    // Files laid out beside the profile (directive files), by name.
    std::map<std::string, std::string> files;
    bool attach = false;
    std::function<RuntimeInfoFake*()> makeInfo = [] { return new RuntimeInfoFake(); };
    // Runs in the child after the start-up, before the object is released.
    std::function<void(ProfilerCallback*, RuntimeInfoFake*, std::ostream&)> body;
};

inline std::string nativeLogIn(const std::string& directory) {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().filename().string().rfind("native_", 0) == 0) {
            std::ifstream stream(entry.path());
            std::stringstream content;
            content << stream.rdbuf();
            text += content.str();
        }
    }
    return text;
}

// Field lines of the child's report: key, a tab, the value with "\n" escaped.
inline std::string escapeLines(const std::string& text) {
    std::string out;
    for (char c : text) {
        out += c == '\n' ? std::string("\\n") : c == '\\' ? std::string("\\\\") : std::string(1, c);
    }
    return out;
}

inline std::string unescapeLines(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            out += text[i + 1] == 'n' ? '\n' : text[i + 1];
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

inline void runStartupChild(const StartupSetup& setup, int output) {
    ScratchDirectory scratch;
    unsetenv("com.tarn.harrowlite.agentProfile");
    unsetenv("com.tarn.harrowlite.AgentProfile");
    for (const auto& [name, text] : setup.files) {
        scratch.write(name, text);
    }
    if (setup.withProfile) {
        std::string text = "harrowlite.nativeprofiler.logfile=native.log\n";
        for (const auto& [key, value] : setup.properties) {
            text += key + "=" + value + "\n";
        }
        setenv("TMSENV_AGENT_PROFILE", scratch.write("default.properties", text).c_str(), 1);
    } else {
        setenv("TMSENV_AGENT_PROFILE", scratch.path("absent.properties").c_str(), 1);
    }
    RuntimeInfoFake* info = setup.makeInfo();
    void* out = nullptr;
    if (FAILED(ProfilerCallback::CreateObject(IID_ICorProfilerCallback4, &out))) return;
    auto* callback = static_cast<ProfilerCallback*>(static_cast<ICorProfilerCallback4*>(out));
    StartupOutcome outcome;
    outcome.result = setup.attach ? callback->InitializeForAttach(info, nullptr, 0) : callback->Initialize(info);
    outcome.mask = info->lastEventMask();
    outcome.setEventMaskCalls = info->calls("SetEventMask");
    outcome.fpcSet = fpc == callback;
    std::ostringstream notes;
    if (setup.body) {
        setup.body(callback, info, notes);
    }
    const int callsBefore = info->totalCalls();
    callback->Release();
    outcome.released = fpc == nullptr;
    outcome.infoReferences = static_cast<long>(info->references());
    outcome.releaseCalls = info->totalCalls() - callsBefore;
    std::ostringstream report;
    report << outcome.result << "\t" << outcome.mask << "\t" << outcome.setEventMaskCalls << "\t"
           << outcome.fpcSet << "\t" << outcome.released << "\t" << outcome.infoReferences << "\t"
           << outcome.releaseCalls << "\t" << escapeLines(nativeLogIn(scratch.path())) << "\t"
           << escapeLines(notes.str()) << "\n";
    const std::string text = report.str();
    ssize_t written = write(output, text.data(), text.size());
    (void)written;
}

// Forks, runs the setup in the child and reads its report. A child that does
// not finish within the limit (a service thread that never stops) is killed
// and reported as not released.
inline StartupOutcome runStartup(const StartupSetup& setup) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
        return {};
    }
    fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        runStartupChild(setup, pipeEnds[1]);
        _exit(0);
    }
    close(pipeEnds[1]);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = read(pipeEnds[0], buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<size_t>(n));
    }
    close(pipeEnds[0]);
    StartupOutcome outcome;
    std::istringstream fields(text);
    std::string field;
    std::getline(fields, field, '\t');
    outcome.result = field.empty() ? 0 : static_cast<HRESULT>(std::stol(field));
    std::getline(fields, field, '\t');
    outcome.mask = field.empty() ? 0 : std::stoul(field);
    std::getline(fields, field, '\t');
    outcome.setEventMaskCalls = field.empty() ? -1 : std::stoi(field);
    std::getline(fields, field, '\t');
    outcome.fpcSet = field == "1";
    std::getline(fields, field, '\t');
    outcome.released = field == "1";
    std::getline(fields, field, '\t');
    outcome.infoReferences = field.empty() ? -1 : std::stol(field);
    std::getline(fields, field, '\t');
    outcome.releaseCalls = field.empty() ? -1 : std::stoi(field);
    std::getline(fields, field, '\t');
    outcome.log = unescapeLines(field);
    std::getline(fields, field, '\n');
    outcome.notes = unescapeLines(field);
    return outcome;
}
