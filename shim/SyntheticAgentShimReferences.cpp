// How a shim outside the core library names the core library's types and
// members: through an assembly reference, type references and member
// references of its own module, each checked against the core library first,
// so that a member that the runtime lacks fails the definition rather than
// the program's first trace call.
#include "platform/FormattedOutput.h"
#include "rewrite/AssemblyIdentity.h"
#include "rewrite/AssemblyTokenGetter.h"
#include "rewrite/MemberTokenGetter.h"
#include "rewrite/TypeTokenGetter.h"
#include "shim/SyntheticAgentShim.h"

namespace {

constexpr ULONG kTypeNameSize = 256;

}  // namespace

// The module's metadata and its reference to the core library's assembly,
// what it has or a new one: once for all the references of a definition.
HRESULT SyntheticAgentShim::OpenReferences() {
    const AssemblyIdentity& core =
        dotnetCore ? AssemblyIdentities::kCoreCLRLibrary : AssemblyIdentities::kDesktopLibrary;
    const ASSEMBLYMETADATA version = core.metadata();
    AssemblyTokenGetter assembly(info, core.name, core.token, sizeof(core.token), &version);
    HRESULT hr = BaseTokenGetter::gather(info, module, target);
    if (SUCCEEDED(hr)) hr = assembly.getToken(target, &coreAssembly);
    if (FAILED(hr)) fprintf_8(log, "Failed to refer to the core library: 0x%x\n", hr);
    return hr;
}

mdToken SyntheticAgentShim::local(mdTypeDef corlibType) {
    if (module == coreLibrary) return corlibType;
    if (auto known = localTypes.find(corlibType); known != localTypes.end()) return known->second;
    char16_t className[kTypeNameSize] = {};
    ULONG length = 0;
    unsigned int token = 0;
    HRESULT hr = import->GetTypeDefProps(corlibType, className, kTypeNameSize, &length, nullptr, nullptr);
    if (SUCCEEDED(hr)) hr = TypeTokenGetter::classIn(target, coreAssembly, className, &token);
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
    HRESULT hr = lookups.findMethod(import, corlibType, name, signature, &found);
    if (FAILED(hr) || module == coreLibrary) {
        if (SUCCEEDED(hr)) *outMethod = found;
        return hr;
    }
    const ShimSignature mine = signature.rebound([this](mdToken type) { return local(type); });
    const mdToken type = local(corlibType);
    unsigned int token = 0;
    if (!referenceFailed) hr = MemberTokenGetter::memberOf(target, type, name, mine.bytes(), mine.length(), &token);
    if (SUCCEEDED(hr)) *outMethod = token;
    return referenceFailed ? E_FAIL : hr;
}
