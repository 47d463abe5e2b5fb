// What the log shows when a method of the core library cannot be found: the
// methods of that name that the type does have, with their signatures.
#include "shim/SyntheticAgentShim.h"

#include "platform/FormattedOutput.h"
#include "platform/Text16.h"

HRESULT SyntheticAgentShim::DumpMethodsWithName(mdTypeDef type, const char16_t* name) {
    fprintf_8(log, "Dumping methods for type: 0x%x with name: %S\n", type, name);
    fflush(log);

    HCORENUM enumerator = nullptr;
    mdMethodDef methods[64];
    ULONG count = 0;
    HRESULT hr = import->EnumMethods(&enumerator, type, methods, 64, &count);
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to query methods with name: %S\n", name);
    }
    for (ULONG i = 0; SUCCEEDED(hr) && i < count; ++i) {
        char16_t found[128];
        ULONG length = 0;
        PCCOR_SIGNATURE signature = nullptr;
        ULONG signatureLength = 0;
        if (FAILED(import->GetMethodProps(methods[i], nullptr, found, 128, &length, nullptr, &signature,
                                          &signatureLength, nullptr, nullptr))) {
            continue;
        }
        if (strcmp_u16(found, name) == 0) {
            fprintf_8(log, "Method %S sig:", found);
            DumpSignature(signature, signatureLength);
            fprintf_8(log, "\n");
        }
    }
    if (enumerator != nullptr) {
        import->CloseEnum(enumerator);
    }
    return hr;
}

HRESULT SyntheticAgentShim::DumpSignature(const COR_SIGNATURE* signature, ULONG length) {
    for (ULONG i = 0; i < length; ++i) {
        fprintf_8(log, " 0x%x", signature[i]);
    }
    return S_OK;
}
