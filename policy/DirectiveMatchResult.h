// The match result.
#pragma once

#include <vector>

#include "policy/IDirectiveMatchResult.h"

class DirectiveMatchResult : public IDirectiveMatchResult {
public:
    using Groups = std::vector<IDirectiveGroup*>;

    DirectiveMatchResult(bool skippedGlobally, Groups skippedGroups, Groups matchedGroups, Groups unmatchedGroups);

    bool isSkippedGlobally() override { return skippedGlobally; }
    int getSkippedCount() override { return static_cast<int>(skippedGroups.size()); }
    int getMatchedCount() override { return static_cast<int>(matchedGroups.size()); }
    int getUnmatchedCount() override { return static_cast<int>(unmatchedGroups.size()); }
    IDirectiveGroup* getSkippedGroup(int index) override { return at(skippedGroups, index); }
    IDirectiveGroup* getMatchedGroup(int index) override { return at(matchedGroups, index); }
    IDirectiveGroup* getUnmatchedGroup(int index) override { return at(unmatchedGroups, index); }

private:
    static IDirectiveGroup* at(const Groups& groups, int index);

    bool skippedGlobally;
    Groups skippedGroups;
    Groups matchedGroups;
    Groups unmatchedGroups;
};
