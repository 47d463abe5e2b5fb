// Environment variables with 16-bit names and values, narrowed and widened unit
// for byte. No lock: callers do not race on the environment.
#pragma once

#include "platform/Win32Types.h"

// Null when unset. Otherwise a pointer into a process-wide cache, valid and
// unchanged for the life of the process, on any thread.
const char16_t* _wgetenv(LPCWSTR name);
// "NAME=VALUE", split at the first '='; the result of setenv, 1 without '='.
int _wputenv(LPCWSTR assignment);
// 0 when unset; else the value's full length in bytes, also when cut to fit.
DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size);
BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);
