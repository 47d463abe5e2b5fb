#include "policy/MatchContext.h"

#include "metadata/ImageMetaData.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

MatchContext::MatchContext(ICorProfilerInfo* info, ModuleID module) : status(E_INVALIDARG) {
    if (info != nullptr) {
        status = ImageMetaData::open(info, module, IID_IMetaDataImport, reinterpret_cast<IUnknown**>(&import));
    }
    if (SUCCEEDED(status) && import.get() == nullptr) {
        status = E_FAIL;
    }
}

void MatchContext::selectGroups(const DirectiveGroupIndex::Candidates& groups, const char16_t* moduleAssembly) {
    anyAssembly = moduleAssembly == nullptr;
    assembly = anyAssembly ? u"" : moduleAssembly;
    selected.clear();
    for (IDirectiveGroup* group : groups) {
        if (accepts(group)) selected.add(group);
    }
}

bool MatchContext::accepts(IDirectiveGroup* group) const {
    return group->isActive() && group->isCreated() && (anyAssembly || group->mayMatchAssembly(assembly.c_str()));
}
