// Critical sections, condition variables and events.
#pragma once

#include <ctime>

#include "platform/Win32Types.h"

// Recursive: the owning thread may enter again.
void InitializeCriticalSection(LPCRITICAL_SECTION section);
void EnterCriticalSection(LPCRITICAL_SECTION section);
void LeaveCriticalSection(LPCRITICAL_SECTION section);
void DeleteCriticalSection(LPCRITICAL_SECTION section);

void InitializeConditionVariable(PCONDITION_VARIABLE condition);
// Wakes one thread that is waiting at this moment.
void WakeConditionVariable(PCONDITION_VARIABLE condition);
// The reverse of Win32: 1 if the wait timed out, 0 if it was woken. -1 waits
// without limit. The deadline is computed by SleepConditionDeadline.
BOOL SleepConditionVariableCS(PCONDITION_VARIABLE condition, PCRITICAL_SECTION section, int timeoutMs);
// Deadline of a timed wait from the real-time clock's now: timeoutMs times
// 1000000 in 32-bit arithmetic, taken as signed, added to the nanoseconds, then
// whole seconds carried while the nanoseconds, unsigned, reach 1000000000. Up to
// 2147 ms that is the plain deadline; above it the product overflows.
timespec SleepConditionDeadline(const timespec& now, int timeoutMs);

// attributes and name must be null; manualReset and initialState are ignored.
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCWSTR name);
// Wakes one thread waiting at this moment; with none waiting it is lost.
BOOL SetEvent(HANDLE event);
// Does nothing.
BOOL ResetEvent(HANDLE event);
// Events only. WAIT_OBJECT_0 when woken; WAIT_TIMEOUT on time-out, and then the
// event's recursive mutex stays held by the waiting thread.
DWORD WaitForSingleObject(HANDLE handle, DWORD timeoutMs);
