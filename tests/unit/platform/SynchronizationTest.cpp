#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

#include "platform/EventHandleInternal.h"
#include "platform/Handles.h"
#include "platform/Synchronization.h"
#include "platform/Threads.h"

namespace {

bool anotherThreadCanLock(pthread_mutex_t& mutex) {
    int result = -1;
    std::thread([&] {
        result = pthread_mutex_trylock(&mutex);
        if (result == 0) {
            pthread_mutex_unlock(&mutex);
        }
    }).join();
    return result == 0;
}

pthread_mutex_t& mutexOf(HANDLE event) {
    return static_cast<EventHandleInternal*>(static_cast<HandleInternal*>(event))->mutex;
}

// One waiter on a condition variable, and a waker that wakes it only once it
// is known to be waiting: the flag is set under the critical section, which
// the waiter gives up only inside the wait.
struct WaitScene {
    CRITICAL_SECTION section;
    CONDITION_VARIABLE condition;
    bool waiting = false;
    std::atomic<int> result{-1};

    WaitScene() {
        InitializeCriticalSection(&section);
        InitializeConditionVariable(&condition);
    }
    ~WaitScene() {
        pthread_cond_destroy(&condition);
        DeleteCriticalSection(&section);
    }
    void wait(int timeoutMs) {
        EnterCriticalSection(&section);
        waiting = true;
        result = SleepConditionVariableCS(&condition, &section, timeoutMs);
        waiting = false;
        LeaveCriticalSection(&section);
    }
    void wakeOnceWaiting() {
        while (result == -1) {
            EnterCriticalSection(&section);
            if (waiting) {
                WakeConditionVariable(&condition);
            }
            LeaveCriticalSection(&section);
            Sleep(1);
        }
    }
};

}  // namespace

TEST(Synchronization, CriticalSectionIsRecursive) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    EXPECT_FALSE(anotherThreadCanLock(section));
    LeaveCriticalSection(&section);
    EXPECT_FALSE(anotherThreadCanLock(section));
    LeaveCriticalSection(&section);
    EXPECT_TRUE(anotherThreadCanLock(section));
    DeleteCriticalSection(&section);
}

TEST(Synchronization, SleepConditionVariableAnswersOneForTimeOutZeroForWake) {
    WaitScene lonely;
    lonely.wait(20);
    EXPECT_EQ(lonely.result, 1);

    WaitScene woken;
    std::thread waiter([&] { woken.wait(2000); });
    woken.wakeOnceWaiting();
    waiter.join();
    EXPECT_EQ(woken.result, 0);

    WaitScene unlimited;
    std::thread foreverWaiter([&] { unlimited.wait(-1); });
    unlimited.wakeOnceWaiting();
    foreverWaiter.join();
    EXPECT_EQ(unlimited.result, 0);
}

TEST(Synchronization, SetEventBeforeTheWaitIsLost) {
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(SetEvent(event), TRUE);
    EXPECT_EQ(ResetEvent(event), TRUE);
    EXPECT_EQ(WaitForSingleObject(event, 30), WAIT_TIMEOUT);
    // The timed-out wait keeps the event's mutex, which is recursive: this
    // thread may wait again, while another thread is shut out.
    EXPECT_EQ(WaitForSingleObject(event, 10), WAIT_TIMEOUT);
    std::atomic<DWORD> otherResult{0xFFFF};
    std::thread other([&] { otherResult = WaitForSingleObject(event, 10); });
    Sleep(50);
    EXPECT_EQ(otherResult, 0xFFFFu);
    // Give up both holds: the other thread gets in and times out in turn.
    pthread_mutex_unlock(&mutexOf(event));
    pthread_mutex_unlock(&mutexOf(event));
    other.join();
    EXPECT_EQ(otherResult, WAIT_TIMEOUT);
    EXPECT_EQ(CloseHandle(event), TRUE);
    EXPECT_EQ(CloseHandle(event), FALSE);
}

TEST(Synchronization, SetEventWakesAThreadThatIsWaiting) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<DWORD> result{0xFFFF};
    std::thread waiter([&] { result = WaitForSingleObject(event, 2000); });
    // A SetEvent before the waiter is inside its wait is lost; repeat it.
    while (result == 0xFFFFu) {
        SetEvent(event);
        Sleep(1);
    }
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
    // The woken wait left the mutex: another thread can take it.
    EXPECT_TRUE(anotherThreadCanLock(mutexOf(event)));
    EXPECT_EQ(CloseHandle(event), TRUE);
}
