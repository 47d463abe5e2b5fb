#include "sampling/PauseStatistics.h"

#include <algorithm>

void PauseStatistics::record(int64_t nanoseconds) {
    const int64_t bucket = std::clamp<int64_t>(nanoseconds / kBucketNanoseconds, 0, kBuckets - 1);
    ++buckets[bucket];
    ++passes;
    worst = std::max(worst, nanoseconds);
}

int64_t PauseStatistics::medianMicroseconds() const {
    uint32_t seen = 0;
    for (int bucket = 0; bucket < kBuckets; ++bucket) {
        seen += buckets[bucket];
        if (passes != 0 && seen * 2 >= passes) {
            return (bucket + 1) * kBucketNanoseconds / 1000;
        }
    }
    return 0;
}
