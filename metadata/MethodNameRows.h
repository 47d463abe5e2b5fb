// The method table of a scope read row by row, for a scan that looks at the
// name of every method of a module: a plain ASCII name is read from the string
// heap without a call into the metadata engine's locked interface, any other
// name through GetMethodProps. Either way the name is the one
// IMetaDataContext::getMethodName reads.
//
// Contract: the import outlives the reader; its scope is not written to while
// the reader is in use.
#pragma once

#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class MethodNameRows {
public:
    explicit MethodNameRows(IMetaDataImport* import);

    // The scope offers its raw method table in the layout read here.
    bool usable() const { return tables.get() != nullptr; }
    ULONG count() const { return rows; }
    // The name of a row (1 to count) in buffer, cut to size units with the
    // terminator. The running status.
    [[nodiscard]] HRESULT name(ULONG row, char16_t* buffer, ULONG size);

private:
    IMetaDataImport* import;
    AutoCOMPointer<IMetaDataTables> tables;
    ULONG rows = 0;
};
