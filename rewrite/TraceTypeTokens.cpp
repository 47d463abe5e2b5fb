// Tokens for the types that the injected code boxes, and the tests that keep
// stack-only types out of the parameter sequences.
#include <string>

#include "platform/AutoPointer.h"
#include "platform/SharedNames.h"
#include "rewrite/CorSig.h"
#include "rewrite/ITypeSpecTokenGetter.h"
#include "rewrite/Profiler.h"
#include "runtime/Guids.h"

namespace {

constexpr unsigned int kNameSize = 2048;
const char16_t kGenericNumberMessage[] = u"Values typed with a generic parameter numbered 10 or more are not traced.";
constexpr ULONG kAttributeLimit = 64;
constexpr HRESULT kBadTypeSpec = static_cast<HRESULT>(0x80131195);
constexpr ULONG kGenericParamLimit = 64;
// The generic parameter attribute of `allows ref struct`.
constexpr DWORD kAllowByRefLike = 0x0020;
using SharedNames::kIsByRefLikeAttribute;
using SharedNames::kIsReadOnlyAttribute;

}  // namespace

HRESULT Profiler::getPrimativeToken(unsigned char elementType, unsigned int* token) {
    if (elementType < ELEMENT_TYPE_BOOLEAN || elementType > ELEMENT_TYPE_R8) return E_INVALIDARG;
    static const TraceType kClasses[] = {kBoolean, kChar,   kSByte, kByte,   kInt16,  kUInt16,
                                         kInt32,   kUInt32, kInt64, kUInt64, kSingle, kDouble};
    return typeGetters[kClasses[elementType - ELEMENT_TYPE_BOOLEAN]]->getToken(current.context->getModuleID(), token);
}

// The number of the generic parameter (VAR or MVAR) that starts at index.
static HRESULT genericNumber(IMethodBlobInputStream* stream, unsigned int index, unsigned int* number) {
    unsigned int length = 0;
    AutoArrayPointer<unsigned char> copy(stream->copyLastSignature(index, &length));
    if (copy.get() == nullptr || length < 2) return E_INVALIDARG;
    ULONG value = 0;
    if (CorSigUncompressData(copy.get() + 1, length - 1, &value) == 0) return E_INVALIDARG;
    *number = value;
    return S_OK;
}

HRESULT Profiler::getParameterTypeToken(IVarTypeSpecTokenGetter* getter, IMethodBlobInputStream* stream,
                                        unsigned int index, unsigned int* token) {
    unsigned int number = 0;
    HRESULT hr = genericNumber(stream, index, &number);
    if (SUCCEEDED(hr) && number > 0xFF) hr = E_FAIL;
    if (SUCCEEDED(hr)) hr = getter->getToken(current.context->getModuleID(), static_cast<unsigned char>(number), token);
    if (FAILED(hr) && number >= IVarTypeSpecTokenGetter::kParameterLimit) lastError = kGenericNumberMessage;
    return hr;
}

// Whether the generic parameter at index may stand for a byref-like type (it
// allows ref structs); in doubt it may.
bool Profiler::mayBeByRefLike(unsigned char type, IMethodBlobInputStream* stream, unsigned int index) {
    unsigned int number = 0;
    if (FAILED(genericNumber(stream, index, &number))) return true;
    AutoCOMPointer<IMetaDataImport2> import;
    if (FAILED(current.import()->QueryInterface(IID_IMetaDataImport2, reinterpret_cast<void**>(&import)))) {
        return true;
    }
    mdToken owner = type == ELEMENT_TYPE_VAR ? current.context->getTypeDef() : current.context->getMethodDef();
    HCORENUM enumerator = nullptr;
    mdGenericParam parameters[kGenericParamLimit];
    ULONG count = 0;
    bool allows = true;
    if (SUCCEEDED(import->EnumGenericParams(&enumerator, owner, parameters, kGenericParamLimit, &count))) {
        for (ULONG i = 0; i < count; ++i) {
            ULONG sequence = 0;
            DWORD flags = 0;
            if (SUCCEEDED(import->GetGenericParamProps(parameters[i], &sequence, &flags, nullptr, nullptr, nullptr, 0,
                                                       nullptr)) &&
                sequence == number) {
                allows = (flags & kAllowByRefLike) != 0;
            }
        }
    }
    if (enumerator != nullptr) import->CloseEnum(enumerator);
    return allows;
}

HRESULT Profiler::getVarTypeToken(IMethodBlobInputStream* stream, unsigned int index, unsigned int* token) {
    return getParameterTypeToken(varGetter.get(), stream, index, token);
}

HRESULT Profiler::getMVarTypeToken(IMethodBlobInputStream* stream, unsigned int index, unsigned int* token) {
    return getParameterTypeToken(mvarGetter.get(), stream, index, token);
}

HRESULT Profiler::getGenInstToken(IMethodBlobInputStream* stream, unsigned int index, unsigned int* token) {
    unsigned int length = 0;
    AutoArrayPointer<unsigned char> copy(stream->copyLastSignature(index, &length));
    if (copy.get() == nullptr || length < 2) return E_INVALIDARG;
    // A generic class: a reference, nothing to box.
    if (copy.get()[1] != ELEMENT_TYPE_VALUETYPE) return S_FALSE;
    const unsigned char* bytes = copy.get();
    const HRESULT hr = tokenOnce(current.facts->typeSpecTokens, bytes, length, token, [&](unsigned int* asked) {
        AutoPointer<ITypeSpecTokenGetter> getter(ITypeSpecTokenGetter::newTokenGetter(info, copy.detach(), length));
        return getter.get() == nullptr ? E_OUTOFMEMORY : getter->getToken(current.context->getModuleID(), asked);
    });
    return SUCCEEDED(hr) ? S_OK : hr;
}

HRESULT Profiler::resolveTypeSpecClassToken(IMetaDataImport* import, unsigned int typeSpec, unsigned int* token) {
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG length = 0;
    HRESULT hr = import->GetTypeSpecFromToken(typeSpec, &bytes, &length);
    AutoPointer<IBlobInputStream> stream;
    if (SUCCEEDED(hr)) {
        stream = IBlobInputStream::newInstance(bytes, length);
        if (stream.get() == nullptr) hr = E_OUTOFMEMORY;
    }
    unsigned int value = ELEMENT_TYPE_MODIFIER;
    while (SUCCEEDED(hr) && (value & ELEMENT_TYPE_MODIFIER) != 0) hr = stream->readNumber(&value);
    if (FAILED(hr)) return hr;
    if (value == ELEMENT_TYPE_CLASS) return stream->readToken(token);
    if (value == ELEMENT_TYPE_GENERICINST) {
        unsigned int skipped = 0;
        hr = stream->readNumber(&skipped);
        return SUCCEEDED(hr) ? stream->readToken(token) : hr;
    }
    return kBadTypeSpec;
}

// The attributes a type's traits come from, read in one pass over its
// attributes from the last; a failing read ends the pass with what was found.
Profiler::TypeTraits Profiler::readTraits(IMetaDataImport* import, unsigned int typeDef) {
    HCORENUM enumerator = nullptr;
    mdCustomAttribute attributes[kAttributeLimit];
    ULONG count = 0;
    HRESULT hr = import->EnumCustomAttributes(&enumerator, typeDef, 0, attributes, kAttributeLimit, &count);
    TypeTraits traits;
    for (ULONG i = count; SUCCEEDED(hr) && i-- > 0 && !(traits.byRefLike && traits.readOnly);) {
        mdToken constructor = 0;
        hr = import->GetCustomAttributeProps(attributes[i], nullptr, &constructor, nullptr, nullptr);
        mdToken parent = 0;
        if (SUCCEEDED(hr)) {
            if (TypeFromToken(constructor) == mdtMethodDef) {
                hr = import->GetMethodProps(constructor, &parent, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                                            nullptr, nullptr);
            } else if (TypeFromToken(constructor) == mdtMemberRef) {
                hr = import->GetMemberRefProps(constructor, &parent, nullptr, 0, nullptr, nullptr, nullptr);
            } else {
                hr = E_UNEXPECTED;
            }
        }
        char16_t parentName[kNameSize];
        parentName[0] = 0;
        ULONG length = 0;
        if (SUCCEEDED(hr) && TypeFromToken(parent) == mdtTypeDef) {
            hr = import->GetTypeDefProps(parent, parentName, kNameSize, &length, nullptr, nullptr);
        } else if (SUCCEEDED(hr) && TypeFromToken(parent) == mdtTypeRef) {
            hr = import->GetTypeRefProps(parent, nullptr, parentName, kNameSize, &length);
        }
        if (FAILED(hr)) break;
        const std::u16string_view name(parentName);
        if (name == kIsByRefLikeAttribute) traits.byRefLike = true;
        if (name == kIsReadOnlyAttribute) traits.readOnly = true;
    }
    if (enumerator != nullptr) import->CloseEnum(enumerator);
    return traits;
}

// The definition behind a TypeDef, TypeRef or TypeSpec token, in the scope that
// defines it; false if it cannot be found.
bool Profiler::findDefinition(unsigned int token, AutoCOMPointer<IMetaDataImport>& otherScope, IMetaDataImport** scope,
                              unsigned int* definition) {
    IMetaDataImport* import = current.import();
    *scope = import;
    if (TypeFromToken(token) == mdtTypeSpec) {
        unsigned int resolved = 0;
        if (SUCCEEDED(resolveTypeSpecClassToken(import, token, &resolved))) token = resolved;
    }
    if (TypeFromToken(token) == mdtTypeRef) {
        mdTypeDef found = 0;
        if (FAILED(import->ResolveTypeRef(token, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&otherScope),
                                          &found))) {
            return false;
        }
        token = found;
        *scope = otherScope.get();
    }
    *definition = token;
    return TypeFromToken(token) == mdtTypeDef;
}

// The traits of the type behind a TypeDef, TypeRef or TypeSpec token of the
// method's module, read once a module; none if its definition cannot be found.
Profiler::TypeTraits Profiler::traitsOf(unsigned int token) {
    std::unordered_map<unsigned int, TypeTraits>& known = current.facts->typeTraits;
    if (auto found = known.find(token); found != known.end()) return found->second;
    AutoCOMPointer<IMetaDataImport> otherScope;
    IMetaDataImport* scope = nullptr;
    unsigned int definition = 0;
    if (!findDefinition(token, otherScope, &scope, &definition)) return TypeTraits{};
    const TypeTraits traits = readTraits(scope, definition);
    known.emplace(token, traits);
    return traits;
}

bool Profiler::isByRefLikeType(unsigned int token) {
    return traitsOf(token).byRefLike;
}

// Ref structs cannot be boxed, and read-only structs are left out with them.
bool Profiler::isStackOnlyType(unsigned int token) {
    const TypeTraits traits = traitsOf(token);
    return traits.byRefLike || traits.readOnly;
}
