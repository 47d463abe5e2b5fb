// State of one module scan: the module's metadata import, opened once for the
// whole scan.
#pragma once

#include "platform/AutoPointer.h"
#include "policy/IDirectiveGroup.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"

class MatchContext {
public:
    // Opens the module's metadata for reading; getStatus says whether that worked.
    MatchContext(ICorProfilerInfo* info, ModuleID module);

    [[nodiscard]] HRESULT getStatus() const { return status; }
    // No new reference; null if the metadata could not be opened.
    IMetaDataImport* getImport() const { return import.get(); }
    // Whether a group can select anything in this module at all. Every group
    // can: the hook is where a cheaper module-level test would go.
    bool isApplicable(IDirectiveGroup* group) const;

private:
    AutoCOMPointer<IMetaDataImport> import;
    HRESULT status;
};
