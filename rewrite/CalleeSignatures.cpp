#include "rewrite/CalleeSignatures.h"

#include "platform/AutoPointer.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

namespace {

constexpr unsigned char kPinned = 0x45;
constexpr unsigned char kSentinel = 0x41;

}  // namespace

HRESULT CalleeSignatures::readKind(BlobInputStream& stream, Kind* kind) {
    unsigned char next = 0;
    while (SUCCEEDED(stream.peekByte(&next))) {
        if (next == ELEMENT_TYPE_CMOD_REQD || next == ELEMENT_TYPE_CMOD_OPT) {
            if (FAILED(stream.readCustomMod(nullptr, nullptr))) return E_FAIL;
        } else if (next == kPinned || next == kSentinel) {
            stream.readByte(nullptr);
        } else {
            break;
        }
    }
    unsigned int start = stream.getIndex();
    unsigned char type = 0;
    HRESULT hr = stream.readParam(&type, nullptr);
    if (FAILED(hr)) return hr;
    switch (type) {
    case ELEMENT_TYPE_STRING:
    case ELEMENT_TYPE_CLASS:
    case ELEMENT_TYPE_OBJECT:
    case ELEMENT_TYPE_SZARRAY:
    case ELEMENT_TYPE_ARRAY:
        *kind = kObject;
        break;
    case ELEMENT_TYPE_GENERICINST:
        *kind = start + 1 < stream.getLength() && stream.getBytes()[start + 1] == ELEMENT_TYPE_CLASS ? kObject : kValue;
        break;
    case ELEMENT_TYPE_VAR:
    case ELEMENT_TYPE_MVAR:
        *kind = kUnknown;
        break;
    default:
        *kind = kValue;
        break;
    }
    return S_OK;
}

CalleeSignatures::Kind CalleeSignatures::kindOf(const VerifiedCallee& callee, unsigned int argument) {
    if ((callee.objects >> argument & 1) != 0) return kObject;
    return (callee.values >> argument & 1) != 0 ? kValue : kUnknown;
}

HRESULT CalleeSignatures::read(const unsigned char* bytes, unsigned int length, VerifiedCallee* callee) {
    *callee = VerifiedCallee{};
    BlobInputStream stream(bytes, length);
    unsigned char convention = 0;
    HRESULT hr = stream.readByte(&convention);
    if (SUCCEEDED(hr) && (convention & IMAGE_CEE_CS_CALLCONV_GENERIC) != 0) hr = stream.readNumber(nullptr);
    if (SUCCEEDED(hr)) hr = stream.readNumber(&callee->parameters);
    if (FAILED(hr)) return hr;
    callee->hasThis = (convention & IMAGE_CEE_CS_CALLCONV_HASTHIS) != 0;
    callee->explicitThis = (convention & IMAGE_CEE_CS_CALLCONV_EXPLICITTHIS) != 0;
    stream.skipCustomMods();
    unsigned char returnType = 0;
    hr = stream.peekByte(&returnType);
    if (FAILED(hr)) return hr;
    callee->returns = returnType != ELEMENT_TYPE_VOID;
    Kind kind = kUnknown;
    if (callee->returns) {
        hr = readKind(stream, &kind);
        callee->result = kind;
    } else {
        stream.readByte(nullptr);
    }
    for (unsigned int i = 0; i < callee->parameters && i < VerifiedCallee::kArguments && SUCCEEDED(hr); ++i) {
        hr = readKind(stream, &kind);
        callee->objects |= uint64_t{kind == kObject} << i;
        callee->values |= uint64_t{kind == kValue} << i;
    }
    return hr;
}

HRESULT CalleeSignatures::ofToken(IMetaDataImport* import, unsigned int token, VerifiedCallee* callee) {
    if (import == nullptr) return E_FAIL;
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG length = 0;
    HRESULT hr = E_FAIL;
    switch (TypeFromToken(token)) {
    case mdtMethodDef:
        hr = import->GetMethodProps(token, nullptr, nullptr, 0, nullptr, nullptr, &bytes, &length, nullptr, nullptr);
        break;
    case mdtMemberRef:
        hr = import->GetMemberRefProps(token, nullptr, nullptr, 0, nullptr, &bytes, &length);
        break;
    case mdtSignature:
        hr = import->GetSigFromToken(token, &bytes, &length);
        break;
    case mdtMethodSpec: {
        AutoCOMPointer<IMetaDataImport2> import2;
        mdToken generic = 0;
        hr = import->QueryInterface(IID_IMetaDataImport2, reinterpret_cast<void**>(&import2));
        if (SUCCEEDED(hr)) hr = import2->GetMethodSpecProps(token, &generic, nullptr, nullptr);
        return SUCCEEDED(hr) && TypeFromToken(generic) != mdtMethodSpec ? ofToken(import, generic, callee) : E_FAIL;
    }
    default:
        return E_FAIL;
    }
    return SUCCEEDED(hr) ? read(bytes, length, callee) : hr;
}
