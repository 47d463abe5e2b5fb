// Walks the tokens of one metadata enumeration, 256 at a time. Subclasses say
// which enumeration by filling the buffer.
#pragma once

#include <cstdint>

#include "runtime/MetaDataInterfaces.h"

class CoreTokenEnumWrapper {
public:
    static constexpr ULONG kBufferSize = 256;

    // The import is not counted: it must outlive the wrapper.
    explicit CoreTokenEnumWrapper(IMetaDataImport* import) : import(import) {}
    CoreTokenEnumWrapper(const CoreTokenEnumWrapper&) = delete;
    CoreTokenEnumWrapper& operator=(const CoreTokenEnumWrapper&) = delete;
    virtual ~CoreTokenEnumWrapper();

    // Loads the next batch into the buffer; the result code is dropped, a
    // failure or the end shows up as a count of 0.
    virtual void FillBuffer() {}
    bool HasNext();
    // The next token, or 0 when there is none.
    mdToken Next();

protected:
    IMetaDataImport* import;
    HCORENUM handle = nullptr;
    mdToken buffer[kBufferSize];
    ULONG count = 0;
    uint64_t position = 0;
};
