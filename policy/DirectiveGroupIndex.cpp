#include "policy/DirectiveGroupIndex.h"

#include <algorithm>
#include <bit>

#include "metadata/IMetaDataContext.h"
#include "platform/MemoryPages.h"
#include "platform/Threads.h"
#include "policy/ClassSet.h"

namespace {

// How many steps ahead a name or a group is fetched.
constexpr size_t kAhead = 16;

// Names in the order of their code units, as the group map orders its own.
// Any order would serve that keeps names with a common beginning together
// and puts a name before its extensions.
bool before(std::u16string_view a, std::u16string_view b) {
    return CodeUnitOrder{}(a, b);
}

// Four units of a name from a position on, as a number that orders as the
// names do: zeros past its end, where no name holds a zero unit.
uint64_t chunkAt(std::u16string_view name, size_t position) {
    uint64_t chunk = 0;
    for (size_t i = position; i < position + 4; ++i) {
        chunk = chunk << 16 | (i < name.size() ? name[i] : 0u);
    }
    return chunk;
}

// What a sorted name's chunk says: whether it equals the name before.
constexpr uint64_t kNewName = 0;
constexpr uint64_t kSameName = 1;

// Sorts entries on their chunks in three-way partitions: the entries of one
// range share most chunks (a file's names share long beginnings), and an
// entry equal to the pivot is not looked at again. Past the depth a fair
// split allows, the rest goes to std::sort.
template <typename Entry>
void sortOnChunks(Entry* first, Entry* last, int depthLeft) {
    constexpr long kFew = 16;
    while (last - first > kFew) {
        if (depthLeft-- == 0) {
            std::sort(first, last, [](const Entry& a, const Entry& b) { return a.chunk < b.chunk; });
            return;
        }
        const uint64_t a = first->chunk;
        const uint64_t b = first[(last - first) / 2].chunk;
        const uint64_t c = last[-1].chunk;
        const uint64_t pivot = std::max(std::min(a, b), std::min(std::max(a, b), c));
        Entry* below = first;
        Entry* above = last;
        for (Entry* at = first; at < above;) {
            if (at->chunk < pivot) {
                std::swap(*below++, *at++);
            } else if (at->chunk > pivot) {
                std::swap(*at, *--above);
            } else {
                ++at;
            }
        }
        // The smaller side by a call, the larger in this loop: the stack stays shallow.
        if (below - first < last - above) {
            sortOnChunks(first, below, depthLeft);
            first = above;
        } else {
            sortOnChunks(above, last, depthLeft);
            last = below;
        }
    }
    for (Entry* at = first + (first != last ? 1 : 0); at < last; ++at) {
        for (Entry* to = at; to > first && to[-1].chunk > to->chunk; --to) std::swap(to[-1], *to);
    }
}

// A range of names still to sort, and the units that all of them share.
struct ChunkRange {
    size_t first;
    size_t count;
    size_t depth;
};

// From this many names on, a rebuild sorts on two threads.
constexpr size_t kSharedSortFrom = size_t{1} << 15;

// Sorts the names of a range on their next four units: each name is read
// once for them, and the range is sorted on those as numbers. A generated
// file's names share long beginnings, which a comparison of whole names would
// read again at every step; a range whose units are all alike is not sorted
// at all. The parts whose names may still differ go to pending; the names of
// the others get their marks: whether each equals the one before.
template <typename Entry>
void sortRange(std::vector<Entry>& entries, const ChunkRange& range, std::vector<ChunkRange>& pending) {
    const auto begin = entries.begin() + static_cast<long>(range.first);
    const auto end = begin + static_cast<long>(range.count);
    bool alike = true;
    for (auto entry = begin; entry != end; ++entry) {
        // The names lie all over the file's text, in another order.
        if (end - entry > static_cast<long>(kAhead)) {
            __builtin_prefetch(entry[kAhead].text + range.depth);
        }
        entry->chunk = chunkAt(entry->name(), range.depth);
        alike = alike && entry->chunk == begin->chunk;
    }
    if (!alike) {
        Entry* first = entries.data() + range.first;
        sortOnChunks(first, first + range.count, 2 * static_cast<int>(std::bit_width(range.count)));
    }
    for (auto run = begin; run != end;) {
        const auto runEnd = std::find_if(run, end, [&](const Entry& entry) { return entry.chunk != run->chunk; });
        // Names that end within these units are equal.
        if (runEnd - run > 1 && (run->chunk & 0xFFFF) != 0) {
            pending.push_back(
                {static_cast<size_t>(run - entries.begin()), static_cast<size_t>(runEnd - run), range.depth + 4});
        } else {
            for (auto entry = run; entry != runEnd; ++entry) entry->chunk = entry == run ? kNewName : kSameName;
        }
        run = runEnd;
    }
}

// Sorts the pending ranges and the parts they split into; ranges still to
// sort wait on the heap.
template <typename Entry>
void sortPending(std::vector<Entry>& entries, std::vector<ChunkRange>& pending) {
    while (!pending.empty()) {
        const ChunkRange range = pending.back();
        pending.pop_back();
        sortRange(entries, range, pending);
    }
}

// Ranges sorted on a thread of their own; sorted again by the caller if the
// thread could not finish (memory ran out), as sorting a range twice does no
// harm.
template <typename Entry>
struct SortShare {
    std::vector<Entry>& entries;
    std::vector<ChunkRange> ranges;
    bool sorted = false;
};

template <typename Entry>
DWORD sortShare(LPVOID argument) {
    auto& share = *static_cast<SortShare<Entry>*>(argument);
    try {
        std::vector<ChunkRange> pending = share.ranges;
        sortPending(share.entries, pending);
        share.sorted = true;
    } catch (...) {
        // Left to the caller.
    }
    return 0;
}

// Sorts the names; once sorted, each name's chunk says whether it equals the
// one before. Many names are sorted on two threads: the largest range is split
// until none holds half of them, and the ranges are then dealt out.
template <typename Entry>
void sortByChunks(std::vector<Entry>& entries) {
    std::vector<ChunkRange> pending{{0, entries.size(), 0}};
    if (entries.size() < kSharedSortFrom) {
        sortPending(entries, pending);
        return;
    }
    const auto larger = [](const ChunkRange& a, const ChunkRange& b) { return a.count > b.count; };
    for (;;) {
        const auto largest = std::min_element(pending.begin(), pending.end(), larger);
        if (largest == pending.end() || largest->count * 2 <= entries.size()) break;
        const ChunkRange range = *largest;
        pending.erase(largest);
        sortRange(entries, range, pending);
    }
    // The largest ranges first, each to the side with fewer names so far.
    std::sort(pending.begin(), pending.end(), larger);
    SortShare<Entry> share{entries, {}};
    std::vector<ChunkRange> own;
    size_t ownNames = 0;
    size_t sharedNames = 0;
    for (const ChunkRange& range : pending) {
        if (ownNames <= sharedNames) {
            own.push_back(range);
            ownNames += range.count;
        } else {
            share.ranges.push_back(range);
            sharedNames += range.count;
        }
    }
    if (share.ranges.empty()) {
        sortPending(entries, own);
        return;
    }
    bool shared = false;
    {
        // However this thread's part ends, the helper is waited for: it sorts
        // in the same vector.
        const ScopedThread helper(sortShare<Entry>, &share);
        shared = helper.started();
        if (!shared) own.insert(own.end(), share.ranges.begin(), share.ranges.end());
        sortPending(entries, own);
    }
    if (shared && !share.sorted) {
        sortPending(entries, share.ranges);
    }
}

// Once sorted, one name's entries in order of place, sharing the text of the first.
template <typename Entry>
void settleEqualNames(std::vector<Entry>& entries) {
    for (size_t first = 0, end = 0; first < entries.size(); first = end) {
        for (end = first + 1; end < entries.size() && entries[end].chunk == kSameName; ++end) {
        }
        const auto begin = entries.begin() + static_cast<long>(first);
        const auto stop = entries.begin() + static_cast<long>(end);
        std::sort(begin, stop, [](const Entry& a, const Entry& b) { return a.ordinal < b.ordinal; });
        for (auto entry = begin + 1; entry < stop; ++entry) entry->text = begin->text;
    }
}

// The class's name with its assembly in brackets, in text, where some filed
// name is bracketed; empty otherwise.
std::u16string_view qualifiedName(bool bracketed, const char16_t* assembly, const char16_t* className,
                                  char16_t (&text)[IMetaDataContext::kNameSize]) {
    return bracketed ? std::u16string_view(text, qualifiedKey(assembly, className, text)) : std::u16string_view();
}

}  // namespace

void DirectiveGroupIndex::rebuild(Candidates ordered) {
    byOrdinal = std::move(ordered);
    generalGroups.clear();
    generalOrdinals.clear();
    for (FiledNames* names : {&filed, &parentFiled}) {
        names->entries.clear();
        names->heads.reset(byOrdinal.size());
        names->bracketed = false;
        names->sorted = false;
    }
    MemoryPages::reserve(filed.entries, byOrdinal.size());
    for (uint32_t ordinal = 0; ordinal < byOrdinal.size(); ++ordinal) {
        if (ordinal + kAhead < byOrdinal.size()) __builtin_prefetch(byOrdinal[ordinal + kAhead]);
        // The class names lie elsewhere: fetched once their group is in.
        if (ordinal + kAhead / 2 < byOrdinal.size()) {
            __builtin_prefetch(byOrdinal[ordinal + kAhead / 2]->soleClass().data());
        }
        IDirectiveGroup* group = byOrdinal[ordinal];
        const auto file = [&](std::u16string_view name, bool parent) {
            FiledNames& names = parent ? parentFiled : filed;
            names.entries.push_back({name.data(), static_cast<uint32_t>(name.size()), ordinal, 0});
            names.heads.add(name);
            names.bracketed |= name.starts_with(u'[');
        };
        // A one-line group gives its one name, and its length, without a call
        // through a function object.
        const std::u16string_view sole = group->soleClass();
        if (!sole.empty()) {
            file(sole, false);
        } else if (!group->namedClassesOnly([&](const char16_t* name, bool parent) { file(name, parent); })) {
            generalGroups.push_back(group);
            generalOrdinals.push_back(ordinal);
        }
    }
    // Runs are made as classes meet their names, within what is reserved here.
    runs.clear();
    runMethods.clear();
    runPlaces.clear();
    runOf.clear();
    runs.reserve(filed.entries.size() / 2);
    runMethods.reserve(filed.entries.size());
    runPlaces.reserve(filed.entries.size());
    inRun.assign(byOrdinal.size(), false);
}

const DirectiveGroupIndex::NameRun* DirectiveGroupIndex::runAt(uint32_t filedAt) const {
    const auto [known, added] = runOf.try_emplace(filedAt, kNoRun);
    if (!added) {
        return known->second == kNoRun ? nullptr : &runs[known->second];
    }
    std::vector<std::pair<const char16_t*, uint32_t>> sole;
    const std::vector<Filed>& names = filed.entries;
    for (auto entry = names.begin() + filedAt; entry != names.end() && entry->text == names[filedAt].text; ++entry) {
        // A name's groups lie all over memory: each is fetched ahead, its
        // place in the list of groups further ahead still.
        if (names.end() - entry > static_cast<long>(2 * kAhead)) {
            __builtin_prefetch(&byOrdinal[entry[2 * kAhead].ordinal]);
            __builtin_prefetch(byOrdinal[entry[kAhead].ordinal]);
        }
        IDirectiveGroup* group = byOrdinal[entry->ordinal];
        const char16_t* method = !group->soleClass().empty() ? group->soleMethod() : nullptr;
        if (method != nullptr) sole.emplace_back(method, entry->ordinal);
    }
    if (sole.size() < 2) {
        return nullptr;
    }
    known->second = static_cast<uint32_t>(runs.size());
    addRun(sole);
    return &runs.back();
}

void DirectiveGroupIndex::addRun(const std::vector<std::pair<const char16_t*, uint32_t>>& sole) const {
    // Each distinct method name in the order first met, and its groups' count:
    // a run of a generated file has hundreds of groups and a few names.
    std::unordered_map<std::u16string_view, uint32_t> slotOf;
    std::vector<const char16_t*> names;
    std::vector<uint32_t> counts;
    std::vector<uint32_t> slots;
    slots.reserve(sole.size());
    for (size_t i = 0; i < sole.size(); ++i) {
        if (i + kAhead < sole.size()) __builtin_prefetch(sole[i + kAhead].first);
        const auto [slot, added] = slotOf.try_emplace(sole[i].first, static_cast<uint32_t>(names.size()));
        if (added) {
            names.push_back(sole[i].first);
            counts.push_back(0);
        }
        ++counts[slot->second];
        slots.push_back(slot->second);
    }
    // Each name's places one after another, in the order of places as given;
    // the room was reserved at the rebuild, so nothing moves.
    const MethodPlaces* methods = runMethods.data() + runMethods.size();
    runPlaces.resize(runPlaces.size() + sole.size());
    uint32_t* places = runPlaces.data() + runPlaces.size() - sole.size();
    std::vector<uint32_t> next(names.size());
    for (uint32_t slot = 0, start = 0; slot < names.size(); start += counts[slot++]) {
        next[slot] = start;
        runMethods.push_back({names[slot], places + start, counts[slot], names[slot][0]});
    }
    for (size_t i = 0; i < sole.size(); ++i) {
        places[next[slots[i]]++] = sole[i].second;
        inRun[sole[i].second] = true;
    }
    runs.push_back({byOrdinal[sole.front().second], methods, static_cast<uint32_t>(names.size()),
                    static_cast<uint32_t>(sole.size())});
}

void DirectiveGroupIndex::collectAgreeing(const std::vector<Filed>& names, std::u16string_view name, bool named,
                                          std::vector<Found>& found, std::vector<size_t>& starts,
                                          std::vector<const NameRun*>* nameRuns) const {
    // One name's groups, in order; equal names share their text.
    const auto takeName = [&](std::vector<Filed>::const_iterator first) {
        if (!found.empty()) starts.push_back(found.size());
        const NameRun* run = nullptr;
        if (nameRuns != nullptr && first + 1 != names.end() && (first + 1)->text == first->text) {
            run = runAt(static_cast<uint32_t>(first - names.begin()));
            if (run != nullptr) nameRuns->push_back(run);
        }
        for (const char16_t* text = first->text; first != names.end() && first->text == text; ++first) {
            if (run == nullptr || !inRun[first->ordinal]) found.push_back({first->ordinal, named ? text : nullptr});
        }
        return first;
    };
    // Filed names that begin with the class name...
    const auto byName = [](const Filed& a, std::u16string_view b) { return before(a.name(), b); };
    for (auto at = std::lower_bound(names.begin(), names.end(), name, byName);
         at != names.end() && at->name().substr(0, name.size()) == name;) {
        at = takeName(at);
    }
    // ...and those the class name begins with: each is the greatest filed
    // name not above some prefix of it, found from the longest down.
    std::u16string_view rest = name.substr(0, name.size() - (name.empty() ? 0 : 1));
    while (!name.empty() && !names.empty()) {
        auto at = std::upper_bound(names.begin(), names.end(), rest,
                                   [](std::u16string_view a, const Filed& b) { return before(a, b.name()); });
        if (at == names.begin()) {
            break;
        }
        const std::u16string_view below = (--at)->name();
        const size_t common = static_cast<size_t>(
            std::mismatch(below.begin(), below.end(), rest.begin(), rest.end()).first - below.begin());
        if (common == below.size()) {
            while (at != names.begin() && (at - 1)->text == at->text) --at;
            takeName(at);
            if (below.empty()) {
                break;
            }
            rest = rest.substr(0, below.size() - 1);
        } else {
            rest = rest.substr(0, common);
        }
    }
}

bool DirectiveGroupIndex::mayAgree(const FiledNames& names, std::u16string_view className,
                                   std::u16string_view qualified) {
    return names.heads.mayAgree(className) || (names.bracketed && names.heads.mayAgree(qualified));
}

bool DirectiveGroupIndex::mayFileClass(const char16_t* assembly, const char16_t* className) const {
    if (filed.entries.empty()) {
        return false;
    }
    char16_t text[IMetaDataContext::kNameSize];
    return mayAgree(filed, className, qualifiedName(filed.bracketed, assembly, className, text));
}

void DirectiveGroupIndex::collectClass(FiledNames& names, const char16_t* assembly, const char16_t* className,
                                       bool named, std::vector<Found>& found, std::vector<size_t>& starts,
                                       std::vector<const NameRun*>* nameRuns) const {
    if (names.entries.empty() || className == nullptr) {
        return;
    }
    char16_t text[IMetaDataContext::kNameSize];
    const std::u16string_view qualified = qualifiedName(names.bracketed, assembly, className, text);
    if (!names.sorted) {
        if (!mayAgree(names, className, qualified)) {
            return;
        }
        sortByChunks(names.entries);
        settleEqualNames(names.entries);
        names.sorted = true;
    }
    collectAgreeing(names.entries, className, named, found, starts, nameRuns);
    if (names.bracketed) {
        collectAgreeing(names.entries, qualified, named, found, starts, nameRuns);
    }
}

void DirectiveGroupIndex::collectFiled(const char16_t* assembly, const char16_t* className, const Parents& parents,
                                       std::vector<Found>& found, std::vector<const NameRun*>* nameRuns) const {
    std::vector<size_t> starts;
    collectClass(filed, assembly, className, true, found, starts, nameRuns);
    for (const Parent& parent : parents) {
        collectClass(parentFiled, parent.assembly, parent.className, false, found, starts, nullptr);
    }
    // Each name's groups are in order already.
    for (size_t i = 0; i < starts.size(); ++i) {
        const size_t end = i + 1 < starts.size() ? starts[i + 1] : found.size();
        std::inplace_merge(found.begin(), found.begin() + static_cast<long>(starts[i]),
                           found.begin() + static_cast<long>(end),
                           [](const Found& a, const Found& b) { return a.ordinal < b.ordinal; });
    }
    found.erase(
        std::unique(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.ordinal == b.ordinal; }),
        found.end());
    if (nameRuns != nullptr) {
        std::sort(nameRuns->begin(), nameRuns->end());
        nameRuns->erase(std::unique(nameRuns->begin(), nameRuns->end()), nameRuns->end());
    }
}

template <typename Add>
void DirectiveGroupIndex::inOrder(const std::vector<Found>& found, bool withGeneral, Add add) const {
    auto general = generalOrdinals.begin();
    const auto generalEnd = withGeneral ? generalOrdinals.end() : general;
    for (size_t i = 0; i < found.size(); ++i) {
        // Groups found under names lie all over a large file's.
        if (i + kAhead < found.size()) __builtin_prefetch(&byOrdinal[found[i + kAhead].ordinal]);
        for (; general != generalEnd && *general < found[i].ordinal; ++general) add(*general, nullptr);
        add(found[i].ordinal, found[i].name);
    }
    for (; general != generalEnd; ++general) add(*general, nullptr);
}

void DirectiveGroupIndex::candidates(const char16_t* assembly, const char16_t* className, const Parents& parents,
                                     Candidates& out, bool withGeneral, std::vector<const char16_t*>* names,
                                     std::vector<const NameRun*>* runs) const {
    out.clear();
    if (names != nullptr) names->clear();
    if (runs != nullptr) runs->clear();
    std::vector<Found> found;
    collectFiled(assembly, className, parents, found, runs);
    inOrder(found, withGeneral, [&](uint32_t ordinal, const char16_t* name) {
        out.push_back(byOrdinal[ordinal]);
        if (names != nullptr) names->push_back(name);
    });
}

void DirectiveGroupIndex::candidateRuns(const char16_t* assembly, const char16_t* className, const Parents& parents,
                                        std::vector<Placed>& groups, std::vector<const NameRun*>& nameRuns) const {
    groups.clear();
    nameRuns.clear();
    std::vector<Found> found;
    collectFiled(assembly, className, parents, found, &nameRuns);
    inOrder(found, true, [&](uint32_t ordinal, const char16_t*) { groups.push_back({ordinal, byOrdinal[ordinal]}); });
}
