// The flat interface that the managed agent reaches by P/Invoke.
#include "hub/Exports.h"
#include "platform/Threads.h"

// The kernel's number of the calling thread; needs no profiler.
TARN_EXPORT DWORD Native_GetCurrentNativeThreadId() {
    return GetCurrentThreadId();
}
