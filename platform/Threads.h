// Threads and CPU time.
#pragma once

#include "platform/Win32Types.h"

// attributes must be null, flags 0 and threadId null; stackSize is ignored. The
// routine's result is dropped. Close the handle with CloseHandle. Null where no
// thread can be had.
HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                    LPVOID parameter, DWORD flags, LPDWORD threadId);
// Waits until the thread of a handle from CreateThread has returned. Once only
// for each thread; the handle still needs CloseHandle.
void JoinThread(HANDLE thread);

// A thread that is waited for and closed when the scope that started it ends,
// however it ends; none where no thread can be had (the caller then does the
// work itself).
class ScopedThread {
public:
    ScopedThread(LPTHREAD_START_ROUTINE routine, LPVOID parameter);
    ~ScopedThread();
    ScopedThread(const ScopedThread&) = delete;
    ScopedThread& operator=(const ScopedThread&) = delete;
    bool started() const { return thread != nullptr; }

private:
    HANDLE thread = nullptr;
};

// A pseudo-handle, the same for every thread; CloseHandle refuses it.
HANDLE GetCurrentThread();
// The kernel's thread number.
DWORD GetCurrentThreadId();
// Only for GetCurrentThread(). Writes only user: the calling thread's total CPU
// time (user and system) in nanoseconds, not in units of 100 ns. Always TRUE.
BOOL GetThreadTimes(HANDLE thread, LPFILETIME creation, LPFILETIME exit, LPFILETIME kernel, LPFILETIME user);
void Sleep(DWORD milliseconds);
