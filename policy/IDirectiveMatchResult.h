// The full account of which live groups select, skip or pass over a method:
// the explanatory form of the yes-or-no decision.
//
// Contract: the groups are borrowed from the directive controller and live as
// long as it does; the caller owns the result and deletes it.
#pragma once

#include "policy/IDirectiveGroup.h"

class IDirectiveMatchResult {
public:
    virtual ~IDirectiveMatchResult() = default;

    // The global filter skipped the method; the lists are then empty.
    virtual bool isSkippedGlobally() = 0;
    virtual int getSkippedCount() = 0;
    virtual int getMatchedCount() = 0;
    virtual int getUnmatchedCount() = 0;
    // Null for an index out of range.
    virtual IDirectiveGroup* getSkippedGroup(int index) = 0;
    virtual IDirectiveGroup* getMatchedGroup(int index) = 0;
    virtual IDirectiveGroup* getUnmatchedGroup(int index) = 0;
};
