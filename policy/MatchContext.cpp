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

bool MatchContext::isApplicable(IDirectiveGroup*) const {
    return true;
}
