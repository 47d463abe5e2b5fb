#include <gtest/gtest.h>
#include <time.h>

#include "platform/Clock.h"
#include "platform/Performance.h"
#include "platform/Threads.h"

TEST(Clock, CountersFollowTheMonotonicClock) {
    LARGE_INTEGER frequency{};
    EXPECT_EQ(QueryPerformanceFrequency(&frequency), TRUE);
    EXPECT_EQ(frequency.QuadPart, 1000000000L);

    timespec before;
    clock_gettime(CLOCK_MONOTONIC, &before);
    LARGE_INTEGER counter{};
    EXPECT_EQ(QueryPerformanceCounter(&counter), TRUE);
    ULONGLONG ticks = GetTickCount64();
    int64_t millis = Performance::GetTimeInMillis();
    timespec after;
    clock_gettime(CLOCK_MONOTONIC, &after);

    long low = before.tv_sec * 1000000000L + before.tv_nsec;
    long high = after.tv_sec * 1000000000L + after.tv_nsec;
    EXPECT_GE(counter.QuadPart, low);
    EXPECT_LE(counter.QuadPart, high);
    EXPECT_GE(ticks, static_cast<ULONGLONG>(low / 1000000));
    EXPECT_LE(ticks, static_cast<ULONGLONG>(high / 1000000));
    EXPECT_GE(millis, low / 1000000);
    EXPECT_LE(millis, high / 1000000);

    // Sleep waits at least its time, by both millisecond clocks.
    Sleep(20);
    EXPECT_GE(GetTickCount64() - ticks, 20u);
    EXPECT_GE(Performance::GetTimeInMillis() - millis, 20);
}

TEST(Clock, TickCountIsTheLowWordOfTheSixtyFourBitCount) {
    // Bracket the 32-bit reading between two 64-bit ones; when no 2^32 ms
    // boundary lies between them, it lies between their low words.
    for (int attempt = 0; attempt < 10; ++attempt) {
        ULONGLONG before = GetTickCount64();
        DWORD ticks = GetTickCount();
        ULONGLONG after = GetTickCount64();
        if ((before >> 32) != (after >> 32)) {
            continue;
        }
        EXPECT_GE(ticks, static_cast<DWORD>(before));
        EXPECT_LE(ticks, static_cast<DWORD>(after));
        return;
    }
    FAIL() << "the 64-bit tick count kept crossing a 32-bit boundary";
}
