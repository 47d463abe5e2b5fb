// The editable instruction list of one method body, as the callback hub uses it
// for logging the rewritten body.
#pragma once

#include <cstdio>

class IMethodBuilder {
public:
    virtual ~IMethodBuilder() = default;

    // Instruction index of the label, -1 if absent.
    virtual int findLabel(unsigned int label) = 0;
    // Byte index once all branches are settled; 0xFFFFFFFF on failure.
    virtual unsigned int getILByteIndex(unsigned int index) = 0;
    // Lists the body with offsets relative to origin.
    virtual int print(FILE* stream, unsigned int origin) = 0;
};
