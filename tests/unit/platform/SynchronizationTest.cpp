#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

#include "platform/EventHandleInternal.h"
#include "platform/Handles.h"
#include "platform/Synchronization.h"
#include "platform/Threads.h"

namespace {

pthread_mutex_t& mutexOf(HANDLE event) {
    return static_cast<EventHandleInternal*>(static_cast<HandleInternal*>(event))->mutex;
}

}  // namespace

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
