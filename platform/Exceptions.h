// Exceptions are not raised on this platform: the process ends.
#pragma once

#include "platform/Win32Types.h"

[[noreturn]] void RaiseException(DWORD code, DWORD flags, DWORD argumentCount, const ULONG_PTR* arguments);
