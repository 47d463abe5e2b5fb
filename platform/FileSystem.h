// Paths and directories.
#pragma once

#include "platform/Win32Types.h"

// The longest path the system takes, in units: the size of a buffer that
// holds any path we may be given.
constexpr unsigned int kPathUnitLimit = 4096;

// Joins a relative path to the working directory with '/'; nothing is
// normalised. filePart must be null. Result: the length now in buffer, 0 if the
// working directory is unavailable or the path does not fit in size units.
DWORD GetFullPathNameW(LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR* filePart);
// INVALID_FILE_ATTRIBUTES when the path does not exist, else 0 (files and
// directories alike).
DWORD GetFileAttributesW(LPCWSTR path);
// TRUE when errno is 0 after mkdir. errno is not cleared first, so callers that
// care set it to 0 before the call.
BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security);
// From errno: 0, ERROR_ALREADY_EXISTS, or ERROR_NOT_SUPPORTED for the rest.
DWORD GetLastError();
