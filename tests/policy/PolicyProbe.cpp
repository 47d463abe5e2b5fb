// Makes the profiler controller of this process the way the callback hub does,
// through the process gate, and prints its application decision. The policy
// tests copy it under the process names under test and start it with the
// command lines under test; its arguments are the command line, not options.
// The runtime is hosted so that entry assemblies can be read; the runtime
// interface is a double that reports a Core runtime. The probe's own lines
// begin with "probe.".
#include <cstdio>

#include "gate/ProfilingManager.h"
#include "platform/FormattedOutput.h"
#include "offline/HostedRuntime.h"
#include "support/ProfilerInfoDouble.h"

int main() {
    if (!HostedRuntime::instance().ready()) {
        printf_8("probe.error=%s\n", HostedRuntime::instance().error().c_str());
        return 2;
    }
    AutoCOMPointer<ProfilerInfoDouble> info(ProfilerInfoDouble::newInstance());
    IProfilerController* controller = ProfilingManager::getInstance()->getController(info);
    if (controller == nullptr) {
        printf_8("probe.controller=-\n");
        return 0;
    }
    FILE* log = controller->getNativeLog();
    const int status = controller->shouldMonitorApplication();
    fflush(log);
    printf_8("probe.status=%d\n", status);
    printf_8("probe.app.name=%S\n", controller->getAppName().c_str());
    printf_8("probe.log=%s\n", log == stdout ? "stdout" : log == stderr ? "stderr" : "file");
    return 0;
}
