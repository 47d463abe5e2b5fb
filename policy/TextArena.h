// Text that lives as long as its owner, kept in large blocks: a generated
// directive file of a hundred thousand lines makes no allocation per line,
// and its text is freed block by block.
//
// Filled while directives load, then only read; no lock.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

class TextArena {
public:
    // Room for units code units, contiguous, valid as long as the arena.
    char16_t* allocate(size_t units) {
        if (units > capacity - used) {
            capacity = units > kBlockUnits ? units : kBlockUnits;
            blocks.push_back(std::make_unique_for_overwrite<char16_t[]>(capacity));
            used = 0;
        }
        char16_t* room = blocks.back().get() + used;
        used += units;
        return room;
    }

private:
    static constexpr size_t kBlockUnits = size_t{1} << 15;

    std::vector<std::unique_ptr<char16_t[]>> blocks;
    size_t capacity = 0;
    size_t used = 0;
};
