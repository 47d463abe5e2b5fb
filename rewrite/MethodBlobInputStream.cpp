#include "rewrite/MethodBlobInputStream.h"

#include <new>

#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"

IMethodBlobInputStream* IMethodBlobInputStream::newInstance(const unsigned char* bytes, unsigned int length) {
    MethodBlobInputStream* stream = new MethodBlobInputStream(bytes, length);
    if (stream != nullptr && FAILED(stream->init())) {
        delete stream;
        stream = nullptr;
    }
    return stream;
}

IMethodBlobInputStream* IMethodBlobInputStream::newInstance(IBlobInputStream* input) {
    return newInstance(input->getBytes(), input->getLength());
}

MethodBlobInputStream::MethodBlobInputStream(const unsigned char* bytes, unsigned int length)
    : BlobInputStream(bytes, length) {}

HRESULT MethodBlobInputStream::init() {
    unsigned char flags = 0;
    flagsIndex = BlobInputStream::getIndex();
    HRESULT hr = BlobInputStream::readByte(&flags);
    if (SUCCEEDED(hr) && (flags & IMAGE_CEE_CS_CALLCONV_GENERIC) != 0) hr = BlobInputStream::readNumber(nullptr);
    paramCountIndex = BlobInputStream::getIndex();
    if (SUCCEEDED(hr)) hr = BlobInputStream::readNumber(nullptr);
    retTypeIndex = BlobInputStream::getIndex();
    if (SUCCEEDED(hr)) hr = BlobInputStream::readRetType(nullptr, nullptr);
    firstParamIndex = BlobInputStream::getIndex();
    return hr;
}

unsigned int MethodBlobInputStream::getLength() { return BlobInputStream::getLength(); }
const unsigned char* MethodBlobInputStream::getBytes() { return BlobInputStream::getBytes(); }
unsigned int MethodBlobInputStream::getIndex() { return BlobInputStream::getIndex(); }
void MethodBlobInputStream::setIndex(unsigned int index) { BlobInputStream::setIndex(index); }
void MethodBlobInputStream::reset() { BlobInputStream::reset(); }
HRESULT MethodBlobInputStream::peekByte(unsigned char* value) { return BlobInputStream::peekByte(value); }
HRESULT MethodBlobInputStream::readByte(unsigned char* value) { return BlobInputStream::readByte(value); }
HRESULT MethodBlobInputStream::readNumber(unsigned int* value) { return BlobInputStream::readNumber(value); }
HRESULT MethodBlobInputStream::readToken(unsigned int* token) { return BlobInputStream::readToken(token); }

HRESULT MethodBlobInputStream::readCustomMod(unsigned char* type, unsigned int* token) {
    return BlobInputStream::readCustomMod(type, token);
}

void MethodBlobInputStream::skipCustomMods() { BlobInputStream::skipCustomMods(); }

HRESULT MethodBlobInputStream::readParam(unsigned char* type, unsigned int* token) {
    return BlobInputStream::readParam(type, token);
}

HRESULT MethodBlobInputStream::readRetType(unsigned char* type, unsigned int* token) {
    return BlobInputStream::readRetType(type, token);
}

HRESULT MethodBlobInputStream::readType(unsigned char* type, unsigned int* token) {
    return BlobInputStream::readType(type, token);
}

unsigned char* MethodBlobInputStream::copyLastSignature(unsigned int start, unsigned int* length) {
    return BlobInputStream::copyLastSignature(start, length);
}

void MethodBlobInputStream::shiftToFlags() { BlobInputStream::setIndex(flagsIndex); }
void MethodBlobInputStream::shiftToRetType() { BlobInputStream::setIndex(retTypeIndex); }
void MethodBlobInputStream::shiftToParamCount() { BlobInputStream::setIndex(paramCountIndex); }
void MethodBlobInputStream::shiftToFirstParam() { BlobInputStream::setIndex(firstParamIndex); }
