#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "platform/Performance.h"

namespace {

int64_t monotonicMillis()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

} // namespace

TEST(Performance, MillisecondsFollowTheMonotonicClock)
{
    const int64_t before = monotonicMillis();
    const int64_t first = Performance::GetTimeInMillis();
    const int64_t after = monotonicMillis();
    EXPECT_GE(first, before);
    EXPECT_LE(first, after);

    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const int64_t second = Performance::GetTimeInMillis();
    EXPECT_GE(second - first, 30);
}
