// Text that lives as long as its owner, kept in large blocks: a generated
// directive file of a hundred thousand lines makes no allocation per line,
// and its text is freed block by block. Blocks double from the first size
// the owner gives up to 256 KB; all but the first, which a small file fills
// page by page, are mapped whole as they are made (see MemoryPages).
//
// Filled while directives load, then only read; no lock.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "platform/MemoryPages.h"

class TextArena {
public:
    explicit TextArena(size_t firstBlockUnits) : firstBlockUnits(firstBlockUnits) {}

    // Room for units code units, contiguous, valid as long as the arena.
    char16_t* allocate(size_t units) {
        if (units > capacity - used) {
            const size_t doublings = std::min(blocks.size(), kMostDoublings);
            const size_t block = std::min(firstBlockUnits << doublings, kLargestBlockUnits);
            capacity = units > block ? units : block;
            blocks.push_back(std::make_unique_for_overwrite<char16_t[]>(capacity));
            if (blocks.size() > 1) MemoryPages::populate(blocks.back().get(), capacity * sizeof(char16_t));
            used = 0;
        }
        char16_t* room = blocks.back().get() + used;
        used += units;
        return room;
    }

private:
    static constexpr size_t kLargestBlockUnits = size_t{1} << 17;
    static constexpr size_t kMostDoublings = 17;
    std::vector<std::unique_ptr<char16_t[]>> blocks;
    size_t firstBlockUnits;
    size_t capacity = 0;
    size_t used = 0;
};
