#include "shim/AgentTokens.h"

#include <sys/stat.h>

#include <map>
#include <mutex>

#include "platform/AutoPointer.h"
#include "platform/SharedNames.h"
#include "platform/SystemUtils.h"
#include "platform/TextConversion.h"
#include "runtime/Guids.h"
#include "runtime/MetaDataInterfaces.h"

namespace {

using GetDispenser = HRESULT (*)(REFCLSID, REFIID, void**);

}  // namespace

AgentTokens AgentTokens::readOnce(const std::u16string& path) {
    static std::mutex lock;
    static std::map<std::u16string, AgentTokens> known;
    std::lock_guard<std::mutex> held(lock);
    auto found = known.find(path);
    if (found == known.end()) found = known.emplace(path, read(path)).first;
    return found->second;
}

AgentTokens AgentTokens::read(const std::u16string& path) {
    // A pipe or device in the agent's place must not hold up the module load.
    std::string narrowPath;
    FromChar16(path.c_str(), narrowPath);
    struct stat facts {};
    if (stat(narrowPath.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) return {};

    auto getDispenser =
        reinterpret_cast<GetDispenser>(SystemUtils::LookupProcAddress("libcoreclr.so", "MetaDataGetDispenser"));
    AutoCOMPointer<IMetaDataDispenserEx> dispenser;
    AutoCOMPointer<IMetaDataImport> agent;
    mdTypeDef agentClass = 0;
    if (getDispenser == nullptr ||
        FAILED(
            getDispenser(CLSID_CorMetaDataDispenser, IID_IMetaDataDispenserEx, reinterpret_cast<void**>(&dispenser))) ||
        FAILED(dispenser->OpenScope(Utf16FromUtf8(path.c_str()).c_str(), ofRead, IID_IMetaDataImport,
                                    reinterpret_cast<IUnknown**>(&agent)))) {
        return {};
    }
    AgentTokens lacking;
    if (FAILED(agent->FindTypeDefByName(SharedNames::kPreAgentShimClass, mdTypeDefNil, &agentClass))) {
        lacking.lacksClass = true;
        return lacking;
    }
    AgentTokens tokens;
    if (FAILED(agent->GetScopeProps(nullptr, 0, nullptr, &tokens.moduleVersion))) return {};
    for (unsigned int i = 0; i < ShimDelegateTable::kFieldCount; ++i) {
        const TraceMembers::Member& member = TraceMembers::kMembers[ShimDelegateTable::fields[i].member];
        if (FAILED(agent->FindMethod(agentClass, member.name, member.signature, member.length, &tokens.methods[i]))) {
            lacking.lacksFunction = &member;
            return lacking;
        }
    }
    return tokens;
}
