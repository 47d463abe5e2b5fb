// Groups that may select methods in one place (the module a scan reads, the
// assembly a decision meets), and the first units their method names may
// take: most method names are turned away by their first unit alone.
//
// Contract: the groups outlive the list; no lock inside.
#pragma once

#include <algorithm>
#include <vector>

#include "policy/IDirectiveGroup.h"

class MethodNameGroups {
public:
    void clear() {
        groups.clear();
        firstUnits.reset();
        anyFirstUnit = false;
    }
    void add(IDirectiveGroup* group) {
        groups.push_back(group);
        anyFirstUnit = !group->addFirstUnits(firstUnits) || anyFirstUnit;
    }
    const std::vector<IDirectiveGroup*>& all() const { return groups; }
    // Some group may take a name that begins with this unit: a byte of the
    // metadata's own encoding or a UTF-16 unit, as the rules' units are ASCII.
    bool mayStartWith(unsigned int unit) const { return unit >= firstUnits.size() || anyFirstUnit || firstUnits[unit]; }
    // Some group may take a method of this name.
    bool mayMatchName(const char16_t* name) const {
        return std::ranges::any_of(groups, [&](IDirectiveGroup* group) { return group->mayMatchName(name); });
    }

private:
    std::vector<IDirectiveGroup*> groups;
    FirstUnits firstUnits;
    bool anyFirstUnit = false;
};
