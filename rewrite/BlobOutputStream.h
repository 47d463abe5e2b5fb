// The signature writer. Its copies follow the reading rules of BlobInputStream
// element by element; behind an ELEMENT_TYPE_PTR the VOID is written as a literal
// byte and stays unread in the input.
#pragma once

#include "rewrite/IBlobOutputStream.h"

class BlobOutputStream : public IBlobOutputStream {
public:
    BlobOutputStream() = default;
    ~BlobOutputStream() override;
    BlobOutputStream(const BlobOutputStream&) = delete;
    BlobOutputStream& operator=(const BlobOutputStream&) = delete;

    unsigned int getLength() override;
    const unsigned char* getBytes() override;
    void reset() override;
    HRESULT writeByte(unsigned char value) override;
    HRESULT writeByte(IBlobInputStream* input, unsigned char* value) override;
    HRESULT writeNumber(unsigned int value) override;
    HRESULT writeNumber(IBlobInputStream* input, unsigned int* value) override;
    HRESULT writeToken(unsigned int token) override;
    HRESULT writeToken(IBlobInputStream* input, unsigned int* token) override;
    HRESULT writeCustomMod(IBlobInputStream* input) override;
    HRESULT writeParam(IBlobInputStream* input) override;
    HRESULT writeRetType(IBlobInputStream* input) override;
    HRESULT writeMethod(IBlobInputStream* input) override;
    HRESULT writeType(IBlobInputStream* input) override;

    static constexpr unsigned int kGrowth = 64;

private:
    [[nodiscard]] HRESULT resize(unsigned int needed);
    [[nodiscard]] HRESULT writeBytes(const unsigned char* values, unsigned int count);
    void writeCustomMods(IBlobInputStream* input);
    [[nodiscard]] HRESULT writeTypeAt(IBlobInputStream* input, unsigned int depth);
    [[nodiscard]] HRESULT writeParamAt(IBlobInputStream* input, unsigned int depth);
    [[nodiscard]] HRESULT writeRetTypeAt(IBlobInputStream* input, unsigned int depth);
    [[nodiscard]] HRESULT writeMethodAt(IBlobInputStream* input, unsigned int depth);

    unsigned char* bytes = nullptr;
    unsigned int capacity = 0;
    unsigned int length = 0;
};
