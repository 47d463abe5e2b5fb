// Which directive groups a class can meet. A group whose class rules are
// nothing but class names ("N.C", "[A]N.C") and parent names is filed under
// each of them, the parents' apart; every other group is general and meets
// every class. A generated directive file makes one group per line, each
// naming one class, and flags name classes and their bases: a decision then
// consults the few groups filed under names that agree with its class, its
// base class or an interface it declares, not all of them.
//
// Names agree as the class sets compare them: one is a prefix of the other.
// The candidates are thus a superset of the groups whose class test can pass,
// in the order of the groups' names; callers still ask each of them.
//
// A name that two or more one-line groups selecting one method each are filed
// under makes a run (a generated file names one class in hundreds of lines,
// with a few method names): one class test answers for the whole run, and the
// run lists each distinct method name with the places of its groups.
//
// Contract: the names belong to the groups, whose class rules do not change
// between a rebuild and the next change of the rules; runs live until the next
// rebuild. No lock inside: a lookup sorts the names the first time a class
// may agree with one of them (most classes of a process agree with none of a
// generated file's), and makes a name's run the first time a class meets it,
// so its callers are serialised (the match cache's and the module scans'
// are). A sort of tens of thousands of names runs part on a thread of its
// own, which the lookup waits for.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "policy/IDirectiveGroup.h"
#include "policy/NameHeads.h"

class DirectiveGroupIndex {
public:
    using Candidates = std::vector<IDirectiveGroup*>;
    // A class's base class and declared interfaces, as a class test sees them.
    struct Parent {
        const char16_t* assembly;
        const char16_t* className;
    };
    using Parents = std::vector<Parent>;

    // A group and its place among all.
    struct Placed {
        uint32_t ordinal;
        IDirectiveGroup* group;
    };
    // A method name of a run, and the places of the run's groups that select
    // it, in order.
    struct MethodPlaces {
        const char16_t* name;
        const uint32_t* places;
        uint32_t count;
        char16_t first;  // turns most names away without reading the text
    };
    struct NameRun {
        IDirectiveGroup* sample;  // any of its groups, for the class test
        const MethodPlaces* methods;
        uint32_t count;
        uint32_t groups;  // how many groups the run stands for
    };

    // Files every group, given in the order in which they are asked.
    void rebuild(Candidates ordered);
    // The groups filed under a name that agrees with the class, plain or with
    // its assembly in brackets, or under a parent name that agrees with one of
    // its parents, and the general groups if asked for; no class name's for a
    // null class name. With names, each candidate's class name beside it:
    // equal names are one pointer, and a general group or one filed by a
    // parent has none. With runs, the groups of runs come as their runs, once
    // each.
    void candidates(const char16_t* assembly, const char16_t* className, const Parents& parents, Candidates& out,
                    bool withGeneral, std::vector<const char16_t*>* names = nullptr,
                    std::vector<const NameRun*>* runs = nullptr) const;
    // The same candidates, general groups included, with their places; but
    // the groups of runs come as their runs, once each.
    void candidateRuns(const char16_t* assembly, const char16_t* className, const Parents& parents,
                       std::vector<Placed>& groups, std::vector<const NameRun*>& runs) const;
    const Candidates& general() const { return generalGroups; }
    const Candidates& all() const { return byOrdinal; }
    bool empty() const { return filed.entries.empty() && parentFiled.entries.empty(); }
    // Whether a lookup needs the class's parents.
    bool filesParents() const { return !parentFiled.entries.empty(); }
    // False only where no group is filed under a name that agrees with the
    // class, plain or with its assembly in brackets. The class's parents are
    // not asked (see filesParents).
    bool mayFileClass(const char16_t* assembly, const char16_t* className) const;

private:
    // A name and the place of its group among all; a generated file files
    // hundreds of thousands, sorted where they lie.
    struct Filed {
        const char16_t* text;
        uint32_t length;
        uint32_t ordinal;
        // The units a sort is on; once sorted, whether the name equals the
        // one before.
        uint64_t chunk;
        std::u16string_view name() const { return {text, length}; }
    };
    // A group found for a class, by its place, and the name it was filed under.
    struct Found {
        uint32_t ordinal;
        const char16_t* name;
    };
    // Appends the groups filed in names under names that agree with name,
    // name by name, and where each name's groups after the first name's
    // start; with their names if asked. With nameRuns, the groups of a run
    // are left out and the run added instead.
    void collectAgreeing(const std::vector<Filed>& names, std::u16string_view name, bool named,
                         std::vector<Found>& found, std::vector<size_t>& starts,
                         std::vector<const NameRun*>* nameRuns) const;
    // Names filed: class names, and apart the names of parents. Sorted by
    // name, equal names by place and sharing the text of the first, once a
    // lookup may find one of them; until then a lookup asks their heads.
    struct FiledNames {
        std::vector<Filed> entries;
        NameHeads heads;
        bool bracketed = false;
        bool sorted = false;
    };
    // False only where no name filed in names agrees with the class's plain
    // or bracketed name, asked before the names are sorted.
    static bool mayAgree(const FiledNames& names, std::u16string_view className, std::u16string_view qualified);
    // The same for a class and its assembly: the plain name, then the
    // bracketed one where some name is bracketed.
    void collectClass(FiledNames& names, const char16_t* assembly, const char16_t* className, bool named,
                      std::vector<Found>& found, std::vector<size_t>& starts,
                      std::vector<const NameRun*>* nameRuns) const;
    // The groups filed under names that agree with the class or its parents,
    // in order, once each; with nameRuns, the runs once each.
    void collectFiled(const char16_t* assembly, const char16_t* className, const Parents& parents,
                      std::vector<Found>& found, std::vector<const NameRun*>* nameRuns) const;
    // Calls add(ordinal, name) for each found group and, if asked, each
    // general group (with a null name), in order.
    template <typename Add>
    void inOrder(const std::vector<Found>& found, bool withGeneral, Add add) const;
    // The run of the name filed from filedAt on, made the first time it is
    // asked for; null if the name has no run.
    const NameRun* runAt(uint32_t filedAt) const;
    // Makes a run of one-line groups' method names and places, given in the
    // order of places.
    void addRun(const std::vector<std::pair<const char16_t*, uint32_t>>& sole) const;

    Candidates byOrdinal;
    Candidates generalGroups;
    std::vector<uint32_t> generalOrdinals;
    mutable FiledNames filed;
    mutable FiledNames parentFiled;
    // The runs made so far, by where their names start in filed, and what
    // they list; reserved whole at a rebuild, as runs point into them. Only
    // candidateRuns makes or reads them.
    static constexpr uint32_t kNoRun = UINT32_MAX;
    mutable std::vector<NameRun> runs;
    mutable std::unordered_map<uint32_t, uint32_t> runOf;
    mutable std::vector<MethodPlaces> runMethods;
    mutable std::vector<uint32_t> runPlaces;
    // Which places belong to runs made so far.
    mutable std::vector<bool> inRun;
};
