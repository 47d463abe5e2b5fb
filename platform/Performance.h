// A monotonic millisecond clock. Its origin is arbitrary: only differences
// between two readings mean anything.
#pragma once

#include <cstdint>

class Performance {
public:
    // -1 if the counter frequency cannot be had, -2 if the counter cannot.
    static int64_t GetTimeInMillis();
};
