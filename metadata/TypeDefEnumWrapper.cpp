#include "metadata/TypeDefEnumWrapper.h"

void TypeDefEnumWrapper::FillBuffer() {
    count = 0;
    import->EnumTypeDefs(&handle, buffer, kBufferSize, &count);
}
