#include "rewrite/AssemblyTokenGetter.h"

#include <cstring>

#include "platform/Text16.h"

namespace {

constexpr unsigned int kNameSize = 2048;
constexpr unsigned int kReferenceBatch = 5;

}  // namespace

AssemblyTokenGetter::AssemblyTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                         const unsigned char* publicKeyToken, unsigned int length,
                                         const ASSEMBLYMETADATA* metadata)
    : BaseTokenGetter(info),
      assemblyName(assembly),
      publicKeyToken(publicKeyToken, publicKeyToken + length),
      publicKeyTokenLength(length),
      metadata(*metadata) {}

bool AssemblyTokenGetter::matchAssembly(const char16_t* name, const void* key, unsigned long keyLength) const {
    if (keyLength != publicKeyTokenLength) return false;
    if (keyLength != 0 && std::memcmp(key, publicKeyToken.data(), keyLength) != 0) return false;
    // Only the stored name's length is compared: a longer name that begins
    // with it matches too.
    return strncmp_u16(name, assemblyName.c_str(), assemblyName.size()) == 0;
}

HRESULT AssemblyTokenGetter::getToken(const ModuleMetaData& module, unsigned int* token) {
    char16_t name[kNameSize] = {};
    unsigned int found = 0;

    // The module's own assembly. The name is asked for with no room, so it
    // stays empty and only a nameless identity could match here.
    mdAssembly assembly = 0;
    HRESULT hr = module.assemblyImport->GetAssemblyFromScope(&assembly);
    const void* key = nullptr;
    ULONG keyLength = 0;
    if (SUCCEEDED(hr)) {
        hr = module.assemblyImport->GetAssemblyProps(assembly, &key, &keyLength, nullptr, name, 0, nullptr, nullptr,
                                                     nullptr);
    }
    if (SUCCEEDED(hr) && matchAssembly(name, key, keyLength)) found = assembly;

    // An existing reference.
    if (SUCCEEDED(hr) && found == 0) {
        HCORENUM enumerator = nullptr;
        mdAssemblyRef references[kReferenceBatch];
        ULONG count = 0;
        while (found == 0) {
            hr = module.assemblyImport->EnumAssemblyRefs(&enumerator, references, kReferenceBatch, &count);
            if (FAILED(hr) || count == 0) break;
            for (ULONG i = 0; i < count && found == 0 && SUCCEEDED(hr); ++i) {
                ULONG nameLength = 0;
                hr = module.assemblyImport->GetAssemblyRefProps(references[i], &key, &keyLength, name, kNameSize,
                                                                &nameLength, nullptr, nullptr, nullptr, nullptr);
                if (SUCCEEDED(hr) && matchAssembly(name, key, keyLength)) found = references[i];
            }
            if (FAILED(hr)) break;
        }
        if (enumerator != nullptr) module.assemblyImport->CloseEnum(enumerator);
    }

    // The only write: a new reference, which the walk above finds next time.
    if (SUCCEEDED(hr) && found == 0) {
        hr = module.assemblyEmit->DefineAssemblyRef(publicKeyToken.data(), publicKeyTokenLength, assemblyName.c_str(),
                                                    &metadata, nullptr, 0xFFFFFFFF, 0, &found);
    }
    if (SUCCEEDED(hr) && found == 0) hr = E_FAIL;
    if (SUCCEEDED(hr)) *token = found;
    return hr;
}
