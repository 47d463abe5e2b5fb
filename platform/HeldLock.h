// Holds a critical section for one scope, also when something is thrown.
#pragma once

#include "platform/Synchronization.h"

class HeldLock {
public:
    explicit HeldLock(CRITICAL_SECTION* section) : section(section) { EnterCriticalSection(section); }
    ~HeldLock() { LeaveCriticalSection(section); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

private:
    CRITICAL_SECTION* section;
};
