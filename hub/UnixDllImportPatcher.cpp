#include "hub/UnixDllImportPatcher.h"

#include "platform/Environment.h"
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/TextConversion.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

namespace {

// The agent's classes that declare native calls into this library.
const char16_t* const kPatchedClasses[] = {
    u"com.tarn.harrowlite.agent.ReJITUtils",
    u"com.tarn.harrowlite.agent.profiling.TraceProfiler",
    SharedNames::kPreAgentShimClass,
    u"com.tarn.harrowlite.agent.trace.hc2.CpuUsageReporter",
    u"com.tarn.compat.AsyncUtils",
};
constexpr ULONG kMethodLimit = 128;
constexpr ULONG kImportNameUnits = 256;

}  // namespace

UnixDllImportPatcher::UnixDllImportPatcher(ICorProfilerInfo* info, ModuleID module, FILE* log)
    : info(info), module(module), log(log) {}

HRESULT UnixDllImportPatcher::PatchDllImports() {
    HRESULT hr = S_OK;
    if (emit == nullptr) {
        hr = info->GetModuleMetaData(module, ofWrite, IID_IMetaDataEmit, reinterpret_cast<IUnknown**>(&emit));
        if (FAILED(hr)) {
            return hr;
        }
    }
    if (import == nullptr) {
        hr = info->GetModuleMetaData(module, ofRead, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import));
        if (FAILED(hr)) {
            return hr;
        }
    }
    if (profilerPath == nullptr) {
        profilerPath = _wgetenv(u"CORECLR_PROFILER_PATH");
        if (profilerPath == nullptr) {
            profilerPath = _wgetenv(u"CORECLR_PROFILER_PATH_64");
        }
        if (profilerPath == nullptr) {
            return S_FALSE;
        }
    }
    if (moduleReference == 0) {
        // The runtime loads the library by this name: the bytes of the path are UTF-8.
        hr = emit->DefineModuleRef(Utf16FromUtf8(profilerPath).c_str(), &moduleReference);
        if (FAILED(hr)) {
            return hr;
        }
    }
    for (const char16_t* className : kPatchedClasses) {
        (void)PatchDllImportsForClass(className);  // each class is patched on its own
    }
    return hr;
}

// Fails for a method that is no P/Invoke, which the caller then passes over.
HRESULT UnixDllImportPatcher::patchMethod(mdMethodDef method, const char16_t* className) {
    DWORD flags = 0;
    char16_t importName[kImportNameUnits] = {};
    ULONG length = 0;
    mdModuleRef original = 0;
    HRESULT hr = import->GetPinvokeMap(method, &flags, importName, kImportNameUnits, &length, &original);
    if (SUCCEEDED(hr)) {
        hr = emit->SetPinvokeMap(method, flags, importName, moduleReference);
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to set PInvoke mapping for %S.%S\n", className, importName);
        }
    }
    return hr;
}

HRESULT UnixDllImportPatcher::PatchDllImportsForClass(const char16_t* className) {
    mdTypeDef type = 0;
    HRESULT hr = import->FindTypeDefByName(className, 0, &type);
    if (FAILED(hr)) {
        return hr;
    }
    HCORENUM enumerator = nullptr;
    mdMethodDef methods[kMethodLimit];
    ULONG count = 0;
    // Once: only the first 128 methods of the class are looked at.
    hr = import->EnumMethods(&enumerator, type, methods, kMethodLimit, &count);
    if (SUCCEEDED(hr)) {
        for (ULONG i = 0; i < count; ++i) {
            hr = patchMethod(methods[i], className);
        }
    }
    if (enumerator != nullptr) {
        import->CloseEnum(enumerator);
    }
    return hr;
}
