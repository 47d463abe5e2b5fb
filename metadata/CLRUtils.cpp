#include "metadata/CLRUtils.h"

#include "metadata/MethodDefEnumWrapper.h"
#include "metadata/TypeDefEnumWrapper.h"
#include "platform/BoundedCopy.h"
#include "platform/StringUtils.h"
#include "platform/SystemUtils.h"
#include "platform/Text16.h"
#include "platform/TextConversion.h"
#include "runtime/CorErrors.h"
#include "runtime/Guids.h"

namespace {

using MetaDataGetDispenserFunction = HRESULT (*)(REFCLSID rclsid, REFIID riid, void** ppv);

constexpr ULONG kNameSize = 2048;
constexpr ULONG kVersionSize = 128;
constexpr ULONG kTypeRefBatch = 128;
constexpr ULONG kTypeRefNameSize = 128;

// Walks the non-interface classes named className (as a leading part) and
// their non-abstract methods named methodName, handing each match to found
// until it says stop. A failing metadata call ends no walk.
template <typename Found>
void findMethods(ICorProfilerInfo* info, ModuleID moduleID, const char16_t* className, const char16_t* methodName,
                 Found found) {
    AutoCOMPointer<IMetaDataImport> import;
    if (FAILED(info->GetModuleMetaData(moduleID, ofRead, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import)))) {
        return;
    }
    bool more = true;
    TypeDefEnumWrapper types(import);
    while (more && types.HasNext()) {
        mdTypeDef type = types.Next();
        DWORD flags = 0;
        import->GetTypeDefProps(type, nullptr, 0, nullptr, &flags, nullptr);
        if ((flags & tdInterface) != 0) {
            continue;
        }
        char16_t typeName[kNameSize] = {0};
        ULONG length = 0;
        import->GetTypeDefProps(type, typeName, kNameSize, &length, nullptr, nullptr);
        if (strcmp_u16(typeName, className) != 0) {
            continue;
        }
        MethodDefEnumWrapper methods(import, type);
        bool inClass = true;
        while (more && inClass && methods.HasNext()) {
            mdMethodDef method = methods.Next();
            char16_t name[kNameSize] = {0};
            DWORD attributes = 0;
            import->GetMethodProps(method, nullptr, name, kNameSize, &length, &attributes, nullptr, nullptr, nullptr,
                                   nullptr);
            if ((attributes & mdAbstract) != 0 || strcmp_u16(name, methodName) != 0) {
                continue;
            }
            found(method, more, inClass);
        }
    }
}

}  // namespace

bool CLRUtils::IsDotnetCore(ICorProfilerInfo* info) {
    AutoCOMPointer<ICorProfilerInfo3> info3;
    if (info == nullptr || FAILED(info->QueryInterface(IID_ICorProfilerInfo3, reinterpret_cast<void**>(&info3)))) {
        return false;
    }
    COR_PRF_RUNTIME_TYPE type = COR_PRF_DESKTOP_CLR;
    HRESULT hr = info3->GetRuntimeInformation(nullptr, &type, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr);
    return SUCCEEDED(hr) && type == COR_PRF_CORE_CLR;
}

bool CLRUtils::GetCoreCLRVersion(int& major, int& minor, int& patch) {
    std::basic_string<char16_t> path;
    if (!SystemUtils::GetFullModulePath(u"libcoreclr.so", path)) {
        return false;
    }
    return GetCoreCLRVersionFromPath(path, major, minor, patch);
}

bool CLRUtils::GetCoreCLRVersionFromPath(const std::basic_string<char16_t>& libraryPath, int& major, int& minor,
                                         int& patch) {
    size_t last = libraryPath.rfind(u'/');
    if (last == std::basic_string<char16_t>::npos || last == 0) {
        return false;
    }
    size_t before = libraryPath.rfind(u'/', last - 1);
    if (before == std::basic_string<char16_t>::npos) {
        return false;
    }
    std::basic_string<char16_t> folder = libraryPath.substr(before + 1, last - before - 1);
    // The bounded copy ends the process on an overlong text: refuse it here.
    if (folder.size() >= kVersionSize) {
        return false;
    }
    char16_t version[kVersionSize];
    wcscpy_s(version, kVersionSize, folder.c_str());
    char16_t* context = nullptr;
    char16_t* majorText = StringUtils::strtok_u16(version, u".", &context);
    char16_t* minorText = majorText != nullptr ? StringUtils::strtok_u16(context, u".", &context) : nullptr;
    char16_t* patchText = minorText != nullptr ? context : nullptr;
    if (majorText == nullptr || minorText == nullptr || patchText == nullptr) {
        return false;
    }
    major = atoi_u16(majorText);
    minor = atoi_u16(minorText);
    patch = atoi_u16(patchText);
    return true;
}

bool CLRUtils::GetManagedModulePath(ICorProfilerInfo* info, std::basic_string<char16_t>& path) {
    std::vector<std::basic_string<char16_t>> args;
    SystemUtils::GetProgramArguments(args);
    return GetManagedModulePath(info, args, path);
}

bool CLRUtils::GetManagedModulePath(ICorProfilerInfo* info, const std::vector<std::basic_string<char16_t>>& args,
                                    std::basic_string<char16_t>& path) {
    if (args.empty()) {
        return false;
    }
    const std::basic_string<char16_t>& first = args[0];
    size_t slash = first.rfind(u'/');
    std::basic_string<char16_t> host = slash == std::basic_string<char16_t>::npos ? first : first.substr(slash + 1);

    if (!IsDotnetCore(info)) {
        return SystemUtils::GetFullModulePath(host.c_str(), path);
    }
    if (host == u"dotnet") {
        for (size_t i = 1; i < args.size(); ++i) {
            // Unsigned on purpose: a three-unit argument has no ".dll", and
            // not-found equals its length minus four after the wrap.
            if (args[i].rfind(u".dll") == args[i].size() - 4) {
                path = args[i];
                return true;
            }
        }
        return false;
    }
    // An application host: the program is the .dll beside it.
    std::basic_string<char16_t> found;
    if (!SystemUtils::GetFullModulePath(host.c_str(), found)) {
        return false;
    }
    size_t exe = found.rfind(u".exe");
    if (exe != std::basic_string<char16_t>::npos) {
        found.resize(exe);
    }
    path = found + u".dll";
    return true;
}

void CLRUtils::GetMetaDataDispenser(ICorProfilerInfo*, AutoCOMPointer<IMetaDataDispenserEx>& dispenser) {
    auto entry = reinterpret_cast<MetaDataGetDispenserFunction>(
        SystemUtils::LookupProcAddress("coreclr.so", "MetaDataGetDispenser"));
    if (entry == nullptr) {
        return;
    }
    IMetaDataDispenserEx* result = nullptr;
    if (entry(CLSID_CorMetaDataDispenser, IID_IMetaDataDispenserEx, reinterpret_cast<void**>(&result)) == S_OK) {
        dispenser = result;
    }
}

bool CLRUtils::AssemblyReferencesNamespace(ICorProfilerInfo* info, const std::basic_string<char16_t>& assemblyPath,
                                           const std::basic_string<char16_t>& nameSpace) {
    AutoCOMPointer<IMetaDataDispenserEx> dispenser;
    GetMetaDataDispenser(info, dispenser);
    if (dispenser.get() == nullptr) {
        return false;
    }
    AutoCOMPointer<IMetaDataImport> import;
    // The runtime opens the file: the bytes of its name are UTF-8.
    if (FAILED(dispenser->OpenScope(Utf16FromUtf8(assemblyPath.c_str()).c_str(), ofRead, IID_IMetaDataImport,
                                    reinterpret_cast<IUnknown**>(&import)))) {
        return false;
    }
    // A namespace that cannot fit the name buffer is never a prefix in it.
    const size_t prefix = nameSpace.size();
    bool found = false;
    HCORENUM enumerator = nullptr;
    mdTypeRef refs[kTypeRefBatch];
    ULONG count = 0;
    while (!found && SUCCEEDED(import->EnumTypeRefs(&enumerator, refs, kTypeRefBatch, &count)) && count > 0) {
        for (ULONG i = 0; i < count && !found; ++i) {
            char16_t name[kTypeRefNameSize] = {0};
            ULONG length = 0;
            HRESULT hr = import->GetTypeRefProps(refs[i], nullptr, name, kTypeRefNameSize, &length);
            found = SUCCEEDED(hr) && length > prefix && prefix < kTypeRefNameSize &&
                    strncmp_u16(name, nameSpace.c_str(), prefix) == 0;
        }
    }
    if (enumerator != nullptr) {
        import->CloseEnum(enumerator);
    }
    return found;
}

mdMethodDef CLRUtils::GetMethodDefTokenFromModule(ICorProfilerInfo* info, ModuleID moduleID,
                                                  const char16_t* className, const char16_t* methodName) {
    mdMethodDef result = 0;
    findMethods(info, moduleID, className, methodName, [&](mdMethodDef method, bool& more, bool&) {
        result = method;
        more = false;
    });
    return result;
}

unsigned int CLRUtils::GetMethodDefTokensFromModule(ICorProfilerInfo* info, ModuleID moduleID,
                                                    const char16_t* className, const char16_t* methodName,
                                                    unsigned int* tokens, unsigned long limit) {
    for (unsigned long i = 0; i < limit; ++i) {
        tokens[i] = 0;
    }
    unsigned int written = 0;
    if (limit == 0) {
        return 0;
    }
    findMethods(info, moduleID, className, methodName, [&](mdMethodDef method, bool&, bool& inClass) {
        // A full list ends the walk over each class; the types are still
        // walked to their end, but nothing more is written.
        if (written < limit) {
            tokens[written++] = method;
        }
        inClass = written < limit;
    });
    return written;
}
