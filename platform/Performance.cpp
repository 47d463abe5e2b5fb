#include "platform/Performance.h"

#include "platform/Clock.h"

namespace {

// Asked once; whoever comes first writes the same value.
LONGLONG counterFrequency() {
    static const LONGLONG frequency = [] {
        LARGE_INTEGER value;
        return QueryPerformanceFrequency(&value) ? value.QuadPart : 0;
    }();
    return frequency;
}

}  // namespace

int64_t Performance::GetTimeInMillis() {
    const LONGLONG frequency = counterFrequency();
    if (frequency <= 0) {
        return -1;
    }
    LARGE_INTEGER counter;
    if (!QueryPerformanceCounter(&counter)) {
        return -2;
    }
    // Counter times 1000 over frequency, split so that the product cannot
    // overflow after a long uptime.
    const LONGLONG ticks = counter.QuadPart;
    return ticks / frequency * 1000 + ticks % frequency * 1000 / frequency;
}
