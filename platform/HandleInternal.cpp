#include "platform/HandleInternal.h"

std::map<void*, bool>& sHandles() {
    // Never destroyed: handles may be closed by threads that outlive exit().
    static auto& handles = *new std::map<void*, bool>();
    return handles;
}

HANDLE RegisterHandle(HandleInternal* handle) {
    sHandles()[handle] = true;
    return handle;
}
