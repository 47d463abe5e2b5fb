// Length-prefixed 16-bit strings.
#pragma once

#include "platform/Win32Types.h"

// 0 for null; else the 32-bit byte count stored in front of the text, halved.
UINT SysStringLen(BSTR text);
