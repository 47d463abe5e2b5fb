#include "rewrite/BlobOutputStream.h"

#include <cstring>
#include <new>

#include "rewrite/BlobInputStream.h"
#include "rewrite/CorSig.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/CorErrors.h"

IBlobOutputStream* IBlobOutputStream::newInstance() { return new BlobOutputStream(); }

BlobOutputStream::~BlobOutputStream() { delete[] bytes; }

unsigned int BlobOutputStream::getLength() { return length; }
const unsigned char* BlobOutputStream::getBytes() { return bytes; }
void BlobOutputStream::reset() { length = 0; }

HRESULT BlobOutputStream::resize(unsigned int needed) {
    if (needed <= capacity) return S_OK;
    unsigned int grown = capacity;
    while (grown < needed) grown += kGrowth;
    unsigned char* larger = new unsigned char[grown];
    if (length > 0) std::memcpy(larger, bytes, length);
    delete[] bytes;
    bytes = larger;
    capacity = grown;
    return S_OK;
}

HRESULT BlobOutputStream::writeBytes(const unsigned char* values, unsigned int count) {
    HRESULT hr = resize(length + count);
    if (SUCCEEDED(hr)) {
        std::memcpy(bytes + length, values, count);
        length += count;
    }
    return hr;
}

HRESULT BlobOutputStream::writeByte(unsigned char value) { return writeBytes(&value, 1); }

HRESULT BlobOutputStream::writeByte(IBlobInputStream* input, unsigned char* value) {
    unsigned char read = 0;
    HRESULT hr = input->readByte(&read);
    if (SUCCEEDED(hr)) hr = writeByte(read);
    if (SUCCEEDED(hr) && value != nullptr) *value = read;
    return hr;
}

HRESULT BlobOutputStream::writeNumber(unsigned int value) {
    unsigned char encoded[4];
    ULONG size = CorSigCompressData(value, encoded);
    return size == kCorSigNoEncoding ? E_INVALIDARG : writeBytes(encoded, size);
}

HRESULT BlobOutputStream::writeNumber(IBlobInputStream* input, unsigned int* value) {
    unsigned int read = 0;
    HRESULT hr = input->readNumber(&read);
    if (SUCCEEDED(hr)) hr = writeNumber(read);
    if (SUCCEEDED(hr) && value != nullptr) *value = read;
    return hr;
}

HRESULT BlobOutputStream::writeToken(unsigned int token) {
    unsigned char encoded[4];
    ULONG size = CorSigCompressToken(token, encoded);
    return size == kCorSigNoEncoding ? E_INVALIDARG : writeBytes(encoded, size);
}

HRESULT BlobOutputStream::writeToken(IBlobInputStream* input, unsigned int* token) {
    unsigned int read = 0;
    HRESULT hr = input->readToken(&read);
    if (SUCCEEDED(hr)) hr = writeToken(read);
    if (SUCCEEDED(hr) && token != nullptr) *token = read;
    return hr;
}

HRESULT BlobOutputStream::writeCustomMod(IBlobInputStream* input) {
    unsigned char element = 0;
    HRESULT hr = input->peekByte(&element);
    if (SUCCEEDED(hr) && element != ELEMENT_TYPE_CMOD_REQD && element != ELEMENT_TYPE_CMOD_OPT) hr = E_FAIL;
    if (SUCCEEDED(hr)) hr = writeByte(input, nullptr);
    if (SUCCEEDED(hr)) hr = writeToken(input, nullptr);
    return hr;
}

void BlobOutputStream::writeCustomMods(IBlobInputStream* input) {
    while (SUCCEEDED(writeCustomMod(input))) {
    }
}

HRESULT BlobOutputStream::writeParam(IBlobInputStream* input) { return writeParamAt(input, 0); }
HRESULT BlobOutputStream::writeRetType(IBlobInputStream* input) { return writeRetTypeAt(input, 0); }
HRESULT BlobOutputStream::writeMethod(IBlobInputStream* input) { return writeMethodAt(input, 0); }
HRESULT BlobOutputStream::writeType(IBlobInputStream* input) { return writeTypeAt(input, 0); }

HRESULT BlobOutputStream::writeParamAt(IBlobInputStream* input, unsigned int depth) {
    writeCustomMods(input);
    unsigned char element = 0;
    HRESULT hr = input->peekByte(&element);
    if (FAILED(hr)) return hr;
    if (element == ELEMENT_TYPE_TYPEDBYREF) return writeByte(input, nullptr);
    if (element == ELEMENT_TYPE_BYREF) {
        hr = writeByte(input, nullptr);
        if (SUCCEEDED(hr)) hr = writeTypeAt(input, depth);
        return hr;
    }
    return writeTypeAt(input, depth);
}

HRESULT BlobOutputStream::writeRetTypeAt(IBlobInputStream* input, unsigned int depth) {
    writeCustomMods(input);
    unsigned char element = 0;
    HRESULT hr = input->peekByte(&element);
    if (FAILED(hr)) return hr;
    if (element == ELEMENT_TYPE_TYPEDBYREF || element == ELEMENT_TYPE_VOID) return writeByte(input, nullptr);
    if (element == ELEMENT_TYPE_BYREF) {
        hr = writeByte(input, nullptr);
        if (SUCCEEDED(hr)) hr = writeTypeAt(input, depth);
        return hr;
    }
    return writeTypeAt(input, depth);
}

HRESULT BlobOutputStream::writeMethodAt(IBlobInputStream* input, unsigned int depth) {
    unsigned char flags = 0;
    unsigned int count = 0;
    HRESULT hr = writeByte(input, &flags);
    if (SUCCEEDED(hr) && (flags & IMAGE_CEE_CS_CALLCONV_GENERIC) != 0) hr = writeNumber(input, nullptr);
    if (SUCCEEDED(hr)) hr = writeNumber(input, &count);
    if (SUCCEEDED(hr)) hr = writeRetTypeAt(input, depth);
    for (unsigned int i = 0; i < count && SUCCEEDED(hr); ++i) hr = writeParamAt(input, depth);
    return hr;
}

HRESULT BlobOutputStream::writeTypeAt(IBlobInputStream* input, unsigned int depth) {
    if (depth > BlobInputStream::kMaxNesting) return E_FAIL;
    unsigned char element = 0;
    HRESULT hr = writeByte(input, &element);
    if (FAILED(hr)) return hr;

    switch (element) {
    case ELEMENT_TYPE_PTR: {
        writeCustomMods(input);
        unsigned char next = 0;
        hr = input->peekByte(&next);
        if (SUCCEEDED(hr)) {
            hr = next == ELEMENT_TYPE_VOID ? writeByte(input, nullptr) : writeTypeAt(input, depth + 1);
        }
        break;
    }
    case ELEMENT_TYPE_VALUETYPE:
    case ELEMENT_TYPE_CLASS:
        hr = writeToken(input, nullptr);
        break;
    case ELEMENT_TYPE_VAR:
    case ELEMENT_TYPE_MVAR:
        hr = writeByte(input, nullptr);
        break;
    case ELEMENT_TYPE_ARRAY: {
        unsigned int count = 0;
        hr = writeTypeAt(input, depth + 1);
        if (SUCCEEDED(hr)) hr = writeNumber(input, nullptr);
        for (int list = 0; list < 2 && SUCCEEDED(hr); ++list) {
            hr = writeNumber(input, &count);
            for (unsigned int i = 0; i < count && SUCCEEDED(hr); ++i) hr = writeNumber(input, nullptr);
        }
        break;
    }
    case ELEMENT_TYPE_GENERICINST: {
        unsigned int count = 0;
        hr = writeByte(input, nullptr);
        if (SUCCEEDED(hr)) hr = writeToken(input, nullptr);
        if (SUCCEEDED(hr)) hr = writeNumber(input, &count);
        for (unsigned int i = 0; i < count && SUCCEEDED(hr); ++i) hr = writeTypeAt(input, depth + 1);
        break;
    }
    case ELEMENT_TYPE_FNPTR:
        hr = writeMethodAt(input, depth + 1);
        break;
    case ELEMENT_TYPE_SZARRAY:
        writeCustomMods(input);
        hr = writeTypeAt(input, depth + 1);
        break;
    default:
        break;
    }
    return hr;
}
