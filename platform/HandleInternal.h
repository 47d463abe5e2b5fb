// Base of every object behind a HANDLE, and the registry of live handles.
#pragma once

#include <map>

#include "platform/Win32Types.h"

class HandleInternal {
public:
    virtual ~HandleInternal() = default;
};

// Process-wide registry of live handles, every value true. Made on first use and
// never destroyed. It has no lock.
std::map<void*, bool>& sHandles();

// Registers a new handle object and gives it out as a HANDLE.
HANDLE RegisterHandle(HandleInternal* handle);
