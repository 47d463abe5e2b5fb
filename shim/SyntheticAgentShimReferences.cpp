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

// The module's reference to a type of the core library, or to a member of it
// when a member name is given: what the module already has, else defined.
HRESULT refer(ICorProfilerInfo* info, IMetaDataImport* corlib, bool dotnetCore, ModuleID module, mdTypeDef type,
              const char16_t* memberName, const ShimSignature& signature, unsigned int* token) {
    char16_t className[kTypeNameSize] = {};
    ULONG length = 0;
    HRESULT hr = corlib->GetTypeDefProps(type, className, kTypeNameSize, &length, nullptr, nullptr);
    if (FAILED(hr)) return hr;
    const AssemblyIdentity& core =
        dotnetCore ? AssemblyIdentities::kCoreCLRLibrary : AssemblyIdentities::kDesktopLibrary;
    const ASSEMBLYMETADATA version = core.metadata();
    if (memberName == nullptr) {
        AutoPointer<ITypeTokenGetter> getter(
            ITypeTokenGetter::newTokenGetter(info, core.name, core.token, sizeof(core.token), &version, className));
        return getter.get() == nullptr ? E_OUTOFMEMORY : getter->getToken(module, token);
    }
    AutoPointer<IMemberTokenGetter> getter(
        IMemberTokenGetter::newTokenGetter(info, core.name, core.token, sizeof(core.token), &version, className,
                                           memberName, signature.bytes(), signature.length()));
    return getter.get() == nullptr ? E_OUTOFMEMORY : getter->getToken(module, token);
}

}  // namespace

mdToken SyntheticAgentShim::local(mdTypeDef corlibType) {
    if (module == coreLibrary) return corlibType;
    if (auto known = localTypes.find(corlibType); known != localTypes.end()) return known->second;
    unsigned int token = 0;
    const HRESULT hr = refer(info, import, dotnetCore, module, corlibType, nullptr, ShimSignature(), &token);
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
    const ShimSignature mine = signature.rebound([this](mdToken type) { return local(type); });
    unsigned int token = 0;
    hr = refer(info, import, dotnetCore, module, corlibType, name, mine, &token);
    if (SUCCEEDED(hr)) *outMethod = token;
    return referenceFailed ? E_FAIL : hr;
}
