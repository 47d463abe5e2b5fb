// Attach: a profiler that joins a running process takes the attaching tool's
// client data into the environment, starts up as at launch, and catches up
// with what the process has already loaded and compiled by asking the
// runtime to compile the selected methods again.
#include <iterator>
#include <set>
#include <vector>

#include "hub/AttachClientData.h"
#include "platform/HeldLock.h"
#include "hub/ProfilerCallback.h"
#include "metadata/CLRUtils.h"
#include "platform/Environment.h"
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/Text16.h"
#include "platform/Threads.h"
#include "runtime/Guids.h"
#include "runtime/ProfilerEnumerators.h"

namespace {

constexpr ULONG kBatch = 1024;
constexpr unsigned int kOverloads = 8;
constexpr HRESULT kAttachRefused = static_cast<HRESULT>(0x80131375);
constexpr DWORD kModuleNgen = 0x2;
using SharedNames::kCoreLibrary;

std::u16string widen(const std::string& text) {
    std::u16string wide;
    for (char c : text) wide.push_back(static_cast<char16_t>(static_cast<unsigned char>(c)));
    return wide;
}

}  // namespace

HRESULT ProfilerCallback::InitializeForAttach(IUnknown* pCorProfilerInfoUnk, void* pvClientData, UINT cbClientData) {
    attached = true;
    HRESULT hr = S_OK;
    try {
        for (const auto& [key, value] : AttachClientData::pairs(pvClientData, cbClientData)) {
            _wputenv(widen(key + "=" + value).c_str());
        }
        hr = Initialize(pCorProfilerInfoUnk);
        // The agent reads the tool's lines first, then those of the start-up.
        const std::string saved = attachEnvironment;
        attachEnvironment = AttachClientData::text(pvClientData, cbClientData);
        if (!saved.empty()) {
            attachEnvironment += "\n" + saved;
        }
        // A profiler that arrives late never hijacks.
        agentHijacked = true;
        if (SUCCEEDED(hr) && eventMask != 0) {
            hr = catchUp();
        }
    } catch (...) {
        hr = E_OUTOFMEMORY;
    }
    if (SUCCEEDED(hr)) {
        if (nativeLog != nullptr) {
            fprintf_8(nativeLog, "Attached TMS Agent with 0x%x\n", static_cast<unsigned int>(hr));
            fflush(nativeLog);
        }
        return hr;
    }
    // The program's own output is never written to: without a log the
    // refusal reaches the attaching tool alone.
    if (nativeLog != nullptr) {
        fprintf_8(nativeLog, "Failed to attach TMS Agent with 0x%x\n", static_cast<unsigned int>(hr));
        fflush(nativeLog);
    }
    return kAttachRefused;
}

HRESULT ProfilerCallback::ProfilerAttachComplete() {
    try {
        if (IsReJITEnabled() && eventMask != 0 && serviceThread == nullptr) {
            serviceThread = CreateThread(nullptr, 0, ServiceReJITThreadFunction, this, 0, nullptr);
            if (serviceThread == nullptr) logNoServiceThread();
        }
    } catch (...) {
        // Without the service thread the queued requests wait for nobody.
    }
    return S_OK;
}

// Every loaded module as if it loaded now, the core library first, then the
// compiled functions whose methods the directives select.
HRESULT ProfilerCallback::catchUp() {
    AutoCOMPointer<ICorProfilerInfo3> info3;
    HRESULT hr = profilerInfo->QueryInterface(IID_ICorProfilerInfo3, reinterpret_cast<void**>(&info3));
    if (FAILED(hr)) {
        return hr;
    }
    std::vector<ModuleID> modules;
    hr = listModules(info3, modules);
    ModuleID core = 0;
    for (ModuleID module : modules) {
        if (core == 0 && isCoreLibraryModule(module)) {
            core = module;
        }
    }
    if (core != 0) {
        catchUpModule(info3, core, true);
    }
    for (ModuleID module : modules) {
        if (module != core) {
            catchUpModule(info3, module, false);
        }
    }
    if (SUCCEEDED(hr)) {
        hr = requestCompiledFunctions(info3);
    }
    return hr;
}

HRESULT ProfilerCallback::listModules(ICorProfilerInfo3* info3, std::vector<ModuleID>& modules) {
    AutoCOMPointer<ICorProfilerModuleEnum> enumerator;
    HRESULT hr = info3->EnumModules(&enumerator);
    ULONG count = 0;
    if (SUCCEEDED(hr)) {
        hr = enumerator->GetCount(&count);
    }
    ModuleID batch[kBatch];
    while (SUCCEEDED(hr) && modules.size() < count) {
        ULONG fetched = 0;
        hr = enumerator->Next(kBatch, batch, &fetched);
        if (fetched == 0) {
            break;
        }
        modules.insert(modules.end(), batch, batch + fetched);
    }
    return hr;
}

// A longer name does not fit and is no core library either.
bool ProfilerCallback::isCoreLibraryModule(ModuleID module) {
    AssemblyID assembly = 0;
    ULONG length = 0;
    char16_t name[std::size(kCoreLibrary)] = {};
    return SUCCEEDED(profilerInfo->GetModuleInfo(module, nullptr, 0, &length, nullptr, &assembly)) &&
           SUCCEEDED(profilerInfo->GetAssemblyInfo(assembly, std::size(name), &length, name, nullptr, nullptr)) &&
           strcmp_u16(name, kCoreLibrary) == 0;
}

// One loaded module: its load event, the methods that give the agent an early
// way in (core library), and a ReJIT request for each method it has selected.
void ProfilerCallback::catchUpModule(ICorProfilerInfo3* info3, ModuleID module, bool coreLibrary) {
    ModuleLoadFinished(module, S_OK);
    DWORD flags = 0;
    ULONG length = 0;
    AssemblyID assembly = 0;
    if (FAILED(info3->GetModuleInfo2(module, nullptr, 0, &length, nullptr, &assembly, &flags)) ||
        (!coreLibrary && (flags & kModuleNgen) == 0)) {
        return;
    }
    if (coreLibrary) {
        mdMethodDef invoke = CLRUtils::GetMethodDefTokenFromModule(profilerInfo, module,
                                                                  u"System.Threading.Tasks.Task", u"InnerInvoke");
        if (invoke != 0) {
            fprintf_8(nativeLog, "Force ReJIT for System.Threading.Tasks.Task::InnerInvoke\n");
            RequestReJIT(module, invoke, false);
        } else {
            fprintf_8(nativeLog, "Failed to find System.Threading.Tasks.Task::InnerInvoke method\n");
            fprintf_8(nativeLog, "It may take longer for the agent to initialize.\n");
        }
        forceOverloads(module, u"System.Threading.Monitor", u"Enter", "System.Threading.Monitor::Enter");
        forceOverloads(module, u"System.Threading.Thread", u"Sleep", "System.Threading.Thread::Sleep");
    }
    std::set<mdMethodDef> methods;
    {
        // Compiles on other threads decide with the same index, which a scan
        // extends.
        HeldLock held(&profilerLock);
        controller->getMonitoredMethodsForModule(profilerInfo, module, methods, true);
    }
    for (mdMethodDef method : methods) {
        RequestReJIT(module, method, false);
    }
}

void ProfilerCallback::forceOverloads(ModuleID module, const char16_t* className, const char16_t* methodName,
                                      const char* printed) {
    unsigned int tokens[kOverloads] = {};
    const unsigned int found =
        CLRUtils::GetMethodDefTokensFromModule(profilerInfo, module, className, methodName, tokens, kOverloads);
    for (unsigned int i = 0; i < found; ++i) {
        fprintf_8(nativeLog, "Force ReJIT for %s\n", printed);
        RequestReJIT(module, tokens[i], false);
    }
    if (found == 0) {
        fprintf_8(nativeLog, "Failed to find any %s methods\n", printed);
    }
}

// Functions compiled before the attach: those whose methods the directives
// select are compiled again, through the ReJIT path.
HRESULT ProfilerCallback::requestCompiledFunctions(ICorProfilerInfo3* info3) {
    AutoCOMPointer<ICorProfilerFunctionEnum> enumerator;
    HRESULT hr = info3->EnumJITedFunctions(&enumerator);
    ULONG count = 0;
    if (SUCCEEDED(hr)) {
        hr = enumerator->GetCount(&count);
    }
    HeldLock held(&profilerLock);
    std::vector<COR_PRF_FUNCTION> batch(kBatch);
    ULONG seen = 0;
    while (SUCCEEDED(hr) && seen < count) {
        ULONG fetched = 0;
        hr = enumerator->Next(kBatch, batch.data(), &fetched);
        if (fetched == 0) {
            break;
        }
        seen += fetched;
        for (ULONG i = 0; i < fetched; ++i) {
            HRESULT set = metaDataContext->setFunction(batch[i].functionId);
            if (FAILED(set)) {
                fprintf_8(nativeLog, "Failed to set functionID %d\n", static_cast<int>(set));
                continue;
            }
            if (controller->shouldMonitorMethodUncached(metaDataContext) != 0) {
                continue;
            }
            RequestReJIT(metaDataContext->getModuleID(), metaDataContext->getMethodDef(), false);
            logReJITRequest(u"enable");
        }
    }
    return SUCCEEDED(hr) ? S_OK : hr;
}
