#include "policy/MatchContext.h"

#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

MatchContext::MatchContext(ICorProfilerInfo* info, ModuleID module) : status(E_INVALIDARG) {
    if (info != nullptr) {
        status = info->GetModuleMetaData(module, ofRead, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import));
    }
    if (SUCCEEDED(status) && import.get() == nullptr) {
        status = E_FAIL;
    }
}

void MatchContext::selectGroups(const DirectiveGroupMap& groups, const char16_t* assembly) {
    selected.clear();
    for (const auto& [name, group] : groups) {
        if (group->isActive() && group->isCreated() &&
            (assembly == nullptr || group->mayMatchAssembly(assembly))) {
            selected.push_back(group);
        }
    }
}

bool MatchContext::mayMatchName(const char16_t* name) const {
    for (IDirectiveGroup* group : selected) {
        if (group->mayMatchName(name)) {
            return true;
        }
    }
    return false;
}
