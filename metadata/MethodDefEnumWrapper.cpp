#include "metadata/MethodDefEnumWrapper.h"

void MethodDefEnumWrapper::FillBuffer() {
    count = 0;
    import->EnumMethods(&handle, typeDef, buffer, kBufferSize, &count);
}
