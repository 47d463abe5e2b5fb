// Win32 types and constants of the platform layer, on top of the runtime's base
// types. Only what the system uses is declared.
#pragma once

#include <pthread.h>

#include "runtime/CorTypes.h"

using LPDWORD = DWORD*;
using LPSTR = char*;
using LPCSTR = const char*;
using BSTR = WCHAR*;
using LPSECURITY_ATTRIBUTES = void*;
using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID parameter);

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using LPFILETIME = FILETIME*;

// Critical sections are recursive mutexes; condition variables are plain
// condition variables with default attributes.
using CRITICAL_SECTION = pthread_mutex_t;
using LPCRITICAL_SECTION = CRITICAL_SECTION*;
using PCRITICAL_SECTION = CRITICAL_SECTION*;
using CONDITION_VARIABLE = pthread_cond_t;
using PCONDITION_VARIABLE = CONDITION_VARIABLE*;

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(-1L);
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD STATUS_INVALID_PARAMETER = 0xC000000D;
