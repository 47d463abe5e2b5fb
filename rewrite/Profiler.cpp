#include "rewrite/Profiler.h"
#include "rewrite/TraceMembers.h"

#include <new>
#include <string>

#include "metadata/CLRUtils.h"
#include "rewrite/AssemblyIdentity.h"
#include "platform/CoreCLRPAL.h"
#include "platform/SharedNames.h"
#include "runtime/MethodMalloc.h"

namespace {

using namespace AssemblyIdentities;

// In the order of Profiler::TraceType; all in the core library but the one
// that names System.Runtime.
struct TypeDescription {
    const char16_t* name;
    bool inSystemRuntime;
};
const TypeDescription kTraceTypes[Profiler::kTraceTypeCount] = {
    {u"System.Exception", false}, {u"System.ValueType", false}, {u"System.ValueType", true},
    {u"System.Enum", false},      {u"System.Boolean", false},   {u"System.Char", false},
    {u"System.SByte", false},     {u"System.Int16", false},     {u"System.Int32", false},
    {u"System.Int64", false},     {u"System.Byte", false},      {u"System.UInt16", false},
    {u"System.UInt32", false},    {u"System.UInt64", false},    {u"System.Single", false},
    {u"System.Double", false},
};

// Where the agent would be installed in the global assembly cache of a
// desktop runtime; without one the shim is the only way in.
bool agentMissingFromGAC(FILE* log) {
    const char16_t* root = _wgetenv(u"SystemRoot");
    if (root == nullptr) return true;
    std::u16string path(root);
    path += u"\\assembly\\GAC_MSIL\\tarn.Agent";
    if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) return false;
    if (log != nullptr) fprintf_8(log, "tarn.Agent was not found int the GAC. Injecting SyntheticAgentShim\n");
    return true;
}

}  // namespace

IProfiler* IProfiler::newInstance(ICorProfilerInfo* info, unsigned int clrVersion, bool isCoreCLR,
                                  IProfilerController* controller) {
    return Profiler::newInstance(info, clrVersion, isCoreCLR, controller);
}

Profiler* Profiler::newInstance(ICorProfilerInfo* info, unsigned int clrVersion, bool isCoreCLR,
                                IProfilerController* controller) {
    FILE* log = controller != nullptr ? controller->getNativeLog() : nullptr;
    int setting = controller != nullptr ? controller->shouldUseSyntheticShim() : E_FAIL;
    bool synthetic = false;
    if (clrVersion != 2) {
        if (isCoreCLR) {
            // A Core runtime finds the agent's assembly by name only among the
            // application's own: referenced directly from a traced method, it
            // would fail that method's compile and end the program. The agent
            // is reached through the shim, whatever the setting says.
            synthetic = true;
            if (setting > 0 && log != nullptr) {
                fprintf_8(log, "The synthetic shim cannot be switched off on .NET Core: "
                               "harrowlite.nativeprofiler.synthetic.shim.enabled is ignored\n");
            }
        } else if (setting >= 0) {
            synthetic = setting == 0;
        } else {
            synthetic = agentMissingFromGAC(log);
        }
    }

    Profiler* profiler = new Profiler(info, clrVersion);
    profiler->controller = controller;
    profiler->log = log;
    profiler->useSyntheticShim = synthetic;
    if (FAILED(profiler->createGetters(isCoreCLR))) {
        delete profiler;
        return nullptr;
    }
    return profiler;
}

Profiler::Profiler(ICorProfilerInfo* info, unsigned int clrVersion)
    : info(info),
      clrVersion(clrVersion),
      isDotnetCore(CLRUtils::IsDotnetCore(info)),
      coreLibraryName(isDotnetCore ? kCoreCLRLibrary.name : kDesktopLibrary.name) {}

HRESULT Profiler::createGetters(bool isCoreCLR) {
    const AssemblyIdentity& coreLibrary = isCoreCLR ? kCoreCLRLibrary : kDesktopLibrary;
    const AssemblyIdentity& shimAssembly = useSyntheticShim ? coreLibrary : kAgent;
    const char16_t* shimClass = useSyntheticShim ? SharedNames::kSyntheticAgentShimClass : SharedNames::kPreAgentShimClass;
    ASSEMBLYMETADATA shimVersion = shimAssembly.metadata();
    for (unsigned int i = 0; i < TraceMembers::kCount; ++i) {
        const TraceMembers::Member& member = TraceMembers::kMembers[i];
        memberGetters[i] = IMemberTokenGetter::newTokenGetter(info, shimAssembly.name, shimAssembly.token, 8,
                                                              &shimVersion, shimClass, member.name, member.signature,
                                                              member.length);
        ownMemberGetters[i] = IMemberTokenGetter::newOwnTokenGetter(info, SharedNames::kSyntheticAgentShimClass,
                                                                    member.name, member.signature, member.length);
    }
    for (unsigned int i = 0; i < kTraceTypeCount; ++i) {
        const AssemblyIdentity& assembly = kTraceTypes[i].inSystemRuntime ? kSystemRuntime : coreLibrary;
        ASSEMBLYMETADATA version = assembly.metadata();
        typeGetters[i] =
            ITypeTokenGetter::newTokenGetter(info, assembly.name, assembly.token, 8, &version, kTraceTypes[i].name);
    }
    varGetter = IVarTypeSpecTokenGetter::newTokenGetter(info, ELEMENT_TYPE_VAR);
    mvarGetter = IVarTypeSpecTokenGetter::newTokenGetter(info, ELEMENT_TYPE_MVAR);
    valueTypeGetter = IValueTypeSpecTokenGetter::newTokenGetter(info);
    return S_OK;
}

bool Profiler::hasOutcome(IMetaDataContext* context) {
    auto facts = modules.find(context->getModuleID());
    return facts != modules.end() && facts->second.outcomes.contains(context->getMethodDef());
}

void Profiler::clearHistoryForFunction(IMetaDataContext* context) {
    if (auto facts = modules.find(context->getModuleID()); facts != modules.end()) {
        facts->second.outcomes.erase(context->getMethodDef());
    }
}

void Profiler::forgetModule(ModuleID module) {
    // No rewrite runs between calls: the last one's facts may be of this module.
    current.facts = nullptr;
    modules.erase(module);
    valueTypeGetter->forgetModule(module);
    for (auto* getters : {&memberGetters, &ownMemberGetters}) {
        for (AutoPointer<IMemberTokenGetter>& getter : *getters) {
            if (getter.get() != nullptr) getter->forgetModule(module);
        }
    }
    for (AutoPointer<ITypeTokenGetter>& getter : typeGetters) {
        if (getter.get() != nullptr) getter->forgetModule(module);
    }
    for (IVarTypeSpecTokenGetter* getter : {varGetter.get(), mvarGetter.get()}) {
        if (getter != nullptr) getter->forgetModule(module);
    }
}

// Memory for a body from the runtime's allocator of the module, which the
// runtime keeps; a ReJIT version takes a copy of our own.
HRESULT Profiler::allocateBody(ModuleID module, unsigned int size, unsigned char** body) {
    if (version != nullptr) {
        versionBody.resize(size);
        *body = versionBody.data();
        return S_OK;
    }
    AutoCOMPointer<IMethodMalloc> allocator;
    HRESULT hr = info->GetILFunctionBodyAllocator(module, &allocator);
    if (FAILED(hr)) return hr;
    *body = static_cast<unsigned char*>(allocator->Alloc(size));
    // An allocator may report failure through the address itself.
    if (*body == nullptr || static_cast<HRESULT>(reinterpret_cast<uintptr_t>(*body)) == E_OUTOFMEMORY) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT Profiler::restoreOriginalBody(IMetaDataContext* method) {
    auto facts = modules.find(method->getModuleID());
    if (facts == modules.end()) return E_FAIL;
    auto found = facts->second.originalBodies.find(method->getMethodDef());
    if (found == facts->second.originalBodies.end() || version == nullptr) return E_FAIL;
    return version->SetILFunctionBody(static_cast<ULONG>(found->second.size()), found->second.data());
}
