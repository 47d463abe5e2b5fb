#include "policy/DirectiveMatchingCache.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "platform/FormattedOutput.h"
#include "policy/DirectiveController.h"
#include "policy/WCharSet.h"

namespace {

using NameRun = DirectiveGroupIndex::NameRun;

// How many steps ahead a candidate's class name is fetched; its group twice as far.
constexpr size_t kAhead = 16;

// A method name agrees with a listed one; names that agree have the same
// first unit, or one of them is empty.
bool agreesWith(const char16_t* listed, char16_t first, const char16_t* name) {
    return (first == name[0] || first == 0 || name[0] == 0) && WCharSet::agrees(listed, name);
}

// The first place at or after from of a group of the run that selects the
// method so named; nowhere if none does.
uint32_t firstMatchIn(const NameRun& run, const char16_t* name, uint32_t from) {
    uint32_t first = DirectiveMatchingCache::kNowhere;
    for (const DirectiveGroupIndex::MethodPlaces& method : std::span(run.methods, run.count)) {
        if (!agreesWith(method.name, method.first, name)) continue;
        const uint32_t* end = method.places + method.count;
        const uint32_t* at = std::lower_bound(method.places, end, from);
        if (at != end && *at < first) first = *at;
    }
    return first;
}

// The same over the runs.
uint32_t firstRunMatch(const std::vector<const NameRun*>& runs, const char16_t* name, uint32_t from) {
    uint32_t first = DirectiveMatchingCache::kNowhere;
    for (const NameRun* run : runs) first = std::min(first, firstMatchIn(*run, name, from));
    return first;
}

}  // namespace

DirectiveMatchingCache::DirectiveMatchingCache(int maxSize) : maxSize(maxSize) {}

void DirectiveMatchingCache::clear() {
    entries.clear();
    assemblies.clear();
    lastAssembly = nullptr;
    names = Names::Unknown;
}

const MethodNameGroups* DirectiveMatchingCache::namesDecide(IMetaDataContext* context,
                                                            const DirectiveGroupIndex& index) {
    if (names == Names::Unknown) {
        // No assembly has this name: a group that may match it may match any.
        const auto everywhere = [](IDirectiveGroup* group) {
            return group->mayMatchName(u"") && group->mayMatchAssembly(u"\x01");
        };
        names = index.empty() && std::ranges::none_of(index.general(), everywhere) ? Names::Decide : Names::Never;
    }
    char16_t* assembly = nullptr;
    if (names == Names::Never || FAILED(context->getAssemblyName(&assembly))) {
        return nullptr;
    }
    const std::u16string_view name(assembly);
    if (lastAssembly != nullptr && lastAssembly->first == name) {
        return lastAssembly->second.get();
    }
    auto entry = assemblies.find(name);
    if (entry == assemblies.end()) {
        auto known = std::make_unique<MethodNameGroups>();
        for (IDirectiveGroup* group : index.general()) {
            if (group->mayMatchAssembly(assembly)) known->add(group);
        }
        // The empty name is taken only by rules that may take any.
        entry = assemblies.emplace(name, known->mayMatchName(u"") ? nullptr : std::move(known)).first;
    }
    lastAssembly = &*entry;
    return entry->second.get();
}

bool DirectiveMatchingCache::mayTakeName(const MethodNameGroups& byNames, IMetaDataContext* context) {
    char16_t* method = nullptr;
    if (byNames.all().empty()) {
        return false;
    }
    if (FAILED(context->getMethodName(&method))) {
        return true;
    }
    return byNames.mayStartWith(method[0]) && byNames.mayMatchName(method);
}

bool DirectiveMatchingCache::shouldMonitor(IMetaDataContext* context, DirectiveController& controller) {
    // A rebuilt index empties the cache: entries hold the runs of the last.
    const DirectiveGroupIndex& index = controller.groupIndex();
    // The tests below fetch names as they need them: a class already in the
    // cache is mostly decided by the method's name alone.
    const ClassID classId = context->getClassID();
    auto entry = entries.find(classId);
    ClassMethodFilter& skips = controller.getSkipFilter();
    if (entry != entries.end()) {
        DirectiveMatchingMetaData& known = *entry->second;
        if ((known.byNames != nullptr && !mayTakeName(*known.byNames, context)) ||
            skips.skipClassMethod(context, known.globalRules)) {
            return false;
        }
        bool spoke = false;
        const bool answer = askMatched(context, known, spoke);
        return spoke ? answer : !known.complete && walk(context, known);
    }
    // Where every group is general, the assembly and the method's name mostly
    // decide at once: most searches for precompiled code of a service fall in
    // the framework's modules, where only the entry point's name could be
    // selected. No group covers such a method: no skip of one could veto it.
    const MethodNameGroups* byNames = namesDecide(context, index);
    if (byNames != nullptr && !mayTakeName(*byNames, context)) {
        return false;
    }
    const ClassMethodFilter::ClassRules rules = skips.rulesFor(context);
    if (skips.skipClassMethod(context, rules)) {
        return false;
    }
    if (classId != 0 && static_cast<int64_t>(entries.size()) < maxSize) {
        entry = entries.emplace(classId, std::make_unique<DirectiveMatchingMetaData>()).first;
        entry->second->globalRules = rules;
        entry->second->byNames = byNames;
        if (static_cast<int64_t>(entries.size()) == maxSize) {
            FILE* log = controller.getLog();
            if (log != nullptr) {
                fprintf_8(log, "Directive Matching Cache is saturated, Size = %d\n", static_cast<int>(entries.size()));
                fflush(log);
            }
        }
        DirectiveMatchingMetaData& known = *entry->second;
        controller.candidateRunsFor(context, known.candidates, known.runs);
        // A run's class test is one test of its name.
        std::erase_if(known.runs, [&](const NameRun* run) { return !run->sample->matchClass(context); });
        return walk(context, known);
    }
    return matchWithoutCache(context, controller);
}

bool DirectiveMatchingCache::askMatched(IMetaDataContext* context, DirectiveMatchingMetaData& known, bool& spoke) {
    for (; known.split < known.matchedGroups.size(); ++known.split) {
        const DirectiveMatchingMetaData::Placed& matched = known.matchedGroups[known.split];
        if (const char16_t* method = matched.group->soleMethod()) {
            known.soleMethods.push_back({method, matched.ordinal, method[0]});
        } else {
            known.others.push_back(matched);
        }
    }
    // The first name that agrees is the first group of its kind to match; a
    // run's groups count from the first up to where the walks have reached.
    uint32_t firstMatch = kNowhere;
    char16_t* name = nullptr;
    if ((!known.soleMethods.empty() || !known.runs.empty()) && SUCCEEDED(context->getMethodName(&name))) {
        for (const DirectiveMatchingMetaData::SoleMethod& method : known.soleMethods) {
            if (agreesWith(method.name, method.first, name)) {
                firstMatch = method.place;
                break;
            }
        }
        const uint32_t inRuns = firstRunMatch(known.runs, name, 0);
        if (inRuns <= known.reached && inRuns < firstMatch) firstMatch = inRuns;
    }
    spoke = true;
    for (const DirectiveMatchingMetaData::Placed& other : known.others) {
        if (other.ordinal > firstMatch) {
            break;
        }
        if (other.group->skipMethod(context)) {
            return false;
        }
        if (other.group->matchMethod(context)) {
            return true;
        }
    }
    spoke = firstMatch != kNowhere;
    return spoke;
}

bool DirectiveMatchingCache::walk(IMetaDataContext* context, DirectiveMatchingMetaData& known) {
    // The runs' first group that selects the method ends the walk there,
    // unless a group before it does.
    char16_t* name = nullptr;
    const uint32_t runMatch = known.runs.empty() || FAILED(context->getMethodName(&name))
                                  ? kNowhere
                                  : firstRunMatch(known.runs, name, known.reached);
    const size_t count = known.candidates.size();
    for (; known.next < count; ++known.next) {
        // A large file's groups for one class lie far apart: each group is
        // fetched some steps ahead, and its class name once the group is in.
        if (known.next + 2 * kAhead < count) {
            __builtin_prefetch(known.candidates[known.next + 2 * kAhead].group);
        }
        if (known.next + kAhead < count) {
            __builtin_prefetch(known.candidates[known.next + kAhead].group->soleClass().data());
        }
        const DirectiveMatchingMetaData::Placed& candidate = known.candidates[known.next];
        if (candidate.ordinal > runMatch) {
            break;
        }
        known.reached = candidate.ordinal;
        IDirectiveGroup* group = candidate.group;
        if (!group->isCreated() || !group->isActive()) {
            continue;
        }
        // Both tests only read; the class test goes first as it turns most groups away.
        if (!group->matchClass(context) || group->skipClass(context)) {
            continue;
        }
        // The group the last walk stopped at is met again.
        if (known.matchedGroups.empty() || known.matchedGroups.back().group != group) {
            known.matchedGroups.push_back(candidate);
        }
        if (group->skipMethod(context)) {
            continue;
        }
        if (group->matchMethod(context)) {
            return true;
        }
    }
    if (runMatch != kNowhere) {
        known.reached = runMatch;
        return true;
    }
    known.reached = kNowhere;
    known.complete = true;
    return false;
}

bool DirectiveMatchingCache::matchWithoutCache(IMetaDataContext* context, DirectiveController& controller) {
    controller.candidateRunsFor(context, candidates, runs);
    char16_t* name = nullptr;
    if (!runs.empty() && SUCCEEDED(context->getMethodName(&name))) {
        for (const NameRun* run : runs) {
            if (firstMatchIn(*run, name, 0) != kNowhere && run->sample->matchClass(context)) {
                return true;
            }
        }
    }
    for (const DirectiveMatchingMetaData::Placed& candidate : candidates) {
        IDirectiveGroup* group = candidate.group;
        if (group->isCreated() && group->isActive() && !group->skip(context) && group->matchClass(context) &&
            group->matchMethod(context)) {
            return true;
        }
    }
    return false;
}
