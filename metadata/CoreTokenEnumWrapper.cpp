#include "metadata/CoreTokenEnumWrapper.h"

CoreTokenEnumWrapper::~CoreTokenEnumWrapper() {
    if (import != nullptr && handle != nullptr) {
        import->CloseEnum(handle);
    }
}

bool CoreTokenEnumWrapper::HasNext() {
    if (handle == nullptr) {
        FillBuffer();
    }
    return count > 0;
}

mdToken CoreTokenEnumWrapper::Next() {
    if (!HasNext()) {
        return 0;
    }
    mdToken token = buffer[position++];
    // Refill as soon as the last buffered token is taken, so that HasNext sees
    // the end right away.
    if (position >= count) {
        FillBuffer();
        position = 0;
    }
    return token;
}
