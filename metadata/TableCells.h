// A scope's tables read straight, where the metadata engine keeps a table's
// rows, or its string heap, in one block: a scan of every row of a module then
// makes no call into the engine's locked interface per row. A scope written to
// since it was read keeps them in more than one block, and is read through
// the engine.
//
// Stateless; the tables are the caller's.
#pragma once

#include <initializer_list>

#include "runtime/MetaDataInterfaces.h"

class TableCells {
public:
    // Tables by their numbers in the file format.
    static constexpr ULONG kTypeDefTable = 2;
    static constexpr ULONG kMethodPointerTable = 5;
    static constexpr ULONG kMethodTable = 6;
    static constexpr ULONG kNestedClassTable = 41;

    // A table's rows in one block, the first numbered 1.
    struct Rows {
        const unsigned char* block = nullptr;
        ULONG count = 0;
        ULONG stride = 0;
        const unsigned char* row(ULONG number) const { return block + size_t{number - 1} * stride; }
    };
    // A column's place in a row, and its width.
    struct Column {
        ULONG offset = 0;
        ULONG size = 0;
        ULONG in(const unsigned char* row) const { return cellAt(row + offset, size); }
    };

    // A table's rows when they lie in one block, or null: the first, middle
    // and last rows must lie a row size apart.
    static const unsigned char* rowBlock(IMetaDataTables* tables, ULONG table, ULONG rows, ULONG rowSize);
    // A little-endian cell of two or four bytes, as in the file.
    static ULONG cellAt(const unsigned char* cell, ULONG size);
    // A table's row count and row size, checked by its name.
    static bool tableAt(IMetaDataTables* tables, ULONG table, const char* name, ULONG* rows, ULONG* rowSize);
    // A column's place and width, checked by its name.
    static bool columnAt(IMetaDataTables* tables, ULONG table, ULONG column, const char* name, ULONG* offset,
                         ULONG* size);
    // A column to read: its number in the file format and its name.
    struct Wanted {
        ULONG number;
        const char* name;
        Column* column;
    };
    // A table's rows, where they lie in one block, and the wanted columns,
    // each of two or four bytes and inside a row; false where the scope does
    // not give them so.
    static bool readable(IMetaDataTables* tables, ULONG table, const char* name, std::initializer_list<Wanted> columns,
                         Rows* rows);
    // The string heap when it lies in one block, an index being an offset
    // into it, or null. The engine hands out strings as pointers into its
    // heap: its last byte and the strings at the probed indexes must lie at
    // their index from the first string.
    static const char* heapBlock(IMetaDataTables* tables, std::initializer_list<ULONG> probes, ULONG* size);
    // Appends a string of the heap to buffer, from at, when it is plain ASCII
    // and fits with a terminator after it; false otherwise.
    static bool appendAscii(const char* text, char16_t* buffer, ULONG size, ULONG& at);
};
