// The signature reader. Where it departs from the published grammar it does so on
// purpose, mirrored by BlobOutputStream: 0xFF is the number 255.
#pragma once

#include "rewrite/IBlobInputStream.h"

class BlobInputStream : public IBlobInputStream {
public:
    BlobInputStream(const unsigned char* bytes, unsigned int length);

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
    HRESULT readParam(unsigned char* type, unsigned int* token) override;
    HRESULT readRetType(unsigned char* type, unsigned int* token) override;
    HRESULT readType(unsigned char* type, unsigned int* token) override;
    unsigned char* copyLastSignature(unsigned int start, unsigned int* length) override;

    // Types nested deeper than this are refused, so that a hostile blob cannot
    // exhaust the stack.
    static constexpr unsigned int kMaxNesting = 256;

    void skipCustomMods() override;

private:
    [[nodiscard]] HRESULT readParamAt(unsigned char* type, unsigned int* token, unsigned int depth);
    [[nodiscard]] HRESULT readRetTypeAt(unsigned char* type, unsigned int* token, unsigned int depth);
    [[nodiscard]] HRESULT readTypeAt(unsigned char* type, unsigned int* token, unsigned int depth);
    [[nodiscard]] HRESULT readMethod(unsigned int depth);

    const unsigned char* bytes;
    unsigned int length;
    unsigned int index;
};
