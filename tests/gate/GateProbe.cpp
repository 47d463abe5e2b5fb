// Runs the process gate in a process of its own and prints its decisions, one
// "key=value" line each. The gate tests start it under chosen names, command
// lines and environments; it takes no options of its own, since its arguments
// are the command line under test. GATE_PROBE_RUNTIMES lists the runtime
// versions that ask in turn (default "4,4"); GATE_PROBE_CONCURRENT=1 lets two
// version 4 runtimes ask at once on two threads instead.
#include <cstdlib>
#include <string>
#include <thread>

#include "gate/ProfilingManager.h"
#include "platform/FormattedOutput.h"
#include "platform/ProcessFacts.h"
#include "unit/gate/GateSeams.h"

namespace {

using Text = std::basic_string<char16_t>;

void printText(const char* key, bool present, const Text& value) {
    printf_8(present ? "%s=%S\n" : "%s=-\n", key, value.c_str());
}

void printFlag(const char* key, bool value) { printf_8("%s=%d\n", key, value ? 1 : 0); }

void askRuntimes(ProfilingManager* manager) {
    if (getenv("GATE_PROBE_CONCURRENT") != nullptr) {
        HRESULT results[2] = {};
        std::thread first([&] { results[0] = manager->shouldMonitorCLR(4); });
        std::thread second([&] { results[1] = manager->shouldMonitorCLR(4); });
        first.join();
        second.join();
        printf_8("clr.concurrent=0x%08X,0x%08X\n", results[0], results[1]);
        return;
    }
    const char* runtimes = getenv("GATE_PROBE_RUNTIMES");
    const std::string list = runtimes != nullptr ? runtimes : "4,4";
    int index = 0;
    for (size_t start = 0; start < list.size();) {
        size_t end = list.find(',', start);
        end = end == std::string::npos ? list.size() : end;
        const long version = std::stol(list.substr(start, end - start));
        printf_8("clr.%d.v%ld=0x%08X\n", index++, version, manager->shouldMonitorCLR(version));
        start = end + 1;
    }
}

} // namespace

int main() {
    ProfilingManager* manager = ProfilingManager::getInstance();
    printFlag("internal", manager->isDotnetInternalCommand());
    Text name;
    printText("app.name", ProcessFacts::getDotnetApplicationName(name), name);
    Text dllPath;
    bool isDotnet = false;
    printText("dll.path", ProcessFacts::getDotnetApplicationDllPath(dllPath, &isDotnet), dllPath);
    printFlag("is.dotnet", isDotnet);
    printText("custom.config", true, manager->getCustomConfigPath());
    const char* profile = getenv("com.tarn.harrowlite.agentProfile");
    printf_8("agent.profile=%s\n", profile != nullptr ? profile : "-");
    printFlag("properties", manager->getProperties() != nullptr);
    printf_8("pick=%s\n", manager->isPickFirst() ? "first" : manager->isPickMany() ? "many" : "other");

    askRuntimes(manager);

    // One manager; one controller, made at the first call from its properties.
    IProfilerController* controller = manager->getController(nullptr);
    const bool once =
        controller != nullptr && controller == manager->getController(nullptr) && controllerFactoryCalls() == 1;
    printf_8("singletons=%d,%d,%d\n", manager == ProfilingManager::getInstance(), once,
             lastControllerFactoryCall().properties == manager->getProperties());
    return 0;
}
