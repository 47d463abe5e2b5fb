// Remembers per class which groups cover it, so that later methods of a class
// are tested only against those groups. The knowledge is built lazily: a walk
// over the groups stops at the first group that selects the method in hand,
// and the next method that needs more goes on from there. The one-line groups
// of a name that many lines name are met as the name's run (see
// DirectiveGroupIndex): a walk passes a run's groups by their places, and
// those up to where it stopped count as known to cover the class.
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
// Where every group is general, the groups that may select a method of an
// assembly are also kept, by its name: a method whose name none of them can
// take is refused before its class is looked at.
//
// Contract: no lock inside; shouldMonitor and clear run under the caller's
// serialisation (the callback hub's JIT-path lock).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>
#include <unordered_map>
#include <string>
#include <string_view>
#include <utility>

#include "policy/ClassMethodFilter.h"
#include "policy/DirectiveGroupIndex.h"
#include "policy/MethodNameGroups.h"

class DirectiveController;

// What is known of one class.
struct DirectiveMatchingMetaData {
    using Placed = DirectiveGroupIndex::Placed;

    // The groups that can meet the class, with their places, in order; but
    // one-line groups that make a name's run (see DirectiveGroupIndex) come
    // as the runs below.
    std::vector<Placed> candidates;
    // The runs whose class test passes: each of their groups covers the class.
    std::vector<const DirectiveGroupIndex::NameRun*> runs;
    // Where the next walk starts: the candidate the last walk stopped at, and
    // the place it stopped at. The groups of the runs up to that place are
    // known to cover the class, as a walk passes them.
    size_t next = 0;
    uint32_t reached = 0;
    // The walk over the groups has reached the end for this class.
    bool complete = false;
    // Other groups whose class test has passed so far, in order.
    std::vector<Placed> matchedGroups;
    // The same groups split for the later methods of the class: the sole
    // method names, and the other groups, each by its place.
    struct SoleMethod {
        const char16_t* name;
        uint32_t place;
        char16_t first;  // turns most names away without reading the text
    };
    std::vector<SoleMethod> soleMethods;
    std::vector<Placed> others;
    size_t split = 0;
    // What the global filter takes from the class alone.
    ClassMethodFilter::ClassRules globalRules;
    // Where the method's name alone may say no (see namesDecide).
    const MethodNameGroups* byNames = nullptr;
};

class DirectiveMatchingCache {
public:
    // A place after every group's.
    static constexpr uint32_t kNowhere = UINT32_MAX;

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
    static bool walk(IMetaDataContext* context, DirectiveMatchingMetaData& known);
    // What the groups the class is known to meet say of the method in hand,
    // in their order: a skip says no, a match yes, and false if none speaks.
    static bool askMatched(IMetaDataContext* context, DirectiveMatchingMetaData& known, bool& spoke);
    // The groups that may select a method of the assembly of the method in
    // hand, when every group is general and none of these takes every method
    // name; null where it cannot: some group is filed under a name or takes
    // any method name, or the assembly's name is unknown.
    const MethodNameGroups* namesDecide(IMetaDataContext* context, const DirectiveGroupIndex& index);
    // Some of the groups may take the method's name; true where it is unknown.
    static bool mayTakeName(const MethodNameGroups& byNames, IMetaDataContext* context);

    int maxSize;
    Entries entries;
    // Assembly names looked up as they are, without a string made for the key.
    struct NameHash {
        using is_transparent = void;
        size_t operator()(std::u16string_view name) const { return std::hash<std::u16string_view>{}(name); }
    };
    // By assembly name; no groups stand for a null answer of namesDecide. The
    // entry met last is met again for most methods.
    std::unordered_map<std::u16string, std::unique_ptr<MethodNameGroups>, NameHash, std::equal_to<>> assemblies;
    const std::pair<const std::u16string, std::unique_ptr<MethodNameGroups>>* lastAssembly = nullptr;
    // Whether namesDecide can answer for any assembly: not where some group
    // takes every name of every assembly's classes. Unknown until asked.
    enum class Names { Unknown, Decide, Never } names = Names::Unknown;
    // The groups and runs of a decision without the cache, kept to spare an
    // allocation.
    std::vector<DirectiveGroupIndex::Placed> candidates;
    std::vector<const DirectiveGroupIndex::NameRun*> runs;
};
