// A reader of a method signature that has already walked its head, so that the
// caller can jump to the flags, the parameter count, the return type and the
// first parameter.
#pragma once

#include "rewrite/IBlobInputStream.h"

class IMethodBlobInputStream : public IBlobInputStream {
public:
    // Null if the head of the signature cannot be read.
    static IMethodBlobInputStream* newInstance(const unsigned char* bytes, unsigned int length);
    // Over the same bytes as another stream, from their start.
    static IMethodBlobInputStream* newInstance(IBlobInputStream* input);

    virtual void shiftToFlags() = 0;
    virtual void shiftToRetType() = 0;
    virtual void shiftToParamCount() = 0;
    virtual void shiftToFirstParam() = 0;
};
