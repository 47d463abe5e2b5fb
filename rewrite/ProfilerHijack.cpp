// The hijack of the desktop core library: its instrumented methods cannot name
// the agent's assembly, so forwarders to the agent's trace functions are
// defined in a class that the library already has, once per process, and a
// static field of that class becomes the switch the injected code tests.
#include <cstring>
#include <vector>

#include "platform/AutoPointer.h"
#include "platform/SharedNames.h"
#include "rewrite/ForwarderBodies.h"
#include "rewrite/Profiler.h"
#include "rewrite/TraceMembers.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"
#include "runtime/MetaDataInterfaces.h"

namespace {

constexpr const char16_t* kHostClass = u"System.Runtime.Serialization.Formatters.Binary.ObjectProgress";
constexpr const char16_t* kSwitchField = u"opRecordIdCount";
constexpr unsigned char kSwitchSignature[] = {0x06, 0x08};
// fdPublic | fdStatic and mdPublic | mdStatic.
constexpr DWORD kPublicStatic = 0x16;

// A body of one of the three forwarder forms, by the number of arguments.
std::vector<unsigned char> forwarderBody(int arguments, unsigned int target) {
    auto bytesOf = [](const auto& body) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&body);
        return std::vector<unsigned char>(bytes, bytes + sizeof(body));
    };
    switch (arguments) {
    case 0:
        return bytesOf(IL_Forward0(target));
    case 1:
        return bytesOf(IL_Forward1(target));
    default:
        return bytesOf(IL_Forward2(target));
    }
}

// The trace function a forwarder calls: itself, but initTrace, which calls
// corInitTrace.
TraceMembers::Index forwardedTo(TraceMembers::Index member) {
    return member == TraceMembers::kInitTrace ? TraceMembers::kCorInitTrace : member;
}

}  // namespace

HRESULT Profiler::hijackMethod(IMetaDataContext* method) {
    if (clrVersion != 2 && clrVersion != 4) return S_OK;
    HRESULT hr = updateContext(method);
    if (SUCCEEDED(hr)) hr = updateHijacks();
    return hr;
}

HRESULT Profiler::updateHijacks() {
    if (isDotnetCore || hijackTokens[0] != 0) return S_OK;
    IMetaDataImport* import = current.import();
    const ModuleID module = current.context->getModuleID();
    unsigned int tokens[kHijackTokenCount] = {};

    AutoCOMPointer<IMetaDataEmit> emit;
    HRESULT hr = import->QueryInterface(IID_IMetaDataEmit, reinterpret_cast<void**>(&emit));
    mdTypeDef host = 0;
    if (SUCCEEDED(hr)) hr = import->FindTypeDefByName(kHostClass, mdTokenNil, &host);
    if (SUCCEEDED(hr))
        hr = import->FindField(host, kSwitchField, kSwitchSignature, sizeof(kSwitchSignature), &tokens[0]);
    // Reachable from every instrumented method of the library.
    if (SUCCEEDED(hr)) hr = emit->SetFieldProps(tokens[0], kPublicStatic, ELEMENT_TYPE_VOID, nullptr, 0);
    // A forwarder of every trace function but corInitTrace, at its place.
    for (unsigned int i = kInitTrace; i < TraceMembers::kCount && SUCCEEDED(hr); ++i) {
        const TraceMembers::Member& method = TraceMembers::kMembers[i];
        unsigned int target = 0;
        hr = memberGetters[forwardedTo(static_cast<TraceMember>(i))]->getToken(module, &target);
        if (SUCCEEDED(hr)) {
            std::vector<unsigned char> body = forwarderBody(static_cast<int>(method.parameters()), target);
            hr = defineForwardMethod(host, method.name, method.signature, method.length, body.data(),
                                     static_cast<unsigned int>(body.size()), &tokens[i]);
        }
    }
    // All or nothing: a failed attempt leaves the next candidate to try again.
    if (SUCCEEDED(hr)) std::copy(std::begin(tokens), std::end(tokens), hijackTokens);
    return hr;
}

HRESULT Profiler::defineForwardMethod(unsigned int typeDef, const char16_t* name, const unsigned char* signature,
                                      unsigned int signatureLength, const unsigned char* body, unsigned int bodyLength,
                                      unsigned int* token) {
    const ModuleID module = current.context->getModuleID();
    AutoCOMPointer<IMetaDataEmit> emit;
    HRESULT hr = info->GetModuleMetaData(module, ofWrite, IID_IMetaDataEmit, reinterpret_cast<IUnknown**>(&emit));
    mdMethodDef method = 0;
    if (SUCCEEDED(hr)) hr = emit->DefineMethod(typeDef, name, kPublicStatic, signature, signatureLength, 0, 0, &method);
    unsigned char* memory = nullptr;
    if (SUCCEEDED(hr)) hr = allocateBody(module, bodyLength, &memory);
    if (SUCCEEDED(hr)) {
        std::memcpy(memory, body, bodyLength);
        hr = info->SetILFunctionBody(module, method, memory);
    }
    if (SUCCEEDED(hr)) *token = method;
    return hr;
}
