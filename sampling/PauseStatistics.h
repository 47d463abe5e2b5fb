// How long the sampling passes kept the runtime stopped: a histogram of 10 µs
// buckets up to 20 ms, enough for the median, and the exact worst pause.
// Not synchronised: the sampling thread records under the session lock.
#pragma once

#include <cstdint>

class PauseStatistics {
public:
    void record(int64_t nanoseconds);
    uint32_t count() const { return passes; }
    // Upper bound of the bucket that holds the middle pass, in microseconds.
    int64_t medianMicroseconds() const;
    int64_t worstMicroseconds() const { return worst / 1000; }

private:
    static constexpr int kBuckets = 2000;
    static constexpr int64_t kBucketNanoseconds = 10000;
    uint32_t buckets[kBuckets] = {};
    uint32_t passes = 0;
    int64_t worst = 0;
};
