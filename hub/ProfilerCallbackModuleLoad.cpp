// A module has loaded: its names for lookup, its log line, the generic agent
// trigger, the agent's P/Invokes, the synthetic shim in the first module, and
// the rewriting of its methods when instrumenting on module load.
#include <atomic>
#include <cinttypes>
#include <set>
#include <string>

#include "platform/HeldLock.h"
#include "hub/ProfilerCallback.h"
#include "hub/UnixDllImportPatcher.h"
#include "metadata/ImageMetaData.h"
#include "platform/FormattedOutput.h"
#include "platform/Performance.h"
#include "platform/SharedNames.h"
#include "platform/Text16.h"
#include "runtime/Guids.h"
#include "shim/SyntheticAgentShim.h"

namespace {

constexpr mdAssembly kNoAssembly = 0x20000000;
constexpr size_t kAgentAssemblyPrefixUnits = 10;
constexpr ULONG kModuleNameSize = 512;

// Shared by all threads that load modules, without a lock; the first-module
// mark is taken atomically so that the shim is defined exactly once.
std::atomic<bool> firstModule{true};
bool domainTriggerSatisfied = false;
ModuleID privateCorLib = 0;
ModuleID genericTrigger = 0;
uint64_t cumulative = 0;

std::u16string& corlibDomain() {
    static std::u16string domain;
    return domain;
}

// Major, minor, revision and build of the module's assembly; zeros where the
// module has no manifest or cannot say.
struct ModuleVersion {
    USHORT version[4] = {};
};

// The runtime's flags of a module (COR_PRF_MODULE_...); none, and known
// false, if it cannot say.
DWORD moduleFlags(ICorProfilerInfo* info, ModuleID moduleId, bool* known = nullptr) {
    AutoCOMPointer<ICorProfilerInfo3> info3;
    ULONG length = 0;
    AssemblyID assembly = 0;
    DWORD flags = 0;
    const bool read = SUCCEEDED(info->QueryInterface(IID_ICorProfilerInfo3, reinterpret_cast<void**>(&info3))) &&
                      SUCCEEDED(info3->GetModuleInfo2(moduleId, nullptr, 0, &length, nullptr, &assembly, &flags));
    if (known != nullptr) *known = read;
    return read ? flags : 0;
}

ModuleVersion readModuleVersion(ICorProfilerInfo* info, ModuleID moduleId) {
    ModuleVersion facts;
    AutoCOMPointer<IMetaDataAssemblyImport> import;
    mdAssembly token = kNoAssembly;
    if (SUCCEEDED(
            ImageMetaData::open(info, moduleId, IID_IMetaDataAssemblyImport, reinterpret_cast<IUnknown**>(&import))) &&
        SUCCEEDED(import->GetAssemblyFromScope(&token)) && token != kNoAssembly) {
        ASSEMBLYMETADATA metadata = {};
        if (SUCCEEDED(import->GetAssemblyProps(token, nullptr, nullptr, nullptr, nullptr, 0, nullptr, &metadata,
                                               nullptr))) {
            facts.version[0] = metadata.usMajorVersion;
            facts.version[1] = metadata.usMinorVersion;
            facts.version[2] = metadata.usRevisionNumber;
            facts.version[3] = metadata.usBuildNumber;
        }
    }
    return facts;
}

// A name of any length: the runtime is asked for its length first, then for
// the text.
template <typename Query>
HRESULT readName(std::u16string& text, Query query) {
    ULONG length = 0;
    HRESULT hr = query(0, &length, nullptr);
    if (length == 0) {
        text.clear();
        return hr;
    }
    text.assign(length, u'\0');
    hr = query(length, &length, text.data());
    text.resize(SUCCEEDED(hr) ? strlen_u16(text.c_str()) : 0);
    return hr;
}

bool readNames(IMetaDataContext* context, char16_t** assembly, char16_t** className, char16_t** method) {
    return SUCCEEDED(context->getClassName(assembly, className)) && SUCCEEDED(context->getMethodName(method));
}

}  // namespace

HRESULT ProfilerCallback::ModuleLoadFinished(ModuleID moduleId, HRESULT hrStatus) {
    ProfilerAccount::Timed timed(account, ProfilerAccount::kModuleLoad);
    try {
        if (profilerInfo == nullptr || controller == nullptr || nativeLog == nullptr) {
            return S_OK;
        }
        // Noted first: nothing below may decide a function of the module before.
        ModuleNames names;
        names.flags = moduleFlags(profilerInfo, moduleId, &names.flagsKnown);
        noteModuleKind(moduleId, names.flagsKnown, names.flags);
        HRESULT result = recordModuleNames(moduleId, names);
        const char16_t* assemblyName = names.assembly.c_str();
        findGenericTrigger(moduleId, names.domainId, names.domain.c_str(), result);
        if (SUCCEEDED(result)) {
            logModuleAndPatchAgent(moduleId, names);
        }

        const bool onModuleLoad = rewritesOnLoad;
        const bool first = firstModule.exchange(false);
        const bool refusesInliners = keepsPrecompiledCode() && (names.flags & COR_PRF_MODULE_NGEN) != 0;
        std::set<mdMethodDef> selected;
        if (SUCCEEDED(result) && ((first && isCoreCLR) || refusesInliners)) {
            selected = selectedMethods(moduleId);
        }
        if (first) {
            result = prepareFirstModule(moduleId, result, onModuleLoad, !selected.empty());
        }

        if (SUCCEEDED(result) && !disabled && refusesInliners) {
            refusePrecompiledInliners(moduleId, assemblyName, selected);
        }
        if (onModuleLoad && !disabled) {
            // The rewriting engine is shared with the compile path and with
            // other module loads.
            HeldLock held(&profilerLock);
            instrumentModule(moduleId, assemblyName, result);
        }
    } catch (...) {
        // The module loads as it is.
    }
    return S_OK;
}

// The module's path, assembly and domain names, the first two kept for lookup
// by name. The path is kept even when the names cannot be read.
HRESULT ProfilerCallback::recordModuleNames(ModuleID moduleId, ModuleNames& names) {
    AssemblyID assemblyId = 0;
    HRESULT result = readName(names.path, [&](ULONG size, ULONG* length, char16_t* name) {
        return profilerInfo->GetModuleInfo(moduleId, nullptr, size, length, name, &assemblyId);
    });
    {
        HeldLock held(&moduleLock);
        moduleIds.emplace(names.path, moduleId);
    }
    if (SUCCEEDED(result)) {
        result = readName(names.assembly, [&](ULONG size, ULONG* length, char16_t* name) {
            return profilerInfo->GetAssemblyInfo(assemblyId, size, length, name, &names.domainId, nullptr);
        });
    }
    if (SUCCEEDED(result)) {
        HeldLock held(&moduleLock);
        // An older entry of the same name stays.
        moduleIds.emplace(names.assembly, moduleId);
    }
    if (SUCCEEDED(result)) {
        result = readName(names.domain, [&](ULONG size, ULONG* length, char16_t* name) {
            return profilerInfo->GetAppDomainInfo(names.domainId, size, length, name, nullptr);
        });
    }
    return result;
}

// The module's log line; the agent's own assembly gets its P/Invokes patched.
void ProfilerCallback::logModuleAndPatchAgent(ModuleID moduleId, const ModuleNames& names) {
    const ModuleVersion facts = readModuleVersion(profilerInfo, moduleId);
    fprintf_u16(nativeLog, u"Module Loaded %s (%d.%d.%d-%d) [ngen:%d] Domain: %s from %s\n", names.assembly.c_str(),
                facts.version[0], facts.version[1], facts.version[2], facts.version[3],
                (names.flags & COR_PRF_MODULE_NGEN) != 0 ? 1 : 0, names.domain.c_str(), names.path.c_str());
    fflush(nativeLog);

    if (strncmp_u16(names.assembly.c_str(), SharedNames::kAgentAssembly, kAgentAssemblyPrefixUnits) == 0) {
        agentLoaded = true;
        fprintf_8(nativeLog, "Patching PInvoke...\n");
        UnixDllImportPatcher patcher(profilerInfo, moduleId, nativeLog);
        // The patcher logs what it could not patch; the module loads either way.
        (void)patcher.PatchDllImports();
    }
}

// The first module (the core library). Where the directives select some of
// its methods, or the profiler came late, the synthetic shim is defined in it
// and serves every module; a shim that cannot be defined disables the agent.
// Otherwise each module that gets traced gets a shim of its own: writing into
// the core library would cost every start-up the copy of its whole metadata
// that the runtime makes before the first write. With instrumentation on
// module load the first module goes on whatever its names gave.
HRESULT ProfilerCallback::prepareFirstModule(ModuleID moduleId, HRESULT result, bool onModuleLoad,
                                             bool coreLibrarySelected) {
    if (SUCCEEDED(result) && profiler != nullptr && profiler->usingSyntheticShim()) {
        coreLibraryModule = moduleId;
    }
    if (coreLibraryModule != 0 && isCoreCLR && !attached && !coreLibrarySelected) {
        profiler->placeShimInModules([this](ModuleID module) { return moduleShim(module); });
    } else if (coreLibraryModule != 0) {
        SyntheticAgentShim shim(coreLibraryLookups);
        HRESULT defined = E_FAIL;
        {
            ProfilerAccount::Timed timedShim(account, ProfilerAccount::kShim, ProfilerAccount::kModuleLoad);
            defined = shim.DefineSyntheticAgentShim(profilerInfo, moduleId, nativeLog, isCoreCLR, attached, moduleId);
        }
        if (SUCCEEDED(defined)) {
            fprintf_8(nativeLog, "Defined Synthetic Shim\n");
        } else {
            fprintf_8(nativeLog, "Failed to define Synthetic Shim\n");
            fprintf_8(nativeLog, "*** The agent has been disabled.\n");
            disabled = true;
        }
        fflush(nativeLog);
    }
    if (onModuleLoad && !disabled) {
        result = S_OK;
        if (!isCoreCLR) {
            HeldLock held(&profilerLock);
            hijackSetupDomain(moduleId);
        }
    }
    return result;
}

// The shim a module's code calls: its own (S_OK), or the core library's
// (S_FALSE) for a module that the program emits itself, where a class written
// behind its back is never loaded. The core library's own methods get its shim
// only once the agent has loaded, as after an attach: the agent reaches them
// through their loader then, where otherwise a trace call of the core library
// could bring the agent in from whatever the runtime was doing.
HRESULT ProfilerCallback::moduleShim(ModuleID moduleId) {
    auto known = moduleShims.find(moduleId);
    if (known != moduleShims.end()) return known->second.result;
    if ((moduleFlags(profilerInfo, moduleId) & COR_PRF_MODULE_DYNAMIC) != 0) {
        known = moduleShims.find(coreLibraryModule);
        const HRESULT core =
            known != moduleShims.end() ? known->second.result : defineShim(coreLibraryModule, agentLoaded);
        // Remembered as the module's answer: it has no class of its own.
        const HRESULT answer = SUCCEEDED(core) ? S_FALSE : core;
        moduleShims.emplace(moduleId, ModuleShim{answer, mdTypeDefNil});
        return answer;
    }
    if (moduleId == coreLibraryModule && !agentLoaded) {
        return E_FAIL;
    }
    return defineShim(moduleId, moduleId == coreLibraryModule);
}

HRESULT ProfilerCallback::defineShim(ModuleID moduleId, bool loaderFirst) {
    HRESULT defined = E_FAIL;
    SyntheticAgentShim shim(coreLibraryLookups);
    {
        ProfilerAccount::Timed timedShim(account, ProfilerAccount::kShim, ProfilerAccount::kRewrite);
        defined =
            shim.DefineSyntheticAgentShim(profilerInfo, moduleId, nativeLog, isCoreCLR, loaderFirst, coreLibraryModule);
    }
    // Its log line is a log line of the rewrite that asked for the shim.
    ProfilerAccount::Timed timedLog(account, ProfilerAccount::kLog, ProfilerAccount::kRewrite);
    AssemblyID assembly = 0;
    char16_t name[kModuleNameSize] = {};
    ULONG length = 0;
    if (FAILED(profilerInfo->GetModuleInfo(moduleId, nullptr, 0, nullptr, nullptr, &assembly)) ||
        FAILED(profilerInfo->GetAssemblyInfo(assembly, kModuleNameSize, &length, name, nullptr, nullptr))) {
        name[0] = 0;
    }
    fprintf_u16(nativeLog,
                SUCCEEDED(defined) ? u"Defined Synthetic Shim in %s\n" : u"Failed to define Synthetic Shim in %s\n",
                name);
    fflush(nativeLog);
    moduleShims.emplace(moduleId, ModuleShim{defined, shim.definedClass()});
    return defined;
}

void ProfilerCallback::findGenericTrigger(ModuleID moduleId, AppDomainID domainId, const char16_t* domainName,
                                          HRESULT result) {
    if (!controller->usingGenericAgentTrigger()) {
        return;
    }
    if (!isCoreCLR) {
        // The first domain other than the one that loaded the core library.
        if (domainTriggerSatisfied) {
            return;
        }
        if (corlibDomain().empty()) {
            corlibDomain() = domainName;
        } else if (corlibDomain() != domainName) {
            controller->setGenericDomainTrigger(domainId);
            domainTriggerSatisfied = true;
        }
        return;
    }
    // The first module after the core library whose assembly is not skipped.
    if (privateCorLib == 0) {
        privateCorLib = moduleId;
        return;
    }
    if (genericTrigger != 0 || moduleId == privateCorLib) {
        return;
    }
    AutoCOMPointer<IMetaDataImport> import;
    if (SUCCEEDED(result)) {
        (void)ImageMetaData::open(profilerInfo, moduleId, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import));
    }
    // Without metadata the assembly's name cannot be had, and the module
    // cannot be the trigger.
    AutoPointer<IMetaDataContext> context(IMetaDataContext::newInstance(profilerInfo));
    if (import == nullptr || context == nullptr) {
        return;
    }
    context->setImport(import);
    context->setModuleID(moduleId);
    // The first question may read the directives, which a compiling thread may
    // be reading too.
    HeldLock held(&profilerLock);
    if (controller->shouldSkipAssembly(context) == 1) {
        genericTrigger = moduleId;
        controller->setGenericModuleTrigger(moduleId);
    }
}

void ProfilerCallback::hijackSetupDomain(ModuleID moduleId) {
    // Both signatures stop short of their five parameters; the lookup takes
    // them as they are.
    static const COR_SIGNATURE kSetupDomainV2[] = {0x20, 0x05, 0x01, 0x02, 0x0E, 0x0E};
    static const COR_SIGNATURE kSetupDomain[] = {0x20, 0x05, 0x01, 0x02, 0x0E, 0x0E, 0x1D, 0x1D};

    AutoCOMPointer<IMetaDataImport> import;
    HRESULT result =
        profilerInfo->GetModuleMetaData(moduleId, ofRead, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import));
    mdTypeDef type = 0;
    if (SUCCEEDED(result)) {
        result = import->FindTypeDefByName(u"System.AppDomain", 0, &type);
    }
    if (FAILED(result)) {
        fprintf_8(nativeLog, "Failed to find System.AppDomain\n");
    }
    mdMethodDef method = 0;
    if (SUCCEEDED(result)) {
        result = clrVersion == 2 ? import->FindMethod(type, u"SetupDomain", kSetupDomainV2, sizeof(kSetupDomainV2), &method)
                                 : import->FindMethod(type, u"SetupDomain", kSetupDomain, sizeof(kSetupDomain), &method);
    }
    if (FAILED(result)) {
        fprintf_8(nativeLog, "Failed to find AppDomain.SetupDomain\n");
        return;
    }
    AutoPointer<IMetaDataContext> context(IMetaDataContext::newInstance(profilerInfo));
    if (context == nullptr) {
        return;
    }
    context->setImport(import);
    context->setModuleID(moduleId);
    context->setTypeDef(type);
    context->setMethodDef(method);
    result = profiler->hijackMethod(context);
    if (FAILED(result)) {
        fprintf_8(nativeLog, "Failed to hijack AppDomain.SetupDomain\n");
        return;
    }
    unsigned int step = 0;
    if (FAILED(profiler->instrumentMethod(context, &step))) {
        fprintf_8(nativeLog, "Failed to instrument AppDomain.SetupDomain\n");
    }
}

void ProfilerCallback::instrumentModule(ModuleID moduleId, const char16_t* assemblyName, HRESULT result) {
    std::set<mdMethodDef> methods;
    controller->getMonitoredMethodsForModule(profilerInfo, moduleId, methods, true);

    const int64_t started = Performance::GetTimeInMillis();
    AutoCOMPointer<IMetaDataImport> import;
    if (SUCCEEDED(result)) {
        result = profilerInfo->GetModuleMetaData(moduleId, ofRead, IID_IMetaDataImport,
                                                 reinterpret_cast<IUnknown**>(&import));
    }
    // Without its metadata no method of the module can be looked at.
    if (FAILED(result) || import == nullptr) {
        if (!methods.empty()) {
            fprintf_u16(nativeLog, u"Skipped instrumenting [%s]: its metadata cannot be opened (0x%X)\n", assemblyName,
                        static_cast<unsigned int>(result));
            fflush(nativeLog);
        }
        return;
    }
    AutoPointer<IMetaDataContext> context(IMetaDataContext::newInstance(profilerInfo));
    if (context == nullptr) {
        return;
    }
    context->setImport(import);
    context->setModuleID(moduleId);
    for (mdMethodDef method : methods) {
        mdTypeDef type = 0;
        mdToken super = 0;
        if (SUCCEEDED(result)) {
            result = import->GetMethodProps(method, &type, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                            nullptr);
        }
        if (SUCCEEDED(result)) {
            result = import->GetTypeDefProps(type, nullptr, 0, nullptr, nullptr, &super);
        }
        context->setTypeDef(type);
        context->setSuperToken(super);
        context->setMethodDef(method);
        unsigned int step = 0;
        if (SUCCEEDED(result)) {
            ProfilerAccount::Timed timed(account, ProfilerAccount::kRewrite);
            result = profiler->instrumentMethod(context, &step);
            if (step != 0) account.rewritten(result, profiler->getLastError());
        }
        char16_t* assembly = nullptr;
        char16_t* className = nullptr;
        char16_t* name = nullptr;
        if (logEnabled && readNames(context, &assembly, &className, &name)) {
            ProfilerAccount::Timed timed(account, ProfilerAccount::kLog);
            if (FAILED(result)) {
                const char16_t* error = profiler->getLastError();
                fprintf_8(nativeLog, "Failed to instrument [%S]%S::%S - 0x%X(%02d) (%S)\n", assembly, className, name,
                          result, step, error != nullptr ? error : u"Unknown error.");
            } else {
                fprintf_8(nativeLog, "Instrumented [%S]%S::%S\n", assembly, className, name);
            }
            fflush(nativeLog);
        }
        // One bad method does not stop the walk.
        if (FAILED(result)) {
            result = S_OK;
        }
    }
    const uint64_t elapsed = static_cast<uint64_t>(Performance::GetTimeInMillis() - started);
    cumulative += elapsed;
    fprintf_u16(nativeLog, u"[%s] Instrumented %u methods in (%llu/%llu)ms\n", assemblyName,
                static_cast<unsigned int>(methods.size()), static_cast<unsigned long long>(elapsed),
                static_cast<unsigned long long>(cumulative));
    fflush(nativeLog);
}

ModuleID ProfilerCallback::GetModuleID(const char16_t* name) {
    HeldLock held(&moduleLock);
    auto found = moduleIds.find(name);
    return found != moduleIds.end() ? found->second : 0;
}
