#include "policy/DirectiveController.h"

#include <cstring>
#include <new>
#include <string_view>

#include "platform/MemoryPages.h"
#include "policy/DirectiveKeywords.h"
#include "policy/DirectiveLineReader.h"
#include "policy/DirectiveMatchResult.h"
#include "runtime/CorErrors.h"

IDirectiveController* IDirectiveController::newInstance(FILE* log) {
    return new DirectiveController(log);
}

DirectiveController::DirectiveController(FILE* log)
    : log(log), cache(new DirectiveMatchingCache(kDefaultCacheSize)) {}

DirectiveController::~DirectiveController() = default;

IDirectiveGroup* DirectiveController::getDirectiveGroup(const char16_t* name) {
    if (name == nullptr) {
        return nullptr;
    }
    if (ClassLineGroup* line = lineGroups.find(name)) {
        return line;
    }
    auto found = groups.find(name);
    return found == groups.end() ? nullptr : &found->second;
}

IDirectiveGroup* DirectiveController::addDirectiveGroup(const char16_t* name) {
    if (name == nullptr) {
        return nullptr;
    }
    // The caller may change the group: the index is made again before its next use.
    indexStale = true;
    if (ClassLineGroup* line = lineGroups.find(name)) {
        return line;
    }
    const std::u16string_view key(name);
    auto entry = groups.lower_bound(key);
    if (entry == groups.end() || entry->first != key) {
        char16_t* owned = groupNames.allocate(key.size() + 1);
        std::copy_n(name, key.size() + 1, owned);
        entry = groups.emplace_hint(entry, std::piecewise_construct, std::forward_as_tuple(owned, key.size()),
                                    std::forward_as_tuple(owned));
        anonymousNamesTaken = anonymousNamesTaken || key.starts_with(ClassLineGroups::kNamePrefix);
    }
    return &entry->second;
}

IDirectiveGroup* DirectiveController::addAnonymousDirectiveGroup() {
    char16_t name[ClassLineGroups::kNameSize];
    ClassLineGroups::nameOf(static_cast<uint32_t>(anonymousCount++), name);
    const bool taken = anonymousNamesTaken;
    IDirectiveGroup* group = addDirectiveGroup(name);
    // Its number is spent: no later line's group can be given its name.
    anonymousNamesTaken = taken;
    if (group != nullptr) {
        group->setActive(true);
        group->setCreated();
    }
    return group;
}

ClassLineGroup* DirectiveController::addClassLineGroup(std::u16string_view className, std::u16string_view method) {
    if (className.empty()) {
        return nullptr;
    }
    const auto number = static_cast<uint32_t>(anonymousCount);
    // Only a named group can have taken the name; most files name none so.
    if (anonymousNamesTaken) {
        char16_t name[ClassLineGroups::kNameSize];
        ClassLineGroups::nameOf(number, name);
        if (groups.find(name) != groups.end()) {
            return nullptr;
        }
    }
    ClassLineGroup* group = lineGroups.add(number, className, method);
    if (group != nullptr) {
        ++anonymousCount;
        indexStale = true;
    }
    return group;
}

DirectiveGroupIndex::Candidates DirectiveController::groupsInOrder() {
    DirectiveGroupIndex::Candidates ordered;
    MemoryPages::reserve(ordered, groups.size() + lineGroups.size());
    // Whether a named group comes before a line group, whose name is not
    // kept: a name without the line groups' prefix comes before all of their
    // names or after all.
    const auto before = [](std::u16string_view named, const ClassLineGroup& line) {
        if (!named.starts_with(ClassLineGroups::kNamePrefix)) {
            return CodeUnitOrder{}(named, ClassLineGroups::kNamePrefix);
        }
        char16_t text[ClassLineGroups::kNameSize];
        return CodeUnitOrder{}(named, {text, ClassLineGroups::nameOf(line.getNumber(), text)});
    };
    auto entry = groups.begin();
    lineGroups.inNameOrder([&](ClassLineGroup* line) {
        for (; entry != groups.end() && before(entry->first, *line); ++entry) {
            ordered.push_back(&entry->second);
        }
        ordered.push_back(line);
    });
    for (; entry != groups.end(); ++entry) {
        ordered.push_back(&entry->second);
    }
    return ordered;
}

const DirectiveGroupIndex& DirectiveController::groupIndex() {
    if (indexStale) {
        // Cached classes hold runs of the index they were decided with.
        cache->clear();
        index.rebuild(groupsInOrder());
        indexStale = false;
    }
    return index;
}

DirectiveGroupIndex::Parents DirectiveController::parentsOf(IMetaDataContext* context,
                                                            const DirectiveGroupIndex& index) {
    DirectiveGroupIndex::Parents parents;
    if (!index.filesParents()) return parents;
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    if (SUCCEEDED(context->getParentName(&assembly, &className))) parents.push_back({assembly, className});
    char16_t** assemblies = nullptr;
    char16_t** classes = nullptr;
    unsigned int count = 0;
    if (SUCCEEDED(context->getInterfaces(&assemblies, &classes, &count))) {
        for (unsigned int i = 0; i < count; ++i) parents.push_back({assemblies[i], classes[i]});
    }
    return parents;
}

void DirectiveController::candidateRunsFor(IMetaDataContext* context, std::vector<DirectiveGroupIndex::Placed>& groups,
                                           std::vector<const DirectiveGroupIndex::NameRun*>& runs) {
    const DirectiveGroupIndex& current = groupIndex();
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    // A filed group's class test fails without a class name.
    if (!current.empty() && FAILED(context->getClassName(&assembly, &className))) {
        className = nullptr;
    }
    current.candidateRuns(assembly, className, parentsOf(context, current), groups, runs);
}

bool DirectiveController::shouldMonitor(IMetaDataContext* context) {
    return cache->shouldMonitor(context, *this);
}

IDirectiveMatchResult* DirectiveController::shouldMonitorResult(IMetaDataContext* context) {
    DirectiveMatchResult::Groups skipped;
    DirectiveMatchResult::Groups matched;
    DirectiveMatchResult::Groups unmatched;
    const bool skippedGlobally = skips.skipClassMethod(context);
    if (!skippedGlobally) {
        for (IDirectiveGroup* group : allGroups()) {
            if (!group->isCreated() || !group->isActive()) {
                continue;
            }
            if (group->skip(context)) {
                skipped.push_back(group);
            } else if (group->match(context)) {
                matched.push_back(group);
            } else {
                unmatched.push_back(group);
            }
        }
    }
    return new DirectiveMatchResult(skippedGlobally, std::move(skipped), std::move(matched), std::move(unmatched));
}

HRESULT DirectiveController::readDirectives(FILE* stream) {
    indexStale = true;
    return DirectiveLineReader::read(stream, [this](const DirectiveLine& line) { return applyDirective(line); });
}

HRESULT DirectiveController::readDirective(char16_t* line) {
    indexStale = true;
    DirectiveLine parsed;
    return DirectiveKeywords::parse(line, parsed) ? applyDirective(parsed) : S_OK;
}

HRESULT DirectiveController::applyDirective(const DirectiveLine& parsed) {
    try {
        // A generated file repeats one keyword line after line.
        const std::u16string_view text(parsed.keyword, parsed.keywordLength);
        if (parsed.count != lastKeyword.count || text.size() != lastKeyword.text.size() ||
            std::memcmp(text.data(), lastKeyword.text.data(), text.size() * sizeof(char16_t)) != 0) {
            lastKeyword.text = text;
            lastKeyword.count = parsed.count;
            lastKeyword.found = DirectiveKeywords::find(parsed);
        }
        const DirectiveKeywords::Keyword* keyword = lastKeyword.found;
        return keyword != nullptr && keyword->apply != nullptr ? keyword->apply(*this, parsed) : S_OK;
    } catch (const std::bad_alloc&) {
        // The rules read so far stand; the reader stops here.
        return E_FAIL;
    }
}
