// The first units of many names, to tell at little cost that a name agrees
// with none of them. Names agree as the class sets compare them: one is a
// prefix of the other, so two names that agree share their first four units,
// or the shorter one whole. A directive index asks here before it sorts its
// names: most classes of a process agree with none of a generated file's.
//
// Kept as bits, the heads may say that a name agrees where none does, never
// the reverse. No lock inside: filled, then only read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class NameHeads {
public:
    // Empty, with room for about that many names once the first is added.
    void reset(size_t names);
    void add(std::u16string_view name);
    // False only where no name added agrees with this one.
    bool mayAgree(std::u16string_view name) const;

private:
    static constexpr size_t kHead = 4;
    // Marks a key of a whole head, or of a name shorter than one.
    static constexpr uint64_t kWhole = 0xA5A5A5A5A5A5A5A5u;

    // The key of a name's first units, whole or as the beginning of a longer
    // name.
    static uint64_t keyOf(std::u16string_view units, bool whole);
    uint64_t bitOf(uint64_t key) const;
    void set(uint64_t key);
    bool has(uint64_t key) const;

    size_t expected = 0;
    // The key of the last name's head.
    uint64_t lastWhole = 0;
    std::vector<uint64_t> bits;
    // The lengths below a head's of the names added, as bits.
    unsigned shortLengths = 0;
};
