#include "rewrite/VerifiedCallees.h"

namespace {

constexpr size_t kFirstSlots = 64;

}  // namespace

// Tokens of one table differ in their low bits only: a multiplicative hash
// spreads them over the whole table.
size_t VerifiedCallees::home(unsigned int token) const {
    return (static_cast<size_t>(token) * 0x9E3779B97F4A7C15ull >> 32) & (slots.size() - 1);
}

const VerifiedCallee* VerifiedCallees::find(unsigned int token) const {
    if (token == 0 || slots.empty()) return nullptr;
    for (size_t at = home(token);; at = (at + 1) & (slots.size() - 1)) {
        if (slots[at].token == token) return &slots[at].callee;
        if (slots[at].token == 0) return nullptr;
    }
}

const VerifiedCallee* VerifiedCallees::add(unsigned int token, const VerifiedCallee& callee) {
    // At most three quarters full, so that a lookup meets a free slot soon.
    if (4 * (count + 1) > 3 * slots.size()) grow();
    size_t at = home(token);
    while (slots[at].token != 0 && slots[at].token != token) at = (at + 1) & (slots.size() - 1);
    if (slots[at].token == 0) ++count;
    slots[at] = Slot{token, callee};
    return &slots[at].callee;
}

void VerifiedCallees::grow() {
    std::vector<Slot> old(slots.empty() ? kFirstSlots : 2 * slots.size());
    old.swap(slots);
    count = 0;
    for (const Slot& slot : old) {
        if (slot.token != 0) add(slot.token, slot.callee);
    }
}
