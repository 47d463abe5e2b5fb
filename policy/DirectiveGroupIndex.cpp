#include "policy/DirectiveGroupIndex.h"

#include <algorithm>

#include "metadata/IMetaDataContext.h"
#include "platform/MemoryPages.h"
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

struct Sortable {
    std::u16string_view name;
    uint32_t ordinal;
    uint64_t chunk;
};

// Sorts the names four units at a time: each name of a range is read once for
// its next four units, and the range is sorted on those as numbers. A
// generated file's names share long beginnings, which a comparison of whole
// names would read again at every step; a range whose units are all alike is
// not sorted at all. Ranges still to sort wait on the heap.
void sortByChunks(std::vector<Sortable>& entries) {
    struct Range {
        size_t first;
        size_t count;
        size_t depth;  // units that every name of the range shares
    };
    std::vector<Range> pending{{0, entries.size(), 0}};
    while (!pending.empty()) {
        const Range range = pending.back();
        pending.pop_back();
        const auto begin = entries.begin() + static_cast<long>(range.first);
        const auto end = begin + static_cast<long>(range.count);
        bool alike = true;
        for (auto entry = begin; entry != end; ++entry) {
            // The names lie all over the file's text, in another order.
            if (end - entry > static_cast<long>(kAhead)) {
                __builtin_prefetch(entry[kAhead].name.data() + range.depth);
            }
            entry->chunk = chunkAt(entry->name, range.depth);
            alike = alike && entry->chunk == begin->chunk;
        }
        if (!alike) {
            std::sort(begin, end, [](const Sortable& a, const Sortable& b) { return a.chunk < b.chunk; });
        }
        for (auto run = begin; run != end;) {
            const auto runEnd =
                std::find_if(run, end, [&](const Sortable& entry) { return entry.chunk != run->chunk; });
            // Names that end within these units are equal.
            if (runEnd - run > 1 && (run->chunk & 0xFFFF) != 0) {
                pending.push_back({static_cast<size_t>(run - entries.begin()), static_cast<size_t>(runEnd - run),
                                   range.depth + 4});
            }
            run = runEnd;
        }
    }
}

}  // namespace

void DirectiveGroupIndex::rebuild(Candidates ordered) {
    byOrdinal = std::move(ordered);
    generalGroups.clear();
    generalOrdinals.clear();
    bracketed = false;
    std::vector<Sortable> names;
    MemoryPages::reserve(names, byOrdinal.size());
    for (uint32_t ordinal = 0; ordinal < byOrdinal.size(); ++ordinal) {
        if (ordinal + kAhead < byOrdinal.size()) __builtin_prefetch(byOrdinal[ordinal + kAhead]);
        IDirectiveGroup* group = byOrdinal[ordinal];
        const bool named = group->namedClassesOnly([&](const char16_t* name) {
            names.push_back({name, ordinal, 0});
            bracketed = bracketed || name[0] == u'[';
        });
        if (!named) {
            generalGroups.push_back(group);
            generalOrdinals.push_back(ordinal);
        }
    }
    sortByChunks(names);
    filed.clear();
    MemoryPages::reserve(filed, names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        if (i + kAhead < names.size()) __builtin_prefetch(names[i + kAhead].name.data());
        const Sortable& name = names[i];
        const bool repeated = !filed.empty() && filed.back().name() == name.name;
        filed.push_back(
            {repeated ? filed.back().text : name.name.data(), static_cast<uint32_t>(name.name.size()), name.ordinal});
    }
    // The groups of one name in their order: a class's candidates are then
    // merged from a few ordered runs.
    for (auto run = filed.begin(); run != filed.end();) {
        const auto runEnd = std::find_if(run, filed.end(), [&](const Filed& entry) { return entry.text != run->text; });
        std::sort(run, runEnd, [](const Filed& a, const Filed& b) { return a.ordinal < b.ordinal; });
        run = runEnd;
    }
}

void DirectiveGroupIndex::collectAgreeing(std::u16string_view name, std::vector<Found>& found,
                                          std::vector<size_t>& runs) const {
    // One name's groups, in order; equal names share their text.
    const auto addRun = [&](std::vector<Filed>::const_iterator first) {
        if (!found.empty()) runs.push_back(found.size());
        for (const char16_t* text = first->text; first != filed.end() && first->text == text; ++first) {
            found.push_back({first->ordinal, text});
        }
        return first;
    };
    // Filed names that begin with the class name...
    const auto byName = [](const Filed& a, std::u16string_view b) { return before(a.name(), b); };
    for (auto at = std::lower_bound(filed.begin(), filed.end(), name, byName);
         at != filed.end() && at->name().substr(0, name.size()) == name;) {
        at = addRun(at);
    }
    // ...and those the class name begins with: each is the greatest filed
    // name not above some prefix of it, found from the longest down.
    std::u16string_view rest = name.substr(0, name.size() - (name.empty() ? 0 : 1));
    while (!name.empty() && !filed.empty()) {
        auto at = std::upper_bound(filed.begin(), filed.end(), rest,
                                   [](std::u16string_view a, const Filed& b) { return before(a, b.name()); });
        if (at == filed.begin()) {
            break;
        }
        const std::u16string_view below = (--at)->name();
        const size_t common = static_cast<size_t>(
            std::mismatch(below.begin(), below.end(), rest.begin(), rest.end()).first - below.begin());
        if (common == below.size()) {
            while (at != filed.begin() && (at - 1)->text == at->text) --at;
            addRun(at);
            if (below.empty()) {
                break;
            }
            rest = rest.substr(0, below.size() - 1);
        } else {
            rest = rest.substr(0, common);
        }
    }
}

void DirectiveGroupIndex::candidates(const char16_t* assembly, const char16_t* className, Candidates& out,
                                     bool withGeneral, std::vector<const char16_t*>* names) const {
    out.clear();
    if (filed.empty() && withGeneral) {
        out = generalGroups;
        if (names != nullptr) names->assign(out.size(), nullptr);
        return;
    }
    std::vector<Found> found;
    std::vector<size_t> runs;
    if (!filed.empty() && className != nullptr) {
        collectAgreeing(className, found, runs);
        if (bracketed) {
            char16_t qualified[IMetaDataContext::kNameSize];
            collectAgreeing(std::u16string_view(qualified, qualifiedKey(assembly, className, qualified)), found, runs);
        }
    }
    // Each name's run is in order already.
    for (size_t i = 0; i < runs.size(); ++i) {
        const size_t end = i + 1 < runs.size() ? runs[i + 1] : found.size();
        std::inplace_merge(found.begin(), found.begin() + static_cast<long>(runs[i]),
                           found.begin() + static_cast<long>(end),
                           [](const Found& a, const Found& b) { return a.ordinal < b.ordinal; });
    }
    found.erase(
        std::unique(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.ordinal == b.ordinal; }),
        found.end());
    // Merged with the general groups, which are in order already.
    if (names != nullptr) names->clear();
    const auto add = [&](uint32_t ordinal, const char16_t* name) {
        out.push_back(byOrdinal[ordinal]);
        if (names != nullptr) names->push_back(name);
    };
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
