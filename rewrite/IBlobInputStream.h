// Reads a signature blob (method, local, field signatures and TypeSpecs) one
// element at a time. Output pointers may be null when the value is not wanted.
// Every failure is E_FAIL and leaves the position where the read stopped.
#pragma once

#include "runtime/CorTypes.h"

class IBlobInputStream {
public:
    // The stream does not own the bytes; they must outlive it.
    static IBlobInputStream* newInstance(const unsigned char* bytes, unsigned int length);

    virtual ~IBlobInputStream() = default;

    virtual unsigned int getLength() = 0;
    virtual const unsigned char* getBytes() = 0;
    virtual unsigned int getIndex() = 0;
    virtual void setIndex(unsigned int index) = 0;
    virtual void reset() = 0;
    [[nodiscard]] virtual HRESULT peekByte(unsigned char* value) = 0;
    [[nodiscard]] virtual HRESULT readByte(unsigned char* value) = 0;
    [[nodiscard]] virtual HRESULT readNumber(unsigned int* value) = 0;
    // A compressed TypeDefOrRefOrSpec index, given back as a full token.
    [[nodiscard]] virtual HRESULT readToken(unsigned int* token) = 0;
    // E_FAIL with the position unchanged when the next byte is no modifier.
    [[nodiscard]] virtual HRESULT readCustomMod(unsigned char* type, unsigned int* token) = 0;
    // Reads past a run of custom modifiers; a run of none is no error.
    virtual void skipCustomMods() = 0;
    // A parameter: ELEMENT_TYPE_BYREF for a by-reference one, with the token of
    // the type behind it.
    [[nodiscard]] virtual HRESULT readParam(unsigned char* type, unsigned int* token) = 0;
    // A return type: for a by-reference one, the type behind the reference.
    [[nodiscard]] virtual HRESULT readRetType(unsigned char* type, unsigned int* token) = 0;
    [[nodiscard]] virtual HRESULT readType(unsigned char* type, unsigned int* token) = 0;
    // A copy of the bytes from start to the current position, owned by the
    // caller (delete[]); null if start lies behind the position.
    virtual unsigned char* copyLastSignature(unsigned int start, unsigned int* length) = 0;
};
