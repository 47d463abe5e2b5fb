// Monotonic clocks.
#pragma once

#include "platform/Win32Types.h"

// CLOCK_MONOTONIC in nanoseconds; FALSE, counter unchanged, on failure.
BOOL QueryPerformanceCounter(LARGE_INTEGER* counter);
// Always 1000000000.
BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency);
// CLOCK_MONOTONIC in milliseconds; 0 on failure.
ULONGLONG GetTickCount64();
// The low 32 bits of GetTickCount64: it wraps.
DWORD GetTickCount();
