#include <atomic>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "platform/Handles.h"
#include "platform/Synchronization.h"
#include "platform/Threads.h"

namespace {

struct Handshake {
    std::atomic<bool> release{false};
    std::atomic<int> seen{0};
    std::atomic<DWORD> threadId{0};
};

DWORD waitThenRecord(LPVOID parameter) {
    auto* handshake = static_cast<Handshake*>(parameter);
    handshake->threadId = GetCurrentThreadId();
    while (!handshake->release) {
        Sleep(1);
    }
    handshake->seen = 42;
    return 7;
}

void waitFor(const std::atomic<int>& value, int wanted) {
    while (value != wanted) {
        Sleep(1);
    }
}

}  // namespace

TEST(Threads, ThreadRunsOnAfterItsHandleIsClosed) {
    Handshake handshake;
    HANDLE thread = CreateThread(nullptr, 0, waitThenRecord, &handshake, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(CloseHandle(thread), TRUE);
    EXPECT_EQ(CloseHandle(thread), FALSE);
    handshake.release = true;
    waitFor(handshake.seen, 42);
    EXPECT_NE(handshake.threadId.load(), 0u);
    EXPECT_NE(handshake.threadId.load(), GetCurrentThreadId());
}

TEST(Threads, CurrentThreadIsOnePseudoHandleThatCannotBeClosed) {
    HANDLE here = GetCurrentThread();
    HANDLE there = nullptr;
    std::thread([&] { there = GetCurrentThread(); }).join();
    EXPECT_EQ(here, there);
    EXPECT_EQ(CloseHandle(here), FALSE);
    EXPECT_EQ(CloseHandle(nullptr), FALSE);
    EXPECT_EQ(GetCurrentThreadId(), static_cast<DWORD>(syscall(SYS_gettid)));
}

TEST(Threads, ThreadTimesWriteOnlyTheCallersCpuTimeInNanoseconds) {
    FILETIME creation{1, 2};
    FILETIME exit{3, 4};
    FILETIME kernel{5, 6};
    FILETIME user{0, 0};
    EXPECT_EQ(GetThreadTimes(GetCurrentThread(), &creation, &exit, &kernel, &user), TRUE);
    auto nanoseconds = [](const FILETIME& time) {
        return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    };
    ULONGLONG before = nanoseconds(user);
    EXPECT_GT(before, 0u);
    EXPECT_EQ(creation.dwLowDateTime, 1u);
    EXPECT_EQ(exit.dwHighDateTime, 4u);
    EXPECT_EQ(kernel.dwLowDateTime, 5u);

    // Burn at least 5 ms of CPU, measured by the thread's own clock.
    timespec start;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    timespec now = start;
    volatile unsigned long spin = 0;
    while ((now.tv_sec - start.tv_sec) * 1000000000L + (now.tv_nsec - start.tv_nsec) < 5000000L) {
        spin = spin + 1;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    }
    EXPECT_EQ(GetThreadTimes(GetCurrentThread(), nullptr, nullptr, nullptr, &user), TRUE);
    EXPECT_GE(nanoseconds(user) - before, 5000000u);
    EXPECT_EQ(GetThreadTimes(GetCurrentThread(), nullptr, nullptr, nullptr, nullptr), TRUE);
}

TEST(ThreadsDeathTest, UnsupportedArgumentsEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Handshake handshake;
    handshake.release = true;
    DWORD id = 0;
    int attributes = 0;
    EXPECT_DEATH(CreateThread(nullptr, 0, waitThenRecord, &handshake, 0, &id), "lpThreadId == __null");
    EXPECT_DEATH(CreateThread(nullptr, 0, waitThenRecord, &handshake, 4, nullptr), "dwCreationFlags == 0");
    EXPECT_DEATH(CreateThread(&attributes, 0, waitThenRecord, &handshake, 0, nullptr),
                 "lpThreadAttributes == __null");
    int other = 0;
    FILETIME user;
    EXPECT_DEATH(GetThreadTimes(&other, nullptr, nullptr, nullptr, &user), "hThread == GetCurrentThread()");
}
