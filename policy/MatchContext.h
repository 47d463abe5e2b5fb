// State of one module scan: the module's metadata import, opened once for the
// whole scan, and the groups that can select anything in the module.
#pragma once

#include <vector>

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

    // Keeps the created, active groups whose class rules can hold for a class
    // of the assembly (all of them for a null assembly), in the order in which
    // groups are asked.
    void selectGroups(const DirectiveGroupMap& groups, const char16_t* assembly);
    const std::vector<IDirectiveGroup*>& getGroups() const { return selected; }
    // Some selected group may take a method of this name.
    bool mayMatchName(const char16_t* name) const;

private:
    AutoCOMPointer<IMetaDataImport> import;
    HRESULT status;
    std::vector<IDirectiveGroup*> selected;
};
