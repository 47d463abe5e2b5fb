#include "shim/CoreLibraryLookups.h"

#include <algorithm>

#include "platform/HeldLock.h"

namespace {

constexpr ULONG kOverloadBatch = 16;

// FindMethod would hash every member of the core library at its first call,
// milliseconds of every start-up; a type has few methods of one name.
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
    return *found != 0 ? S_OK : CLDB_E_RECORD_NOTFOUND;
}

}  // namespace

CoreLibraryLookups::CoreLibraryLookups() {
    InitializeCriticalSection(&lock);
}

CoreLibraryLookups::~CoreLibraryLookups() {
    DeleteCriticalSection(&lock);
}

HRESULT CoreLibraryLookups::findType(IMetaDataImport* coreLibrary, const char16_t* name, mdTypeDef* type) {
    HeldLock held(&lock);
    auto [known, added] = types.try_emplace(name);
    if (added) known->second.first = coreLibrary->FindTypeDefByName(name, mdTypeDefNil, &known->second.second);
    *type = known->second.second;
    return known->second.first;
}

HRESULT CoreLibraryLookups::findMethod(IMetaDataImport* coreLibrary, mdTypeDef type, const char16_t* name,
                                       const ShimSignature& signature, mdMethodDef* method) {
    std::u16string key;
    key.reserve(4 + signature.length() + std::char_traits<char16_t>::length(name));
    key.push_back(static_cast<char16_t>(type >> 16));
    key.push_back(static_cast<char16_t>(type));
    key.push_back(static_cast<char16_t>(signature.length()));
    key.append(signature.bytes(), signature.bytes() + signature.length());
    key.append(name);
    HeldLock held(&lock);
    auto [known, added] = methods.try_emplace(std::move(key));
    if (added) known->second.first = findInType(coreLibrary, type, name, signature, &known->second.second);
    *method = known->second.second;
    return known->second.first;
}
