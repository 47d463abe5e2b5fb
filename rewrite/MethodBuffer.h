// The body view. A fat header is taken as 12 bytes whatever its size field says,
// and one exception section is read.
#pragma once

#include "rewrite/IMethodBuffer.h"

class MethodBuffer : public IMethodBuffer {
public:
    MethodBuffer(unsigned char* memory, bool borrowed);
    // Owned memory: ehSize is the size that was allocated for the section.
    MethodBuffer(unsigned char* memory, unsigned int headerSize, unsigned int codeSize, unsigned int ehSize);
    ~MethodBuffer() override;
    MethodBuffer(const MethodBuffer&) = delete;
    MethodBuffer& operator=(const MethodBuffer&) = delete;

    unsigned int getHeaderSize() override;
    unsigned int getCodeSize() override;
    unsigned int getRealCodeSize() override;
    unsigned int getEHSize() override;
    unsigned int getEHClauses() override;
    unsigned int getTotalSize() override;
    bool hasEH() override;
    bool isTinyHeader() override;
    bool isSmallEH() override;
    bool isEmptyMethod() override;
    bool isEndWithRet() override;
    IMAGE_COR_ILMETHOD* getHeader() override;
    unsigned char* getCode() override;
    unsigned char getCodeAt(unsigned int index) override;
    IMAGE_COR_ILMETHOD_SECT_EH* getEH() override;
    unsigned char* getBuffer() override;
    int print(FILE* stream) override;

private:
    void printHeader(FILE* stream);
    void printCode(FILE* stream);
    void printClauses(FILE* stream);

    unsigned char* buffer;
    IMAGE_COR_ILMETHOD* header;
    unsigned char* code;
    IMAGE_COR_ILMETHOD_SECT_EH* eh;
    bool borrowed;
    unsigned int ehSize;
};
