#include "policy/DirectiveMatchingCache.h"

#include <algorithm>

#include "platform/FormattedOutput.h"
#include "policy/DirectiveController.h"

DirectiveMatchingCache::DirectiveMatchingCache(int maxSize) : maxSize(maxSize) {}

DirectiveMatchingCache::~DirectiveMatchingCache() {
    clear();
}

void DirectiveMatchingCache::clear() {
    for (auto& [classId, entry] : entries) {
        delete entry;
    }
    entries.clear();
}

bool DirectiveMatchingCache::shouldMonitor(IMetaDataContext* context, DirectiveController& controller) {
    // The tests below fetch names as they need them: a class already in the
    // cache is mostly decided by the method's name alone.
    const ClassID classId = context->getClassID();
    auto entry = entries.find(classId);
    if (entry != entries.end()) {
        DirectiveMatchingMetaData& known = *entry->second;
        for (auto& [name, group] : known.matchedGroups) {
            if (group->skipMethod(context)) {
                return false;
            }
            if (group->matchMethod(context)) {
                return true;
            }
        }
        if (known.complete) {
            return false;
        }
        return walk(context, controller, &known.resumeGroup, entry);
    }
    if (classId != 0 && static_cast<int64_t>(entries.size()) < maxSize) {
        entry = entries.emplace(classId, new DirectiveMatchingMetaData(false)).first;
        if (static_cast<int64_t>(entries.size()) == maxSize) {
            FILE* log = controller.getLog();
            if (log != nullptr) {
                fprintf_8(log, "Directive Matching Cache is saturated, Size = %d\n", static_cast<int>(entries.size()));
                fflush(log);
            }
        }
        return walk(context, controller, nullptr, entry);
    }
    return matchWithoutCache(context, controller);
}

bool DirectiveMatchingCache::walk(IMetaDataContext* context, DirectiveController& controller,
                                  const std::u16string* resumeGroup, Entries::iterator entry) {
    controller.candidatesFor(context, candidates);
    auto from = candidates.begin();
    if (resumeGroup != nullptr) {
        // The group the last walk stopped at is met again.
        from = std::lower_bound(candidates.begin(), candidates.end(), *resumeGroup,
                                [](const DirectiveGroupIndex::Entry* candidate, const std::u16string& name) {
                                    return candidate->first < name;
                                });
    }
    bool found = false;
    incrementalBuildAndLookup(context, from, entry, found);
    if (!found) {
        entry->second->complete = true;
    }
    return found;
}

void DirectiveMatchingCache::incrementalBuildAndLookup(IMetaDataContext* context,
                                                       DirectiveGroupIndex::Candidates::iterator& groupIterator,
                                                       Entries::iterator& entryIterator, bool& found) {
    for (; groupIterator != candidates.end(); ++groupIterator) {
        IDirectiveGroup* group = (*groupIterator)->second;
        if (!group->isCreated() || !group->isActive()) {
            continue;
        }
        // Both tests only read; the class test goes first as it turns most groups away.
        if (!group->matchClass(context) || group->skipClass(context)) {
            continue;
        }
        entryIterator->second->matchedGroups.emplace(group->getName(), group);
        if (group->skipMethod(context)) {
            continue;
        }
        if (group->matchMethod(context)) {
            entryIterator->second->resumeGroup = (*groupIterator)->first;
            found = true;
            return;
        }
    }
}

bool DirectiveMatchingCache::matchWithoutCache(IMetaDataContext* context, DirectiveController& controller) {
    controller.candidatesFor(context, candidates);
    for (const DirectiveGroupIndex::Entry* candidate : candidates) {
        IDirectiveGroup* group = candidate->second;
        if (group->isCreated() && group->isActive() && !group->skip(context) && group->match(context)) {
            return true;
        }
    }
    return false;
}
