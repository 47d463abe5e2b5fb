// Writes a signature blob, from values or by copying elements from an input
// stream, which is how a type moves from one signature into another without
// being understood. Numbers and tokens are written in canonical width.
#pragma once

#include "rewrite/IBlobInputStream.h"

class IBlobOutputStream {
public:
    static IBlobOutputStream* newInstance();

    virtual ~IBlobOutputStream() = default;

    virtual unsigned int getLength() = 0;
    // Still owned by the stream; valid until the next write or its destruction.
    virtual const unsigned char* getBytes() = 0;
    // Length 0; the capacity stays.
    virtual void reset() = 0;
    [[nodiscard]] virtual HRESULT writeByte(unsigned char value) = 0;
    [[nodiscard]] virtual HRESULT writeByte(IBlobInputStream* input, unsigned char* value) = 0;
    // E_INVALIDARG for 0x20000000 and above.
    [[nodiscard]] virtual HRESULT writeNumber(unsigned int value) = 0;
    [[nodiscard]] virtual HRESULT writeNumber(IBlobInputStream* input, unsigned int* value) = 0;
    // E_INVALIDARG for a token that is no TypeDef, TypeRef or TypeSpec.
    [[nodiscard]] virtual HRESULT writeToken(unsigned int token) = 0;
    [[nodiscard]] virtual HRESULT writeToken(IBlobInputStream* input, unsigned int* token) = 0;
    [[nodiscard]] virtual HRESULT writeCustomMod(IBlobInputStream* input) = 0;
    [[nodiscard]] virtual HRESULT writeParam(IBlobInputStream* input) = 0;
    [[nodiscard]] virtual HRESULT writeRetType(IBlobInputStream* input) = 0;
    [[nodiscard]] virtual HRESULT writeMethod(IBlobInputStream* input) = 0;
    [[nodiscard]] virtual HRESULT writeType(IBlobInputStream* input) = 0;
};
