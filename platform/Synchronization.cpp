#include "platform/Synchronization.h"

#include <cerrno>
#include <cstdint>

#include "platform/EventHandleInternal.h"
#include "platform/PalAssert.h"

void InitializeCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(section, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void EnterCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_lock(section);
}

void LeaveCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_unlock(section);
}

void DeleteCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_destroy(section);
}

void InitializeConditionVariable(PCONDITION_VARIABLE condition) {
    pthread_cond_init(condition, nullptr);
}

void WakeConditionVariable(PCONDITION_VARIABLE condition) {
    pthread_cond_signal(condition);
}

timespec SleepConditionDeadline(const timespec& now, int timeoutMs) {
    constexpr uint64_t kNanosecondsPerSecond = 1000000000;
    auto product = static_cast<int32_t>(static_cast<uint32_t>(timeoutMs) * 1000000u);
    timespec deadline = now;
    deadline.tv_nsec += product;
    // Carrying one second at a time while the unsigned nanoseconds reach a
    // second ends with exactly this quotient and remainder.
    auto nanoseconds = static_cast<uint64_t>(deadline.tv_nsec);
    deadline.tv_sec += static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    deadline.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return deadline;
}

BOOL SleepConditionVariableCS(PCONDITION_VARIABLE condition, PCRITICAL_SECTION section, int timeoutMs) {
    if (timeoutMs == -1) {
        pthread_cond_wait(condition, section);
        return 0;
    }
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    timespec deadline = SleepConditionDeadline(now, timeoutMs);
    return pthread_cond_timedwait(condition, section, &deadline) == ETIMEDOUT ? 1 : 0;
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL manualReset, BOOL initialState, LPCWSTR lpName) {
    PAL_ASSERT(lpEventAttributes == NULL);
    PAL_ASSERT(lpName == NULL);
    return RegisterHandle(new EventHandleInternal());
}

namespace {
EventHandleInternal* eventOf(HANDLE handle) {
    return static_cast<EventHandleInternal*>(static_cast<HandleInternal*>(handle));
}
}  // namespace

BOOL SetEvent(HANDLE event) {
    WakeConditionVariable(&eventOf(event)->condition);
    return TRUE;
}

BOOL ResetEvent(HANDLE event) {
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD timeoutMs) {
    EventHandleInternal* event = eventOf(handle);
    pthread_mutex_lock(&event->mutex);
    if (SleepConditionVariableCS(&event->condition, &event->mutex, static_cast<int>(timeoutMs)) != 0) {
        // Timed out: the mutex stays held, it is recursive, so this thread can
        // wait again.
        return WAIT_TIMEOUT;
    }
    pthread_mutex_unlock(&event->mutex);
    return WAIT_OBJECT_0;
}
