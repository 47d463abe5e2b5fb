// The set-up stages of instrumentMethod: the method in hand, its signature
// with the extended local signature, and the trace functions' tokens in its
// module.
#include <memory>

#include "platform/CoreCLRPAL.h"
#include "platform/SharedNames.h"
#include "rewrite/IBlobOutputStream.h"
#include "rewrite/Profiler.h"
#include "rewrite/TracePath.h"
#include "runtime/Guids.h"

namespace {

const char16_t kNativeIntegerMessage[] = u"Native integer types are not supported.";
const char16_t kByRefReturnMessage[] = u"ByRef and TypedReference return types are not supported.";
const char16_t kByRefLikeThisMessage[] = u"Methods of byref-like types are not traced.";
const char16_t kTracePathMessage[] = u"Code that the trace calls run through is not traced.";
const char16_t kNoShimMessage[] = u"The method's module has no trace shim.";

// A method that returns a managed pointer or a typed reference cannot park its
// result in a local of the pointed-to type and hand it back: such a body would
// return a value where the caller expects an address. These methods keep their
// own body.
HRESULT refuseByRefReturn(IMethodBlobInputStream* stream) {
    stream->shiftToRetType();
    stream->skipCustomMods();
    unsigned char next = 0;
    HRESULT hr = stream->peekByte(&next);
    if (SUCCEEDED(hr) && (next == ELEMENT_TYPE_BYREF || next == ELEMENT_TYPE_TYPEDBYREF)) {
        hr = E_FAIL;
    }
    return hr;
}

bool sameText(const char16_t* a, const char16_t* b) {
    return a != nullptr && b != nullptr && std::u16string_view(a) == std::u16string_view(b);
}

}  // namespace

// Whether the method's class lies on the trace calls' own path, from its
// names, read once a class.
HRESULT Profiler::readClass(IMetaDataContext* context, ModuleFacts& facts, bool* onTracePath) {
    if (auto known = facts.onTracePath.find(context->getTypeDef()); known != facts.onTracePath.end()) {
        *onTracePath = known->second;
        return S_OK;
    }
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    const HRESULT hr = context->getClassName(&assembly, &className);
    if (FAILED(hr)) return hr;
    facts.coreLibrary = sameText(assembly, coreLibraryName);
    *onTracePath = TracePath::contains(assembly, className, facts.coreLibrary);
    facts.onTracePath.emplace(context->getTypeDef(), *onTracePath);
    return S_OK;
}

HRESULT Profiler::updateContext(IMetaDataContext* newContext) {
    ModuleFacts* facts = &modules[newContext->getModuleID()];
    bool onTracePath = false;
    HRESULT hr = readClass(newContext, *facts, &onTracePath);
    if (SUCCEEDED(hr) && onTracePath) {
        lastError = kTracePathMessage;
        hr = E_FAIL;
    }

    LPCBYTE body = nullptr;
    ULONG bodySize = 0;
    if (SUCCEEDED(hr))
        hr = info->GetILFunctionBody(newContext->getModuleID(), newContext->getMethodDef(), &body, &bodySize);
    if (SUCCEEDED(hr)) {
        // Only the first sight is the method's own body; the runtime's is ours
        // once the method was rewritten at its first compile.
        if (keepingOriginals) {
            body = facts->originalBodies.try_emplace(newContext->getMethodDef(), body, body + bodySize)
                       .first->second.data();
        }
        if (facts->import.get() == nullptr) {
            hr = info->GetModuleMetaData(newContext->getModuleID(), ofRead, IID_IMetaDataImport,
                                         reinterpret_cast<IUnknown**>(&facts->import));
        }
    }
    AutoPointer<IMethodBuffer> newBuffer;
    if (SUCCEEDED(hr)) {
        newBuffer = IMethodBuffer::newInstance(body);
        if (newBuffer.get() == nullptr) hr = E_OUTOFMEMORY;
    }
    // The builder of the last method serves again, with the room it grew.
    AutoPointer<IMethodBuilder> newBuilder;
    if (SUCCEEDED(hr)) {
        newBuilder = std::move(current.builder);
        if (newBuilder.get() != nullptr) newBuilder->clear();
        if (newBuilder.get() == nullptr) newBuilder = IMethodBuilder::newInstance();
        if (newBuilder.get() == nullptr) hr = E_OUTOFMEMORY;
    }
    if (SUCCEEDED(hr)) {
        current = MethodRewrite{};
        current.context = newContext;
        current.facts = facts;
        current.isCoreLibrary = facts->coreLibrary;
        current.builder = std::move(newBuilder);
        current.buffer = std::move(newBuffer);
    }
    return hr;
}

HRESULT Profiler::updateSignatures() {
    IMetaDataImport* import = current.import();
    PCCOR_SIGNATURE bytes = nullptr;
    ULONG length = 0;
    HRESULT hr = import->GetMethodProps(current.context->getMethodDef(), nullptr, nullptr, 0, nullptr, nullptr, &bytes,
                                        &length, nullptr, nullptr);
    AutoPointer<IMethodBlobInputStream> stream;
    if (SUCCEEDED(hr)) {
        stream = IMethodBlobInputStream::newInstance(bytes, length);
        if (stream.get() == nullptr) hr = E_OUTOFMEMORY;
    }

    unsigned char flags = 0;
    if (SUCCEEDED(hr)) {
        stream->shiftToFlags();
        hr = stream->readByte(&flags);
    }
    unsigned char newReturnType = 0;
    unsigned int newReturnToken = 0;
    bool reported = true;
    if (SUCCEEDED(hr)) {
        hr = refuseByRefReturn(stream.get());
        if (hr == E_FAIL) lastError = kByRefReturnMessage;
    }
    if (SUCCEEDED(hr)) {
        hr = readReturnType(stream.get(), &newReturnType, &newReturnToken, &reported);
    }
    unsigned int newParamCount = 0;
    if (SUCCEEDED(hr)) {
        stream->shiftToParamCount();
        hr = stream->readNumber(&newParamCount);
    }
    bool newHasReturn = newReturnType != ELEMENT_TYPE_VOID;

    bool newIsValueType = false;
    if (SUCCEEDED(hr)) {
        hr = checkValueTypeOwner(flags, &newIsValueType);
    }

    unsigned int newLocalSigToken = 0;
    unsigned int count = 0;
    AutoPointer<IBlobOutputStream> localSignature;
    if (SUCCEEDED(hr)) {
        hr = buildLocalSignature(stream.get(), newHasReturn, localSignature, &newLocalSigToken, &count);
    }
    if (SUCCEEDED(hr)) {
        current.signature = std::move(stream);
        current.hasThis = (flags & IMAGE_CEE_CS_CALLCONV_HASTHIS) != 0;
        current.returnType = newReturnType;
        current.returnToken = newReturnToken;
        current.paramCount = newParamCount;
        current.hasReturn = newHasReturn;
        current.resultReported = reported;
        current.isValueType = newIsValueType;
        current.localSigToken = newLocalSigToken;
        current.localSignature = std::move(localSignature);
        current.localCount = count;
        current.resultLocal = count - 2;
        current.traceLocal = count - 1;
    }
    return hr;
}

// The result's type and the token that boxes it, and whether the agent can be
// given the result at all (pointers and byref-like values cannot).
HRESULT Profiler::readReturnType(IMethodBlobInputStream* stream, unsigned char* type, unsigned int* token,
                                 bool* reported) {
    stream->shiftToRetType();
    stream->skipCustomMods();
    const unsigned int returnIndex = stream->getIndex();
    HRESULT hr = stream->readRetType(type, token);
    if (FAILED(hr)) return hr;
    switch (*type) {
    case ELEMENT_TYPE_I:
    case ELEMENT_TYPE_U:
        lastError = kNativeIntegerMessage;
        hr = E_FAIL;
        break;
    case ELEMENT_TYPE_VAR:
        hr = getVarTypeToken(stream, returnIndex, token);
        *reported = !mayBeByRefLike(*type, stream, returnIndex);
        break;
    case ELEMENT_TYPE_MVAR:
        hr = getMVarTypeToken(stream, returnIndex, token);
        *reported = !mayBeByRefLike(*type, stream, returnIndex);
        break;
    case ELEMENT_TYPE_GENERICINST:
        hr = getGenInstToken(stream, returnIndex, token);
        if (hr == S_FALSE) *token = 0;
        *reported = *token == 0 || !isByRefLikeType(*token);
        break;
    case ELEMENT_TYPE_VALUETYPE:
        *reported = !isByRefLikeType(*token);
        break;
    case ELEMENT_TYPE_PTR:
    case ELEMENT_TYPE_FNPTR:
        *reported = false;
        break;
    default:
        break;
    }
    return hr;
}

// Whether the method's class is a value type; an instance method of a
// byref-like one is refused, as its this has no boxed copy.
HRESULT Profiler::checkValueTypeOwner(unsigned char flags, bool* isValueTypeOwner) {
    char16_t* parentAssembly = nullptr;
    char16_t* parentClass = nullptr;
    if (FAILED(current.context->getParentName(&parentAssembly, &parentClass)) ||
        !(sameText(parentClass, SharedNames::kValueType) || sameText(parentClass, u"System.Enum"))) {
        return S_OK;
    }
    // System.Enum extends System.ValueType and is yet a class: its `this` is a
    // reference, to be handed over as it is.
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    if (current.isCoreLibrary && SUCCEEDED(current.context->getClassName(&assembly, &className)) &&
        sameText(className, u"System.Enum")) {
        return S_OK;
    }
    HRESULT hr = S_OK;
    *isValueTypeOwner = true;
    if ((flags & IMAGE_CEE_CS_CALLCONV_HASTHIS) != 0 && isByRefLikeType(current.context->getTypeDef())) {
        // Such a value lives on the stack only: it has no boxed copy for the agent.
        lastError = kByRefLikeThisMessage;
        hr = E_FAIL;
    }
    if (controller != nullptr && controller->shouldLogUninstrumentedMethods() == 0 && log != nullptr) {
        fprintf_8(log, "Parent Class is ValueType @ [%S]%S\n", parentAssembly, parentClass);
    }
    return hr;
}

// The method's locals, unchanged, then the result local (when there is a
// result) and the trace local.
HRESULT Profiler::buildLocalSignature(IMethodBlobInputStream* stream, bool hasResult,
                                      AutoPointer<IBlobOutputStream>& blob, unsigned int* sigToken,
                                      unsigned int* count) {
    blob = IBlobOutputStream::newInstance();
    if (blob.get() == nullptr) return E_OUTOFMEMORY;
    unsigned int added = hasResult ? 2 : 1;
    HRESULT hr = blob->writeByte(IMAGE_CEE_CS_CALLCONV_LOCAL_SIG);

    IMetaDataImport* import = current.import();
    unsigned int incomingToken = current.buffer->isTinyHeader() ? 0 : current.buffer->getHeader()->Fat.LocalVarSigTok;
    if (SUCCEEDED(hr) && incomingToken != 0) {
        PCCOR_SIGNATURE bytes = nullptr;
        ULONG length = 0;
        hr = import->GetSigFromToken(incomingToken, &bytes, &length);
        AutoPointer<IBlobInputStream> incoming;
        if (SUCCEEDED(hr)) {
            incoming = IBlobInputStream::newInstance(bytes, length);
            if (incoming.get() == nullptr) hr = E_OUTOFMEMORY;
        }
        unsigned char callingConvention = 0;
        unsigned int incomingCount = 0;
        if (SUCCEEDED(hr)) hr = incoming->readByte(&callingConvention);
        if (SUCCEEDED(hr)) hr = incoming->readNumber(&incomingCount);
        if (SUCCEEDED(hr)) {
            *count = incomingCount + added;
            hr = blob->writeNumber(*count);
        }
        unsigned char value = 0;
        while (SUCCEEDED(hr) && incoming->getIndex() < incoming->getLength()) {
            hr = incoming->readByte(&value);
            if (SUCCEEDED(hr)) hr = blob->writeByte(value);
        }
    } else if (SUCCEEDED(hr)) {
        *count = added;
        hr = blob->writeNumber(*count);
    }

    if (SUCCEEDED(hr) && hasResult) {
        // The return type with its tokens; byref and typed-reference returns were
        // refused when the signature was read.
        stream->shiftToRetType();
        stream->skipCustomMods();
        hr = blob->writeType(stream);
    }
    if (SUCCEEDED(hr)) hr = blob->writeByte(ELEMENT_TYPE_I4);
    if (FAILED(hr)) return hr;

    return tokenOnce(current.facts->localSignatureTokens, blob->getBytes(), blob->getLength(), sigToken,
                     [&](unsigned int* token) {
                         AutoCOMPointer<IMetaDataEmit> emit;
                         HRESULT asked = import->QueryInterface(IID_IMetaDataEmit, reinterpret_cast<void**>(&emit));
                         if (SUCCEEDED(asked))
                             asked = emit->GetTokenFromSig(blob->getBytes(), blob->getLength(), token);
                         return asked;
                     });
}

HRESULT Profiler::updateTokens() {
    unsigned int tokens[kTraceTokenCount] = {};
    HRESULT hr = S_OK;
    // The desktop core library calls the forwarders its hijack defined.
    const bool forwarded = current.isCoreLibrary && !isDotnetCore;
    const ModuleID module = current.context->getModuleID();
    const HRESULT placed = defineModuleShim != nullptr && !forwarded ? defineModuleShim(module) : S_FALSE;
    if (FAILED(placed)) {
        lastError = kNoShimMessage;
        return E_FAIL;
    }
    const bool ownShim = placed == S_OK;
    auto resolve = [&](TraceMember member, TraceToken place) {
        if (forwarded) {
            tokens[place] = hijackTokens[member];
        } else if (SUCCEEDED(hr)) {
            hr = (ownShim ? ownMemberGetters : memberGetters)[member]->getToken(module, &tokens[place]);
        }
    };
    resolve(current.isCoreLibrary && useSyntheticShim && !forwarded ? kCorInitTrace : kInitTrace, kInitToken);
    resolve(current.hasThis ? kLoadTraceObject : kLoadTrace, kLoadToken);
    if (current.hasThis && current.isValueType) resolve(kFinishValueTypeTrace, kFinishValueTypeToken);
    resolve(kPushTrace, kPushToken);
    resolve(kStartTrace, kStartToken);
    resolve(current.hasReturn ? kFinishTraceObject : kFinishTrace, kFinishToken);
    resolve(kCatchTrace, kCatchToken);
    if (SUCCEEDED(hr)) hr = typeGetters[kException]->getToken(current.context->getModuleID(), &tokens[kExceptionToken]);
    if (SUCCEEDED(hr)) std::copy(tokens, tokens + kTraceTokenCount, current.traceTokens);
    return hr;
}
