// Which directive groups a class can meet. A group whose class rules are
// nothing but class names ("N.C", "[A]N.C") is filed under each of them; every
// other group is general and meets every class. A generated directive file
// makes one group per line, each naming one class: a decision then consults
// the few groups filed under names that agree with its class, not all of them.
//
// Names agree as the class sets compare them: one is a prefix of the other.
// The candidates are thus a superset of the groups whose class test can pass,
// in the order of the groups' names; callers still ask each of them.
//
// Contract: the names belong to the groups, whose class rules do not change
// between a rebuild and the next change of the rules. No lock inside.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "policy/IDirectiveGroup.h"

class DirectiveGroupIndex {
public:
    using Candidates = std::vector<IDirectiveGroup*>;

    // Files every group, given in the order in which they are asked.
    void rebuild(Candidates ordered);
    // The groups filed under a name that agrees with the class, plain or with
    // its assembly in brackets, and the general groups if asked for; none
    // filed for a null class name. With names, each candidate's name beside
    // it: equal names are one pointer, and a general group has none.
    void candidates(const char16_t* assembly, const char16_t* className, Candidates& out, bool withGeneral,
                    std::vector<const char16_t*>* names = nullptr) const;
    const Candidates& general() const { return generalGroups; }
    const Candidates& all() const { return byOrdinal; }
    bool empty() const { return filed.empty(); }

private:
    // A name and the place of its group among all; a generated file files
    // hundreds of thousands.
    struct Filed {
        const char16_t* text;
        uint32_t length;
        uint32_t ordinal;
        std::u16string_view name() const { return {text, length}; }
    };
    // A group found for a class, by its place, and the name it was filed under.
    struct Found {
        uint32_t ordinal;
        const char16_t* name;
    };
    // Appends the groups filed under names that agree with name, name by
    // name, and where each name's run after the first starts.
    void collectAgreeing(std::u16string_view name, std::vector<Found>& found, std::vector<size_t>& runs) const;

    Candidates byOrdinal;
    Candidates generalGroups;
    std::vector<uint32_t> generalOrdinals;
    // Sorted by name, equal names by place; equal names share the text of the first.
    std::vector<Filed> filed;
    bool bracketed = false;
};
