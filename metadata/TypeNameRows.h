// The type table of a scope read row by row, for a scan that looks at the
// name of every class of a module: a class name in plain ASCII is made from
// the rows of its class and of the classes that enclose it, and the string
// heap, where they lie in one block (see TableCells), as
// IMetaDataContext::getClassName gives it, and without a call into the
// metadata engine. Any other name is left to the engine.
//
// Contract: the import outlives the reader; its scope is not written to while
// the reader is in use.
#pragma once

#include "metadata/TableCells.h"
#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class TypeNameRows {
public:
    explicit TypeNameRows(IMetaDataImport* import);

    // The class name of a type ("N.C", a trailing generic arity cut) in
    // buffer, cut to nothing longer than size units with the terminator;
    // false where it must be asked of the engine.
    bool plainName(mdTypeDef type, char16_t* buffer, ULONG size) const;

private:
    // The row of the class that encloses a nested class's row; 0 if unknown.
    ULONG enclosingOf(ULONG row) const;
    // Appends the name of a class's row, enclosing classes first; false
    // where the engine must make it.
    bool appendName(ULONG row, char16_t* buffer, ULONG size, ULONG& at, int depth) const;

    AutoCOMPointer<IMetaDataTables> tables;
    // The type table's rows and the columns read from them.
    TableCells::Rows types;
    TableCells::Column flags;
    TableCells::Column name;
    TableCells::Column space;
    const char* heap = nullptr;
    ULONG heapSize = 0;
    // The nested class table's rows and its two columns.
    TableCells::Rows nested;
    TableCells::Column nestedClass;
    TableCells::Column enclosingClass;
};
