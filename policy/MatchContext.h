// State of one module scan: the module's metadata import, opened once for the
// whole scan, and the groups that can select anything in the module.
#pragma once

#include <string>
#include <vector>

#include "platform/AutoPointer.h"
#include "policy/DirectiveGroupIndex.h"
#include "policy/MethodNameGroups.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"

class MatchContext {
public:
    // Opens the module's metadata for reading; getStatus says whether that worked.
    MatchContext(ICorProfilerInfo* info, ModuleID module);

    [[nodiscard]] HRESULT getStatus() const { return status; }
    // No new reference; null if the metadata could not be opened.
    IMetaDataImport* getImport() const { return import.get(); }

    // Keeps those of the groups that it accepts, in their order.
    void selectGroups(const DirectiveGroupIndex::Candidates& groups, const char16_t* assembly);
    // The group is created and active, and its class rules can hold for a
    // class of the assembly given to selectGroups (any, for a null one).
    bool accepts(IDirectiveGroup* group) const;
    const std::vector<IDirectiveGroup*>& getGroups() const { return selected.all(); }
    // Some selected group may take a method of this name.
    bool mayMatchName(const char16_t* name) const { return selected.mayMatchName(name); }
    // Some selected group may take a name whose first byte in the metadata's
    // own encoding is this one: a scan turns most names away before reading them.
    bool mayStartWith(unsigned char unit) const { return selected.mayStartWith(unit); }

private:
    AutoCOMPointer<IMetaDataImport> import;
    HRESULT status;
    MethodNameGroups selected;
    std::u16string assembly;
    bool anyAssembly = true;
};
