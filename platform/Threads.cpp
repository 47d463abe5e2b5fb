#include "platform/Threads.h"

#include <ctime>
#include <memory>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/Handles.h"
#include "platform/PalAssert.h"
#include "platform/ThreadHandleInternal.h"

namespace {

struct ThreadStart {
    LPTHREAD_START_ROUTINE routine;
    LPVOID parameter;
};

void* runThread(void* argument) {
    ThreadStart start = *static_cast<ThreadStart*>(argument);
    delete static_cast<ThreadStart*>(argument);
    start.routine(start.parameter);
    return nullptr;
}

}  // namespace

HANDLE CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                    LPVOID parameter, DWORD dwCreationFlags, LPDWORD lpThreadId) {
    PAL_ASSERT(lpThreadAttributes == NULL);
    PAL_ASSERT(dwCreationFlags == 0);
    PAL_ASSERT(lpThreadId == NULL);
    auto handle = std::make_unique<ThreadHandleInternal>();
    auto start = std::make_unique<ThreadStart>(ThreadStart{routine, parameter});
    if (pthread_create(&handle->thread, nullptr, runThread, start.get()) != 0) {
        // No thread (a limit of threads reached): no handle either, so that
        // nobody waits for a thread that never ran.
        return nullptr;
    }
    // The thread owns its start from here.
    start.release();
    return RegisterHandle(handle.release());
}

void JoinThread(HANDLE thread) {
    auto* handle = static_cast<ThreadHandleInternal*>(static_cast<HandleInternal*>(thread));
    if (handle->thread != 0) {
        pthread_join(handle->thread, nullptr);
    }
}

ScopedThread::ScopedThread(LPTHREAD_START_ROUTINE routine, LPVOID parameter) {
    try {
        thread = CreateThread(nullptr, 0, routine, parameter, 0, nullptr);
    } catch (const std::bad_alloc&) {
        thread = nullptr;
    }
}

ScopedThread::~ScopedThread() {
    if (thread != nullptr) {
        JoinThread(thread);
        CloseHandle(thread);
    }
}

HANDLE GetCurrentThread() {
    // The one pseudo-handle, never registered, never destroyed.
    static auto* sCurrentThread = new ThreadHandleInternal();
    return static_cast<HandleInternal*>(sCurrentThread);
}

DWORD GetCurrentThreadId() {
    return static_cast<DWORD>(syscall(SYS_gettid));
}

BOOL GetThreadTimes(HANDLE hThread, LPFILETIME creation, LPFILETIME exit, LPFILETIME kernel, LPFILETIME user) {
    PAL_ASSERT(hThread == GetCurrentThread());
    if (user == nullptr) {
        return TRUE;
    }
    // The pseudo-handle stands for whichever thread asks.
    clockid_t clock;
    timespec time;
    if (pthread_getcpuclockid(pthread_self(), &clock) == 0 && clock_gettime(clock, &time) == 0) {
        ULONGLONG nanoseconds = static_cast<ULONGLONG>(time.tv_sec) * 1000000000UL + time.tv_nsec;
        user->dwLowDateTime = static_cast<DWORD>(nanoseconds);
        user->dwHighDateTime = static_cast<DWORD>(nanoseconds >> 32);
    }
    return TRUE;
}

void Sleep(DWORD milliseconds) {
    usleep(milliseconds * 1000);
}
