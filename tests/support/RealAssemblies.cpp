#include "RealAssemblies.h"

#include <filesystem>
#include <string_view>

#include "offline/HostedRuntime.h"
#include "runtime/CorErrors.h"
#include "runtime/Guids.h"

std::string RealAssemblies::coreLibPath() {
    return frameworkAssembly("System.Private.CoreLib.dll");
}

std::string RealAssemblies::frameworkAssembly(const std::string& fileName) {
    return HostedRuntime::instance().frameworkDir() + fileName;
}

std::string RealAssemblies::aspNetCoreAssembly(const std::string& fileName) {
    // The ASP.NET Core framework of the same version sits beside the core one.
    std::filesystem::path core(HostedRuntime::instance().frameworkDir());
    std::string version = core.parent_path().filename().string();
    return core.parent_path().parent_path().parent_path().string() + "/Microsoft.AspNetCore.App/" + version + "/" +
           fileName;
}

std::string RealAssemblies::testAsset(const std::string& name) {
    return std::string(TARN_TEST_ASSETS_DIR) + "/" + name + "/" + name + ".dll";
}

AutoCOMPointer<IMetaDataImport> RealAssemblies::open(const std::string& path) {
    AutoCOMPointer<IMetaDataImport> import;
    AutoCOMPointer<IMetaDataDispenserEx> dispenser = HostedRuntime::instance().dispenser();
    if (dispenser.get() != nullptr) {
        std::u16string widePath = widen(path);
        dispenser->OpenScope(widePath.c_str(), ofRead, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import));
    }
    return import;
}

mdTypeDef RealAssemblies::findType(IMetaDataImport* import, const char16_t* name, mdTypeDef enclosing) {
    mdTypeDef token = 0;
    return SUCCEEDED(import->FindTypeDefByName(name, enclosing, &token)) ? token : 0;
}

mdMethodDef RealAssemblies::findMethod(IMetaDataImport* import, mdTypeDef type, const char16_t* name, int parameters) {
    HCORENUM enumerator = nullptr;
    mdMethodDef tokens[16];
    ULONG count = 0;
    import->EnumMethodsWithName(&enumerator, type, name, tokens, 16, &count);
    import->CloseEnum(enumerator);
    for (ULONG i = 0; i < count; ++i) {
        if (parameters < 0 || signatureOf(import, tokens[i])[1] == parameters) return tokens[i];
    }
    return 0;
}

std::span<const unsigned char> RealAssemblies::signatureOf(IMetaDataImport* import, mdMethodDef method) {
    PCCOR_SIGNATURE signature = nullptr;
    ULONG length = 0;
    import->GetMethodProps(method, nullptr, nullptr, 0, nullptr, nullptr, &signature, &length, nullptr, nullptr);
    return {signature, length};
}

std::string RealAssemblies::nameOf(IMetaDataImport* import, mdToken member) {
    char16_t name[1024] = {};
    ULONG length = 0;
    if (TypeFromToken(member) == mdtMemberRef)
        import->GetMemberRefProps(member, nullptr, name, 1024, &length, nullptr, nullptr);
    else
        import->GetMethodProps(member, nullptr, name, 1024, &length, nullptr, nullptr, nullptr, nullptr, nullptr);
    return narrow(name);
}

mdTypeDef RealAssemblies::findNestedType(IMetaDataImport* import, std::initializer_list<const char16_t*> path) {
    mdTypeDef type = 0;
    for (const char16_t* name : path) type = findType(import, name, type);
    return type;
}

mdTypeRef RealAssemblies::findTypeRef(IMetaDataImport* import, const char16_t* name) {
    HCORENUM enumerator = nullptr;
    mdTypeRef ref = 0, found = 0;
    ULONG count = 0, length = 0;
    char16_t text[1024];
    while (found == 0 && SUCCEEDED(import->EnumTypeRefs(&enumerator, &ref, 1, &count)) && count > 0) {
        if (SUCCEEDED(import->GetTypeRefProps(ref, nullptr, text, 1024, &length)) &&
            std::u16string_view(text) == name) {
            found = ref;
        }
    }
    if (enumerator != nullptr) import->CloseEnum(enumerator);
    return found;
}

std::u16string RealAssemblies::widen(const std::string& text) {
    return std::u16string(text.begin(), text.end());
}

std::string RealAssemblies::narrow(const char16_t* text) {
    const std::u16string_view view = text != nullptr ? text : u"";
    return std::string(view.begin(), view.end());
}
