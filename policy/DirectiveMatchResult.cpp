#include "policy/DirectiveMatchResult.h"

#include <utility>

DirectiveMatchResult::DirectiveMatchResult(bool skippedGlobally, Groups skippedGroups, Groups matchedGroups,
                                           Groups unmatchedGroups)
    : skippedGlobally(skippedGlobally),
      skippedGroups(std::move(skippedGroups)),
      matchedGroups(std::move(matchedGroups)),
      unmatchedGroups(std::move(unmatchedGroups)) {}

IDirectiveGroup* DirectiveMatchResult::at(const Groups& groups, int index) {
    return index >= 0 && static_cast<size_t>(index) < groups.size() ? groups[index] : nullptr;
}
