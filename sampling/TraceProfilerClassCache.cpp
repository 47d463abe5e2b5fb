// Names for the bare FunctionIDs of the samples: with the class cache on, each
// recorded frame gets its class and assembly names cached right after its pass,
// and the agent's questions are answered from the cache alone. The ids of a
// module that unloads are refused from then on.
#include "platform/AutoPointer.h"
#include "platform/HeldLock.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/Guids.h"
#include "runtime/MetaDataInterfaces.h"
#include "sampling/TraceProfiler.h"

namespace {

constexpr ULONG kNameUnits = 2048;

bool isNested(DWORD flags) {
    return (flags & tdVisibilityMask) >= tdNestedPublic;
}

// strcat_u16 within capacity units, the terminator included; what does not fit
// is cut off.
void appendWithin(char16_t* out, const char16_t* text, size_t capacity) {
    size_t used = strlen_u16(out);
    while (*text != 0 && used + 1 < capacity) {
        out[used++] = *text++;
    }
    if (used < capacity) {
        out[used] = 0;
    }
}

}  // namespace

HRESULT TraceProfiler::askFunctionAndAssembly(FunctionID function, ClassID& classId, ModuleID& moduleId, mdToken* token,
                                              AssemblyID& assemblyId) {
    return askAboutFunction(function, [&](ICorProfilerInfo* info) {
        const HRESULT hr = info->GetFunctionInfo(function, &classId, &moduleId, token);
        return hr == S_OK ? info->GetModuleInfo(moduleId, nullptr, 0, nullptr, nullptr, &assemblyId) : hr;
    });
}

void TraceProfiler::cacheClassInfo(FunctionID function) {
    AutoCOMPointer<ICorProfilerInfo> info(profilerInfo());
    if (info == nullptr) {
        return;
    }
    ClassID classId = 0;
    ModuleID moduleId = 0;
    mdToken methodToken = 0;
    AssemblyID assemblyId = 0;
    mdTypeDef typeDef = 0;
    HRESULT hr = askFunctionAndAssembly(function, classId, moduleId, &methodToken, assemblyId);
    if (hr == S_OK && classId != 0) {
        hr = info->GetClassIDInfo(classId, nullptr, &typeDef);
    }
    if (hr != S_OK) {
        if (logs(kWarn)) {
            log("Failed to cache functionId 0x%x. classId: 0x%x typeDef: 0x%x assemblyId: 0x%x moduleId: 0x%x HR: "
                "0x%x\n",
                function, classId, typeDef, assemblyId, moduleId, hr);
        }
        return;
    }
    if (logs(kTrace)) {
        log("Caching ClassId 0x%x for functionId: 0x%x in module 0x%x\n", classId, function, moduleId);
    }
    HeldLock held(&cacheLock);
    if (assemblyNames.count(assemblyId) == 0) {
        hr = cacheAssemblyName(info, assemblyId, function);
    }
    // A function with a class is never in the function map, so its class name
    // is looked up for each of its frames; the insert then changes nothing.
    bool wanted = (classId != 0 && classNames.count(classId) == 0) || functionNames.count(function) == 0;
    if (!wanted) {
        return;
    }
    AutoCOMPointer<IMetaDataImport> import;
    if (SUCCEEDED(hr)) {
        hr = info->GetModuleMetaData(moduleId, ofRead, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import));
    }
    if (SUCCEEDED(hr) && classId == 0) {
        hr = import->GetMethodProps(methodToken, &typeDef, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                    nullptr);
    }
    bool cached = false;
    if (SUCCEEDED(hr)) {
        char16_t name[kNameUnits] = {};
        ULONG length = 0;
        DWORD flags = 0;
        hr = import->GetTypeDefProps(typeDef, name, kNameUnits, &length, &flags, nullptr);
        if (SUCCEEDED(hr)) {
            char16_t nested[kNameUnits] = {};
            if (isNested(flags)) {
                concatEnclosingClass(typeDef, import, nested);
                appendWithin(nested, name, kNameUnits);
            }
            const char16_t* className = isNested(flags) ? nested : name;
            // A name cached before counts as cached: only a failure is reported.
            if (classId != 0) {
                classNames.emplace(classId, className);
            } else {
                functionNames.emplace(function, className);
            }
            cached = true;
        }
    }
    if (!cached && logs(kWarn)) {
        log("Failed to cache className 0x%x for functionId: 0x%x HR: 0x%x\n", classId, function, hr);
    }
}

// Under the cache lock: the name of an assembly met for the first time.
HRESULT TraceProfiler::cacheAssemblyName(ICorProfilerInfo* info, AssemblyID assemblyId, FunctionID function) {
    char16_t name[kNameUnits] = {};
    ULONG length = 0;
    HRESULT hr = info->GetAssemblyInfo(assemblyId, kNameUnits, &length, name, nullptr, nullptr);
    if (FAILED(hr)) {
        if (logs(kWarn)) {
            log("Failed to cache assembly 0x%x for functionId: 0x%x\n", assemblyId, function);
        }
        return hr;
    }
    assemblyNames.emplace(assemblyId, name);
    if (logs(kDebug)) {
        log("Cached assembly %S for functionId: 0x%x\n", name, function);
    }
    return hr;
}

void TraceProfiler::concatEnclosingClass(mdTypeDef typeDef, IMetaDataImport* import, char16_t* out) {
    DWORD flags = 0;
    if (FAILED(import->GetTypeDefProps(typeDef, nullptr, 0, nullptr, &flags, nullptr)) || !isNested(flags)) {
        return;
    }
    mdTypeDef enclosing = 0;
    char16_t name[kNameUnits] = {};
    ULONG length = 0;
    if (FAILED(import->GetNestedClassProps(typeDef, &enclosing)) ||
        FAILED(import->GetTypeDefProps(enclosing, name, kNameUnits, &length, nullptr, nullptr))) {
        return;
    }
    concatEnclosingClass(enclosing, import, out);
    appendWithin(out, name, kNameUnits);
    appendWithin(out, u"+", kNameUnits);
}

int TraceProfiler::GetClassForFunctionId(FunctionID function, char16_t* out, int size) {
    if (out == nullptr || size <= 0) {
        return 0;
    }
    ClassID classId = 0;
    ModuleID moduleId = 0;
    AssemblyID assemblyId = 0;
    const HRESULT hr = askFunctionAndAssembly(function, classId, moduleId, nullptr, assemblyId);
    if (hr != S_OK) {
        if (logs(kDebug)) {
            log("Native_GetClassForFunctionId Failed to lookup class: 0x%x or assembly: 0x%x\n", classId, assemblyId);
        }
        return 0;
    }
    HeldLock held(&cacheLock);
    forgetStaleNames();
    auto assembly = assemblyNames.find(assemblyId);
    auto className = classId != 0 ? classNames.find(classId) : functionNames.find(function);
    bool classKnown = className != (classId != 0 ? classNames.end() : functionNames.end());
    if (assembly != assemblyNames.end() && classKnown) {
        const auto limit = static_cast<size_t>(size);
        appendWithin(out, className->second.c_str(), limit);
        appendWithin(out, u", ", limit);
        appendWithin(out, assembly->second.c_str(), limit);
        if (logs(kTrace)) {
            log("Native_GetClassForFunctionId %S\n", out);
        }
        return 0;
    }
    if (assembly == assemblyNames.end() && logs(kDebug)) {
        log("Native_GetClassForFunctionId Failed to find assembly: 0x%x for function: 0x%x\n", assemblyId, function);
    }
    if (!classKnown && logs(kDebug)) {
        log("Native_GetClassForFunctionId Failed to find class: 0x%x for function: 0x%x\n", classId, function);
    }
    return 0;
}
