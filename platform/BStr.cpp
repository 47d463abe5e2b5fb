#include "platform/BStr.h"

#include <cstring>

UINT SysStringLen(BSTR text) {
    if (text == nullptr) {
        return 0;
    }
    UINT bytes;
    std::memcpy(&bytes, reinterpret_cast<const char*>(text) - sizeof(bytes), sizeof(bytes));
    return bytes / 2;
}
