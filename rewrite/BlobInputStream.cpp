#include "rewrite/BlobInputStream.h"

#include <new>

#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"

IBlobInputStream* IBlobInputStream::newInstance(const unsigned char* bytes, unsigned int length) {
    return new BlobInputStream(bytes, length);
}

BlobInputStream::BlobInputStream(const unsigned char* bytes, unsigned int length)
    : bytes(bytes), length(length), index(0) {}

unsigned int BlobInputStream::getLength() { return length; }
const unsigned char* BlobInputStream::getBytes() { return bytes; }
unsigned int BlobInputStream::getIndex() { return index; }
void BlobInputStream::setIndex(unsigned int value) { index = value; }
void BlobInputStream::reset() { index = 0; }

HRESULT BlobInputStream::peekByte(unsigned char* value) {
    if (index >= length) return E_FAIL;
    if (value != nullptr) *value = bytes[index];
    return S_OK;
}

HRESULT BlobInputStream::readByte(unsigned char* value) {
    HRESULT hr = peekByte(value);
    if (SUCCEEDED(hr)) ++index;
    return hr;
}

HRESULT BlobInputStream::readNumber(unsigned int* value) {
    if (index >= length) return E_FAIL;
    unsigned int first = bytes[index];
    unsigned int left = length - index;
    unsigned int result;
    if (first < 0x80 || first == 0xFF) {
        result = first;
        index += 1;
    } else if (left >= 2 && (first & 0x40) == 0) {
        result = (first & 0x3F) << 8 | bytes[index + 1];
        index += 2;
    } else {
        if (left < 4 || (first & 0x20) != 0) return E_FAIL;
        result = (first & 0x1F) << 24 | static_cast<unsigned int>(bytes[index + 1]) << 16 |
                 static_cast<unsigned int>(bytes[index + 2]) << 8 | bytes[index + 3];
        index += 4;
    }
    if (value != nullptr) *value = result;
    return S_OK;
}

HRESULT BlobInputStream::readToken(unsigned int* token) {
    static constexpr unsigned int kTables[] = {mdtTypeDef, mdtTypeRef, mdtTypeSpec};
    unsigned int encoded = 0;
    HRESULT hr = readNumber(&encoded);
    if (SUCCEEDED(hr) && (encoded & 3) == 3) hr = E_FAIL;
    if (SUCCEEDED(hr) && token != nullptr) *token = (encoded >> 2) | kTables[encoded & 3];
    return hr;
}

HRESULT BlobInputStream::readCustomMod(unsigned char* type, unsigned int* token) {
    unsigned char element = 0;
    HRESULT hr = peekByte(&element);
    if (SUCCEEDED(hr) && element != ELEMENT_TYPE_CMOD_REQD && element != ELEMENT_TYPE_CMOD_OPT) hr = E_FAIL;
    if (SUCCEEDED(hr)) hr = readByte(type);
    if (SUCCEEDED(hr)) hr = readToken(token);
    return hr;
}

void BlobInputStream::skipCustomMods() {
    // The run ends at the first byte that is no modifier; that is no error.
    while (SUCCEEDED(readCustomMod(nullptr, nullptr))) {
    }
}

HRESULT BlobInputStream::readParam(unsigned char* type, unsigned int* token) {
    return readParamAt(type, token, 0);
}

HRESULT BlobInputStream::readParamAt(unsigned char* type, unsigned int* token, unsigned int depth) {
    skipCustomMods();
    unsigned char element = 0;
    HRESULT hr = peekByte(&element);
    if (FAILED(hr)) return hr;
    if (element == ELEMENT_TYPE_TYPEDBYREF) {
        if (token != nullptr) *token = 0;
        return readByte(type);
    }
    if (element == ELEMENT_TYPE_BYREF) {
        hr = readByte(type);
        if (SUCCEEDED(hr)) hr = readTypeAt(nullptr, token, depth);
        return hr;
    }
    return readTypeAt(type, token, depth);
}

HRESULT BlobInputStream::readRetType(unsigned char* type, unsigned int* token) {
    return readRetTypeAt(type, token, 0);
}

HRESULT BlobInputStream::readRetTypeAt(unsigned char* type, unsigned int* token, unsigned int depth) {
    skipCustomMods();
    unsigned char element = 0;
    HRESULT hr = peekByte(&element);
    if (FAILED(hr)) return hr;
    if (element == ELEMENT_TYPE_TYPEDBYREF || element == ELEMENT_TYPE_VOID) {
        if (token != nullptr) *token = 0;
        return readByte(type);
    }
    if (element == ELEMENT_TYPE_BYREF) {
        hr = readByte(nullptr);
        if (SUCCEEDED(hr)) hr = readTypeAt(type, token, depth);
        return hr;
    }
    return readTypeAt(type, token, depth);
}

HRESULT BlobInputStream::readType(unsigned char* type, unsigned int* token) {
    return readTypeAt(type, token, 0);
}

HRESULT BlobInputStream::readTypeAt(unsigned char* type, unsigned int* token, unsigned int depth) {
    if (depth > kMaxNesting) return E_FAIL;
    unsigned char element = 0;
    unsigned int found = 0;
    HRESULT hr = readByte(&element);
    if (FAILED(hr)) return hr;

    switch (element) {
    case ELEMENT_TYPE_PTR: {
        skipCustomMods();
        unsigned char next = 0;
        hr = peekByte(&next);
        // void is no type of its own, but it is one behind a pointer.
        if (SUCCEEDED(hr)) hr = next == ELEMENT_TYPE_VOID ? readByte(nullptr) : readTypeAt(nullptr, nullptr, depth + 1);
        break;
    }
    case ELEMENT_TYPE_VALUETYPE:
    case ELEMENT_TYPE_CLASS:
        hr = readToken(&found);
        break;
    case ELEMENT_TYPE_VAR:
    case ELEMENT_TYPE_MVAR:
        hr = readByte(nullptr);
        break;
    case ELEMENT_TYPE_ARRAY: {
        unsigned int rank = 0;
        unsigned int count = 0;
        hr = readTypeAt(nullptr, nullptr, depth + 1);
        if (SUCCEEDED(hr)) hr = readNumber(&rank);
        for (int list = 0; list < 2 && SUCCEEDED(hr); ++list) {
            hr = readNumber(&count);
            for (unsigned int i = 0; i < count && SUCCEEDED(hr); ++i) hr = readNumber(nullptr);
        }
        break;
    }
    case ELEMENT_TYPE_GENERICINST: {
        unsigned int count = 0;
        hr = readByte(nullptr);
        if (SUCCEEDED(hr)) hr = readToken(&found);
        if (SUCCEEDED(hr)) hr = readNumber(&count);
        for (unsigned int i = 0; i < count && SUCCEEDED(hr); ++i) hr = readTypeAt(nullptr, nullptr, depth + 1);
        break;
    }
    case ELEMENT_TYPE_FNPTR:
        hr = readMethod(depth + 1);
        break;
    case ELEMENT_TYPE_SZARRAY:
        skipCustomMods();
        hr = readTypeAt(nullptr, nullptr, depth + 1);
        break;
    default:
        // The primitives, and anything else, stand alone.
        break;
    }
    if (type != nullptr) *type = element;
    if (token != nullptr) *token = found;
    return hr;
}

HRESULT BlobInputStream::readMethod(unsigned int depth) {
    unsigned char flags = 0;
    unsigned int count = 0;
    HRESULT hr = readByte(&flags);
    if (SUCCEEDED(hr) && (flags & IMAGE_CEE_CS_CALLCONV_GENERIC) != 0) hr = readNumber(nullptr);
    if (SUCCEEDED(hr)) hr = readNumber(&count);
    if (SUCCEEDED(hr)) hr = readRetTypeAt(nullptr, nullptr, depth);
    for (unsigned int i = 0; i < count && SUCCEEDED(hr); ++i) hr = readParamAt(nullptr, nullptr, depth);
    return hr;
}

unsigned char* BlobInputStream::copyLastSignature(unsigned int start, unsigned int* copied) {
    if (start > index || index > length) {
        if (copied != nullptr) *copied = 0;
        return nullptr;
    }
    unsigned int size = index - start;
    unsigned char* result = new unsigned char[size == 0 ? 1 : size];
    if (result != nullptr) {
        for (unsigned int i = 0; i < size; ++i) result[i] = bytes[start + i];
    }
    if (copied != nullptr) *copied = result != nullptr ? size : 0;
    return result;
}
