// The method table of a scope read row by row, for a scan that looks at the
// name of every method of a module. The name column is read straight from the
// table when the scope keeps its rows in one block (it says where they are),
// else through GetColumn; a plain ASCII name is read from the string heap
// without a call into the metadata engine's locked interface (straight from
// the heap when it too lies in one block), any other name through
// GetMethodProps. Either way the name is the one
// IMetaDataContext::getMethodName reads. The class that defines each method,
// and the method's flags, are read from the tables too where the rows lie in
// one block and no method pointer table reorders them.
//
// Contract: the import outlives the reader; its scope is not written to while
// the reader is in use.
#pragma once

#include <vector>

#include "metadata/TableCells.h"
#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class MethodNameRows {
public:
    explicit MethodNameRows(IMetaDataImport* import);

    // The scope offers its raw method table in the layout read here.
    bool usable() const { return tables.get() != nullptr; }
    ULONG count() const { return methods.count; }
    // The string-heap index of a row's (1 to count) name: rows that share a
    // name share it. 0 when it cannot be read.
    ULONG nameIndex(ULONG row);
    // The name of a row, whose index nameIndex gave, in buffer, cut to size
    // units with the terminator. The running status.
    [[nodiscard]] HRESULT name(ULONG row, ULONG index, char16_t* buffer, ULONG size);
    // The name at a string-heap index as the heap holds it (UTF-8), or null.
    const char* text(ULONG index);
    // The class that defines a row's method and the method's flags, as
    // GetMethodProps gives them. The class list is read at the first call.
    [[nodiscard]] HRESULT ownerAndFlags(ULONG row, mdTypeDef* owner, DWORD* flags);
    // Asks the processor for a later row's name ahead of its reading: names
    // lie all over the heap, and a scan would wait for each in turn.
    void prefetchName(ULONG row) {
        if (heap != nullptr && methods.block != nullptr && row <= methods.count) {
            __builtin_prefetch(heap + nameIndex(row));
        }
    }

private:
    void findBlock();
    void findHeap();
    // Each class's first method row, in the order of the classes; none when
    // the tables cannot give them.
    void readOwners();

    IMetaDataImport* import;
    AutoCOMPointer<IMetaDataTables> tables;
    // The method rows (their block null where they do not lie in one) and
    // the name column.
    TableCells::Rows methods;
    TableCells::Column nameColumn;
    // The string heap in one block, an index being an offset into it: a name
    // is then read without a call into the engine.
    const char* heap = nullptr;
    ULONG heapSize = 0;
    // The flags column (of size 0 when it cannot be read in the block), and
    // each class's first method row.
    TableCells::Column flagsColumn;
    bool ownersRead = false;
    std::vector<ULONG> firstMethods;
};
