// The engine as the callback hub makes it: with the process's controller.
#include "gate/ProfilingManager.h"
#include "rewrite/Profiler.h"

IProfiler* IProfiler::newInstance(ICorProfilerInfo* info, unsigned int clrVersion, bool isCoreCLR) {
    IProfilerController* controller = ProfilingManager::getInstance()->getController(info);
    return Profiler::newInstance(info, clrVersion, isCoreCLR, controller);
}
