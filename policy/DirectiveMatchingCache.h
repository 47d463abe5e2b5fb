// Remembers per class which groups cover it, so that later methods of a class
// are tested only against those groups. The knowledge is built lazily: a walk
// over the groups stops at the first group that selects the method in hand,
// and the next method that needs more goes on from there.
//
// One path differs on purpose: once a class has an entry, a method skip in the
// own filter of a group known to cover the class vetoes the method for all
// groups, while a walk only passes that group by. The order in which methods
// arrive can thus change an answer.
//
// Keys are runtime ClassIDs, so each instantiation of a generic class has its
// own entry; a context without one is matched without the cache. There is no
// eviction: when the limit is reached, new classes are matched without it.
//
// Contract: no lock inside; shouldMonitor and clear run under the caller's
// serialisation (the callback hub's JIT-path lock).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>
#include <unordered_map>
#include <string>

#include "policy/ClassMethodFilter.h"
#include "policy/DirectiveGroupIndex.h"

class DirectiveController;

// What is known of one class.
struct DirectiveMatchingMetaData {
    // The groups that can meet the class, in the order of their names.
    DirectiveGroupIndex::Candidates candidates;
    // Where the next walk starts: the group the last walk stopped at.
    size_t next = 0;
    // The walk over the groups has reached the end for this class.
    bool complete = false;
    // Groups whose class test has passed so far, in the order of their names;
    // not owned.
    std::vector<IDirectiveGroup*> matchedGroups;
    // The same groups split for the later methods of the class: the sole
    // method names, and the other groups, each with its place among them. A
    // class that a generated file names a hundred times is then decided by a
    // run over the names rather than a call to each group.
    struct SoleMethod {
        const char16_t* name;
        uint32_t place;
        char16_t first;  // turns most names away without reading the text
    };
    std::vector<SoleMethod> soleMethods;
    std::vector<uint32_t> others;
    size_t split = 0;
    // What the global filter takes from the class alone.
    ClassMethodFilter::ClassRules globalRules;
};

class DirectiveMatchingCache {
public:
    using Entries = std::unordered_map<uint64_t, std::unique_ptr<DirectiveMatchingMetaData>>;

    explicit DirectiveMatchingCache(int maxSize);
    DirectiveMatchingCache(const DirectiveMatchingCache&) = delete;
    DirectiveMatchingCache& operator=(const DirectiveMatchingCache&) = delete;

    // A limit at or below the present size stops growth; entries stay.
    void setCacheSize(int size) { maxSize = size; }
    void clear();
    size_t size() const { return entries.size(); }

    // The decision for the method in hand: the global filter, then the groups.
    bool shouldMonitor(IMetaDataContext* context, DirectiveController& controller);
    // The plain walk: some live group not skipping the method matches it.
    bool matchWithoutCache(IMetaDataContext* context, DirectiveController& controller);

private:
    // Walks the class's groups on from where the last walk stopped, recording
    // every group whose class test passes, until a group selects the method;
    // the entry is complete when none does.
    bool walk(IMetaDataContext* context, DirectiveMatchingMetaData& known);
    // What the groups the class is known to meet say of the method in hand,
    // in their order: a skip says no, a match yes, and false if none speaks.
    static bool askMatched(IMetaDataContext* context, DirectiveMatchingMetaData& known, bool& spoke);

    int maxSize;
    Entries entries;
    // The groups of a walk without the cache and the names they were filed
    // under, kept to spare an allocation.
    DirectiveGroupIndex::Candidates candidates;
    std::vector<const char16_t*> candidateNames;
};
