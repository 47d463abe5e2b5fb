#include "platform/Exceptions.h"

#include "platform/PalAssert.h"

void RaiseException(DWORD code, DWORD flags, DWORD argumentCount, const ULONG_PTR* arguments) {
    PAL_ASSERT(false);
    __builtin_unreachable();
}
