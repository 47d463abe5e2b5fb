#include "platform/Clock.h"

#include <ctime>

BOOL QueryPerformanceCounter(LARGE_INTEGER* counter) {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return FALSE;
    }
    counter->QuadPart = now.tv_sec * 1000000000L + now.tv_nsec;
    return TRUE;
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency) {
    frequency->QuadPart = 1000000000L;
    return TRUE;
}

ULONGLONG GetTickCount64() {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return 0;
    }
    return static_cast<ULONGLONG>(now.tv_sec) * 1000UL + static_cast<ULONGLONG>(now.tv_nsec) / 1000000UL;
}

DWORD GetTickCount() {
    return static_cast<DWORD>(GetTickCount64());
}
