// How a shim outside the core library names the core library's types and
// members: through an assembly reference, type references and member
// references of its own module, each checked against the core library first,
// so that a member that the runtime lacks fails the definition rather than
// the program's first trace call.
#include <algorithm>

#include "platform/AutoPointer.h"
#include "platform/FormattedOutput.h"
#include "rewrite/AssemblyIdentity.h"
#include "rewrite/IMemberTokenGetter.h"
#include "rewrite/ITypeTokenGetter.h"
#include "shim/SyntheticAgentShim.h"

namespace {

constexpr ULONG kTypeNameSize = 256;

constexpr ULONG kOverloadBatch = 16;
constexpr HRESULT kRecordNotFound = static_cast<HRESULT>(0x80131130);

// The method of the type with that name and signature. FindMethod would hash
// every member of the core library at its first call, milliseconds of every
// start-up; a type has few methods of one name.
HRESULT findInType(IMetaDataImport* import, mdTypeDef type, const char16_t* name, const ShimSignature& signature,
                   mdMethodDef* found) {
    HCORENUM enumerator = nullptr;
    mdMethodDef methods[kOverloadBatch];
    ULONG count = 0;
    HRESULT hr = S_OK;
    *found = 0;
    while (*found == 0 &&
           SUCCEEDED(hr = import->EnumMethodsWithName(&enumerator, type, name, methods, kOverloadBatch, &count)) &&
           count > 0) {
        for (ULONG i = 0; i < count && *found == 0; ++i) {
            PCCOR_SIGNATURE bytes = nullptr;
            ULONG length = 0;
            if (SUCCEEDED(import->GetMethodProps(methods[i], nullptr, nullptr, 0, nullptr, nullptr, &bytes, &length,
                                                 nullptr, nullptr)) &&
                length == signature.length() && std::equal(bytes, bytes + length, signature.bytes())) {
                *found = methods[i];
            }
        }
    }
    if (enumerator != nullptr) import->CloseEnum(enumerator);
    if (FAILED(hr)) return hr;
    return *found != 0 ? S_OK : kRecordNotFound;
}

const AssemblyIdentity& coreLibraryIdentity(bool dotnetCore) {
    return dotnetCore ? AssemblyIdentities::kCoreCLRLibrary : AssemblyIdentities::kDesktopLibrary;
}

}  // namespace

mdToken SyntheticAgentShim::local(mdTypeDef corlibType) {
    if (module == coreLibrary) return corlibType;
    if (auto known = localTypes.find(corlibType); known != localTypes.end()) return known->second;
    char16_t name[kTypeNameSize] = {};
    ULONG length = 0;
    unsigned int token = 0;
    HRESULT hr = import->GetTypeDefProps(corlibType, name, kTypeNameSize, &length, nullptr, nullptr);
    if (SUCCEEDED(hr)) {
        const AssemblyIdentity& core = coreLibraryIdentity(dotnetCore);
        const ASSEMBLYMETADATA version = core.metadata();
        AutoPointer<ITypeTokenGetter> getter(
            ITypeTokenGetter::newTokenGetter(info, core.name, core.token, sizeof(core.token), &version, name));
        hr = getter.get() == nullptr ? E_OUTOFMEMORY : getter->getToken(module, &token);
    }
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to refer to the core library's type 0x%x: 0x%x\n", corlibType, hr);
        referenceFailed = true;
        return 0;
    }
    localTypes.emplace(corlibType, token);
    return token;
}

HRESULT SyntheticAgentShim::findMethod(mdTypeDef corlibType, const char16_t* name, const ShimSignature& signature,
                                       mdToken* outMethod) {
    mdMethodDef found = 0;
    HRESULT hr = findInType(import, corlibType, name, signature, &found);
    if (FAILED(hr) || module == coreLibrary) {
        if (SUCCEEDED(hr)) *outMethod = found;
        return hr;
    }
    char16_t className[kTypeNameSize] = {};
    ULONG length = 0;
    hr = import->GetTypeDefProps(corlibType, className, kTypeNameSize, &length, nullptr, nullptr);
    if (FAILED(hr)) return hr;
    const ShimSignature mine = signature.rebound([this](mdToken type) { return local(type); });
    const AssemblyIdentity& core = coreLibraryIdentity(dotnetCore);
    const ASSEMBLYMETADATA version = core.metadata();
    AutoPointer<IMemberTokenGetter> getter(IMemberTokenGetter::newTokenGetter(
        info, core.name, core.token, sizeof(core.token), &version, className, name, mine.bytes(), mine.length()));
    unsigned int token = 0;
    hr = getter.get() == nullptr ? E_OUTOFMEMORY : getter->getToken(module, &token);
    if (SUCCEEDED(hr)) *outMethod = token;
    return referenceFailed ? E_FAIL : hr;
}
