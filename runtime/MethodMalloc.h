// The runtime's allocator for new method bodies. The runtime keeps the memory
// it hands out; it is never freed by the profiler.
#pragma once

#include "runtime/Unknown.h"

struct IMethodMalloc : public IUnknown {
    virtual PVOID Alloc(ULONG cb) = 0;
};
