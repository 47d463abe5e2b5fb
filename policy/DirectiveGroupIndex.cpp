#include "policy/DirectiveGroupIndex.h"

#include <algorithm>

#include "metadata/IMetaDataContext.h"
#include "policy/ClassSet.h"

void DirectiveGroupIndex::rebuild(DirectiveGroupMap& groups) {
    byOrdinal.clear();
    generalGroups.clear();
    generalOrdinals.clear();
    filed.clear();
    lengths.clear();
    bracketed = false;
    for (Entry& entry : groups) {
        const auto ordinal = static_cast<uint32_t>(byOrdinal.size());
        byOrdinal.push_back(&entry);
        const bool named = entry.second->namedClassesOnly([&](const char16_t* name) {
            filed.push_back({name, ordinal});
            bracketed = bracketed || name[0] == u'[';
        });
        if (!named) {
            generalGroups.push_back(&entry);
            generalOrdinals.push_back(ordinal);
        }
    }
    std::sort(filed.begin(), filed.end(), [](const Filed& a, const Filed& b) { return a.name < b.name; });
    for (const Filed& name : filed) lengths.push_back(name.name.size());
    std::sort(lengths.begin(), lengths.end());
    lengths.erase(std::unique(lengths.begin(), lengths.end()), lengths.end());
}

void DirectiveGroupIndex::collectAgreeing(std::u16string_view name, std::vector<uint32_t>& ordinals) const {
    const auto byName = [](const Filed& a, std::u16string_view b) { return a.name < b; };
    // Filed names that begin with the class name...
    for (auto at = std::lower_bound(filed.begin(), filed.end(), name, byName);
         at != filed.end() && at->name.substr(0, name.size()) == name; ++at) {
        ordinals.push_back(at->ordinal);
    }
    // ...and those the class name begins with.
    for (size_t length : lengths) {
        if (length >= name.size()) {
            break;
        }
        const std::u16string_view prefix = name.substr(0, length);
        for (auto at = std::lower_bound(filed.begin(), filed.end(), prefix, byName);
             at != filed.end() && at->name == prefix; ++at) {
            ordinals.push_back(at->ordinal);
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
