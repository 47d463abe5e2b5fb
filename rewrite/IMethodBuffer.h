// A read-only view of a method body in its file form: header, code and exception
// section located, with queries on them. The body is trusted to be as long as its
// header says.
#pragma once

#include <cstdio>

#include "runtime/CorILMethod.h"

class IMethodBuffer {
public:
    // Wraps an existing body without copying it; the memory stays the caller's
    // and must outlive the view.
    static IMethodBuffer* newInstance(const unsigned char* method);
    // Zeroed memory for a body of these sizes, owned by the view. The exception
    // section is located only if ehSize holds at least one fat clause. Null if
    // the memory cannot be had.
    static IMethodBuffer* newInstance(unsigned int headerSize, unsigned int codeSize, unsigned int ehSize);

    virtual ~IMethodBuffer() = default;

    virtual unsigned int getHeaderSize() = 0;
    virtual unsigned int getCodeSize() = 0;
    // The code size, rounded up to a multiple of 4 when a section follows.
    virtual unsigned int getRealCodeSize() = 0;
    virtual unsigned int getEHSize() = 0;
    virtual unsigned int getEHClauses() = 0;
    virtual unsigned int getTotalSize() = 0;
    virtual bool hasEH() = 0;
    virtual bool isTinyHeader() = 0;
    // Only meaningful when there is a section.
    virtual bool isSmallEH() = 0;
    // No code, or nops closed by a ret.
    virtual bool isEmptyMethod() = 0;
    // Looks at the last byte alone, which may belong to an operand.
    virtual bool isEndWithRet() = 0;
    virtual IMAGE_COR_ILMETHOD* getHeader() = 0;
    virtual unsigned char* getCode() = 0;
    // No bounds check.
    virtual unsigned char getCodeAt(unsigned int index) = 0;
    virtual IMAGE_COR_ILMETHOD_SECT_EH* getEH() = 0;
    virtual unsigned char* getBuffer() = 0;
    // Listing in 8-bit text.
    virtual int print(FILE* stream) = 0;
};
