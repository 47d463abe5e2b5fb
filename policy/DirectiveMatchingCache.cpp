#include "policy/DirectiveMatchingCache.h"

#include <cstdint>

#include "platform/FormattedOutput.h"
#include "policy/DirectiveController.h"
#include "policy/FiledAnswers.h"
#include "policy/WCharSet.h"

namespace {

// How many steps ahead a candidate's class name is fetched; its group twice as far.
constexpr size_t kAhead = 16;

// The name is among the first sole methods listed; only the first few are
// compared, so that a class with thousands of them costs no more per name.
bool listedEarly(const std::vector<DirectiveMatchingMetaData::SoleMethod>& listed, const char16_t* name) {
    const size_t compared = listed.size() < 32 ? listed.size() : 32;
    for (size_t i = 0; i < compared; ++i) {
        if (listed[i].first != name[0]) continue;
        const char16_t* a = listed[i].name;
        const char16_t* b = name;
        for (; *a != 0 && *a == *b; ++a, ++b) {
        }
        if (*a == *b) return true;
    }
    return false;
}

}  // namespace

DirectiveMatchingCache::DirectiveMatchingCache(int maxSize) : maxSize(maxSize) {}

void DirectiveMatchingCache::clear() {
    entries.clear();
}

bool DirectiveMatchingCache::shouldMonitor(IMetaDataContext* context, DirectiveController& controller) {
    // The tests below fetch names as they need them: a class already in the
    // cache is mostly decided by the method's name alone.
    const ClassID classId = context->getClassID();
    auto entry = entries.find(classId);
    ClassMethodFilter& skips = controller.getSkipFilter();
    if (entry != entries.end()) {
        DirectiveMatchingMetaData& known = *entry->second;
        if (skips.skipClassMethod(context, known.globalRules)) {
            return false;
        }
        bool spoke = false;
        const bool answer = askMatched(context, known, spoke);
        return spoke ? answer : !known.complete && walk(context, known);
    }
    const ClassMethodFilter::ClassRules rules = skips.rulesFor(context);
    if (skips.skipClassMethod(context, rules)) {
        return false;
    }
    if (classId != 0 && static_cast<int64_t>(entries.size()) < maxSize) {
        entry = entries.emplace(classId, std::make_unique<DirectiveMatchingMetaData>()).first;
        entry->second->globalRules = rules;
        if (static_cast<int64_t>(entries.size()) == maxSize) {
            FILE* log = controller.getLog();
            if (log != nullptr) {
                fprintf_8(log, "Directive Matching Cache is saturated, Size = %d\n", static_cast<int>(entries.size()));
                fflush(log);
            }
        }
        controller.candidatesFor(context, entry->second->candidates);
        return walk(context, *entry->second);
    }
    return matchWithoutCache(context, controller);
}

bool DirectiveMatchingCache::askMatched(IMetaDataContext* context, DirectiveMatchingMetaData& known, bool& spoke) {
    for (; known.split < known.matchedGroups.size(); ++known.split) {
        const auto place = static_cast<uint32_t>(known.split);
        if (const char16_t* method = known.matchedGroups[place]->soleMethod()) {
            // A name already listed answers first: a generated file names a
            // class's few methods over and over.
            if (!listedEarly(known.soleMethods, method)) known.soleMethods.push_back({method, place, method[0]});
        } else {
            known.others.push_back(place);
        }
    }
    // The first name that agrees is the first group of its kind to match.
    uint32_t firstMatch = UINT32_MAX;
    char16_t* name = nullptr;
    if (!known.soleMethods.empty() && SUCCEEDED(context->getMethodName(&name))) {
        for (const DirectiveMatchingMetaData::SoleMethod& method : known.soleMethods) {
            // Names that agree have the same first unit, or one of them is empty.
            if ((method.first == name[0] || method.first == 0 || name[0] == 0) && WCharSet::agrees(method.name, name)) {
                firstMatch = method.place;
                break;
            }
        }
    }
    spoke = true;
    for (uint32_t place : known.others) {
        if (place > firstMatch) {
            break;
        }
        IDirectiveGroup* group = known.matchedGroups[place];
        if (group->skipMethod(context)) {
            return false;
        }
        if (group->matchMethod(context)) {
            return true;
        }
    }
    spoke = firstMatch != UINT32_MAX;
    return spoke;
}

bool DirectiveMatchingCache::walk(IMetaDataContext* context, DirectiveMatchingMetaData& known) {
    const size_t count = known.candidates.size();
    for (; known.next < count; ++known.next) {
        // A large file's groups for one class lie far apart: each group is
        // fetched some steps ahead, and its class name once the group is in.
        if (known.next + 2 * kAhead < count) {
            __builtin_prefetch(known.candidates[known.next + 2 * kAhead]);
        }
        if (known.next + kAhead < count) {
            if (const char16_t* name = known.candidates[known.next + kAhead]->soleClass()) {
                __builtin_prefetch(name);
            }
        }
        IDirectiveGroup* group = known.candidates[known.next];
        if (!group->isCreated() || !group->isActive()) {
            continue;
        }
        // Both tests only read; the class test goes first as it turns most groups away.
        if (!group->matchClass(context) || group->skipClass(context)) {
            continue;
        }
        // The group the last walk stopped at is met again.
        if (known.matchedGroups.empty() || known.matchedGroups.back() != group) {
            known.matchedGroups.push_back(group);
        }
        if (group->skipMethod(context)) {
            continue;
        }
        if (group->matchMethod(context)) {
            return true;
        }
    }
    known.complete = true;
    return false;
}

bool DirectiveMatchingCache::matchWithoutCache(IMetaDataContext* context, DirectiveController& controller) {
    controller.candidatesFor(context, candidates, &candidateNames);
    FiledAnswers answers;
    const auto takes = [&](IDirectiveGroup* group) {
        return group->isCreated() && group->isActive() && !group->skip(context) && group->matchClass(context);
    };
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (answers.answer(candidates[i], candidateNames[i], takes) && candidates[i]->matchMethod(context)) {
            return true;
        }
    }
    return false;
}
