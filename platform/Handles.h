// Handles of threads, events and directory searches.
#pragma once

#include "platform/Win32Types.h"

// TRUE once for a live handle, which is destroyed; FALSE for anything else,
// GetCurrentThread() included. Closing a thread's handle leaves the thread
// running, undetached.
BOOL CloseHandle(HANDLE handle);
