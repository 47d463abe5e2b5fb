#include "policy/DirectiveGroupIndex.h"

#include <algorithm>
#include <cstring>

#include "metadata/IMetaDataContext.h"
#include "policy/ClassSet.h"

namespace {

// Names in the order of their bytes, which compares without a loop over code
// units. Any order of units serves: names with a common beginning stand
// together, and a name stands before its extensions.
bool before(std::u16string_view a, std::u16string_view b) {
    const int bytes = memcmp(a.data(), b.data(), std::min(a.size(), b.size()) * sizeof(char16_t));
    return bytes != 0 ? bytes < 0 : a.size() < b.size();
}

// The first eight bytes of a name as a number that orders as before() orders
// them (zeros past its end): most comparisons of a sort end there.
uint64_t headOf(std::u16string_view name) {
    unsigned char bytes[8] = {};
    memcpy(bytes, name.data(), std::min(name.size() * sizeof(char16_t), sizeof(bytes)));
    uint64_t head = 0;
    for (unsigned char byte : bytes) head = head << 8 | byte;
    return head;
}

}  // namespace

void DirectiveGroupIndex::rebuild(DirectiveGroupMap& groups) {
    byOrdinal.clear();
    generalGroups.clear();
    generalOrdinals.clear();
    filed.clear();
    bracketed = false;
    for (Entry& entry : groups) {
        const auto ordinal = static_cast<uint32_t>(byOrdinal.size());
        byOrdinal.push_back(&entry);
        const bool named = entry.second->namedClassesOnly([&](const char16_t* name) {
            filed.push_back({name, headOf(name), ordinal});
            bracketed = bracketed || name[0] == u'[';
        });
        if (!named) {
            generalGroups.push_back(&entry);
            generalOrdinals.push_back(ordinal);
        }
    }
    std::sort(filed.begin(), filed.end(), [](const Filed& a, const Filed& b) {
        return a.head != b.head ? a.head < b.head : before(a.name, b.name);
    });
}

void DirectiveGroupIndex::collectAgreeing(std::u16string_view name, std::vector<uint32_t>& ordinals) const {
    const auto byName = [](const Filed& a, std::u16string_view b) { return before(a.name, b); };
    // Filed names that begin with the class name...
    for (auto at = std::lower_bound(filed.begin(), filed.end(), name, byName);
         at != filed.end() && at->name.substr(0, name.size()) == name; ++at) {
        ordinals.push_back(at->ordinal);
    }
    // ...and those the class name begins with: each is the greatest filed
    // name not above some prefix of it, found from the longest down.
    std::u16string_view rest = name.substr(0, name.size() - (name.empty() ? 0 : 1));
    while (!name.empty() && !filed.empty()) {
        auto at = std::upper_bound(filed.begin(), filed.end(), rest,
                                   [](std::u16string_view a, const Filed& b) { return before(a, b.name); });
        if (at == filed.begin()) {
            break;
        }
        const std::u16string_view below = (--at)->name;
        const size_t common = static_cast<size_t>(
            std::mismatch(below.begin(), below.end(), rest.begin(), rest.end()).first - below.begin());
        if (common == below.size()) {
            for (; at->name == below; --at) {
                ordinals.push_back(at->ordinal);
                if (at == filed.begin()) {
                    break;
                }
            }
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
                                     bool withGeneral) const {
    out.clear();
    if (filed.empty() && withGeneral) {
        out = generalGroups;
        return;
    }
    std::vector<uint32_t> ordinals;
    if (withGeneral) {
        ordinals = generalOrdinals;
    }
    if (!filed.empty() && className != nullptr) {
        collectAgreeing(className, ordinals);
        if (bracketed) {
            char16_t qualified[IMetaDataContext::kNameSize];
            collectAgreeing(std::u16string_view(qualified, qualifiedKey(assembly, className, qualified)), ordinals);
        }
    }
    std::sort(ordinals.begin(), ordinals.end());
    ordinals.erase(std::unique(ordinals.begin(), ordinals.end()), ordinals.end());
    for (uint32_t ordinal : ordinals) out.push_back(byOrdinal[ordinal]);
}
