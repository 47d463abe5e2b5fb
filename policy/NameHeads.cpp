#include "policy/NameHeads.h"

#include <algorithm>
#include <bit>

namespace {

// Bits for each name: few enough heads share a bit that a false yes, which
// costs a lookup the sort, is rare.
constexpr size_t kBitsPerName = 16;
constexpr size_t kFewestBits = 64;

}  // namespace

void NameHeads::reset(size_t names) {
    expected = names;
    bits.clear();
    shortLengths = 0;
}

uint64_t NameHeads::keyOf(std::u16string_view units, bool whole) {
    // No name holds a zero unit: the units as one number tell their length.
    uint64_t key = 0;
    for (char16_t unit : units) key = key << 16 | unit;
    return whole ? key ^ kWhole : key;
}

uint64_t NameHeads::bitOf(uint64_t key) const {
    return (key * 0x9E3779B97F4A7C15u) >> (64 - std::countr_zero(bits.size() * 64));
}

void NameHeads::set(uint64_t key) {
    const uint64_t bit = bitOf(key);
    bits[bit / 64] |= uint64_t{1} << (bit % 64);
}

bool NameHeads::has(uint64_t key) const {
    const uint64_t bit = bitOf(key);
    return (bits[bit / 64] >> (bit % 64) & 1) != 0;
}

void NameHeads::add(std::u16string_view name) {
    const bool first = bits.empty();
    if (first) bits.assign(std::bit_ceil(std::max(kFewestBits, expected * kBitsPerName)) / 64, 0);
    // The head whole; a class name shorter than a head finds the longer
    // names it begins by their first units. A generated file's names come
    // with the head of the name before, whose bits are set already.
    const size_t head = std::min(name.size(), kHead);
    const uint64_t whole = keyOf(name.substr(0, head), true);
    if (!first && whole == lastWhole) {
        return;
    }
    lastWhole = whole;
    uint64_t key = 0;
    for (size_t length = 1; length < head; ++length) {
        key = key << 16 | name[length - 1];
        set(key);
    }
    set(whole);
    if (name.size() < kHead) shortLengths |= 1u << name.size();
}

bool NameHeads::mayAgree(std::u16string_view name) const {
    if (bits.empty()) return false;
    // The empty name begins every name.
    if (name.empty()) return true;
    // A name of a head or longer agrees with one that shares its head;
    // a shorter one with a longer name that it begins.
    if (name.size() >= kHead ? has(keyOf(name.substr(0, kHead), true)) : has(keyOf(name, false))) return true;
    // Either agrees with a shorter name that it begins, or that equals it.
    for (size_t length = 0; length <= std::min(name.size(), kHead - 1); ++length) {
        if ((shortLengths >> length & 1) != 0 && has(keyOf(name.substr(0, length), true))) return true;
    }
    return false;
}
