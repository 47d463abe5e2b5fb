// The method signature reader: a BlobInputStream for the reading, and the
// IMethodBlobInputStream part that callers hold, whose operations forward to it.
#pragma once

#include "rewrite/BlobInputStream.h"
#include "rewrite/IMethodBlobInputStream.h"

class MethodBlobInputStream : public BlobInputStream, public IMethodBlobInputStream {
public:
    MethodBlobInputStream(const unsigned char* bytes, unsigned int length);

    // Notes where the parts of the signature begin.
    [[nodiscard]] HRESULT init();

    unsigned int getLength() override;
    const unsigned char* getBytes() override;
    unsigned int getIndex() override;
    void setIndex(unsigned int index) override;
    void reset() override;
    HRESULT peekByte(unsigned char* value) override;
    HRESULT readByte(unsigned char* value) override;
    HRESULT readNumber(unsigned int* value) override;
    HRESULT readToken(unsigned int* token) override;
    HRESULT readCustomMod(unsigned char* type, unsigned int* token) override;
    void skipCustomMods() override;
    HRESULT readParam(unsigned char* type, unsigned int* token) override;
    HRESULT readRetType(unsigned char* type, unsigned int* token) override;
    HRESULT readType(unsigned char* type, unsigned int* token) override;
    unsigned char* copyLastSignature(unsigned int start, unsigned int* length) override;

    void shiftToFlags() override;
    void shiftToRetType() override;
    void shiftToParamCount() override;
    void shiftToFirstParam() override;

private:
    unsigned int flagsIndex = 0;
    unsigned int retTypeIndex = 0;
    unsigned int paramCountIndex = 0;
    unsigned int firstParamIndex = 0;
};
