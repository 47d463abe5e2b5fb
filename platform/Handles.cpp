#include "platform/Handles.h"

#include "platform/HandleInternal.h"

BOOL CloseHandle(HANDLE handle) {
    auto& handles = sHandles();
    auto found = handles.find(handle);
    if (found == handles.end()) {
        return FALSE;
    }
    handles.erase(found);
    delete static_cast<HandleInternal*>(handle);
    return TRUE;
}
