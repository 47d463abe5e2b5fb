// Callees read so far, by token. A module's tokens keep their signatures for
// its life, so that a caller may keep one table for each module.
//
// The check looks a callee up at every call it meets, in a table that holds
// thousands for a large module and is cold by the time the next method
// compiles: open addressing puts the token beside its callee, one cache line
// for a lookup where a node-based map took three.
//
// Contract: not thread-safe (the caller's lock guards its module's table);
// add throws std::bad_alloc.
#pragma once

#include <cstddef>
#include <vector>

#include "rewrite/CalleeSignatures.h"

class VerifiedCallees {
public:
    // The callee kept for a token, or null. The pointer holds until the next add.
    const VerifiedCallee* find(unsigned int token) const;
    // Keeps the callee of a token that has none kept yet; where it is kept.
    const VerifiedCallee* add(unsigned int token, const VerifiedCallee& callee);
    size_t size() const { return count; }

private:
    // Token 0 marks a free slot: no call names the nil token and finds a
    // signature for it.
    struct Slot {
        unsigned int token = 0;
        VerifiedCallee callee;
    };

    size_t home(unsigned int token) const;
    void grow();

    std::vector<Slot> slots;
    size_t count = 0;
};
