// What the sampler needs of the object that owns it: the runtime's interface
// and the native log, both known only once the owner has been initialised.
#pragma once

#include <cstdio>

#include "runtime/CorProfilerInfo.h"

class ISamplingOwner {
public:
    virtual ICorProfilerInfo* getProfilerInfo() const = 0;
    virtual FILE* getNativeLog() const = 0;

protected:
    ~ISamplingOwner() = default;
};
