#include "metadata/TableCells.h"

#include <cstring>

const unsigned char* TableCells::rowBlock(IMetaDataTables* tables, ULONG table, ULONG rows, ULONG rowSize) {
    void* first = nullptr;
    void* middle = nullptr;
    void* last = nullptr;
    const ULONG middleRow = (rows + 1) / 2;
    if (rows == 0 || FAILED(tables->GetRow(table, 1, &first)) || FAILED(tables->GetRow(table, middleRow, &middle)) ||
        FAILED(tables->GetRow(table, rows, &last)) || first == nullptr) {
        return nullptr;
    }
    const auto* start = static_cast<const unsigned char*>(first);
    const bool oneBlock = static_cast<const unsigned char*>(middle) == start + size_t{middleRow - 1} * rowSize &&
                          static_cast<const unsigned char*>(last) == start + size_t{rows - 1} * rowSize;
    return oneBlock ? start : nullptr;
}

ULONG TableCells::cellAt(const unsigned char* cell, ULONG size) {
    ULONG value = cell[0] | (static_cast<ULONG>(cell[1]) << 8);
    if (size == 4) value |= (static_cast<ULONG>(cell[2]) << 16) | (static_cast<ULONG>(cell[3]) << 24);
    return value;
}

bool TableCells::tableAt(IMetaDataTables* tables, ULONG table, const char* name, ULONG* rows, ULONG* rowSize) {
    ULONG columns = 0;
    ULONG key = 0;
    const char* found = nullptr;
    return SUCCEEDED(tables->GetTableInfo(table, rowSize, rows, &columns, &key, &found)) && found != nullptr &&
           strcmp(found, name) == 0;
}

bool TableCells::columnAt(IMetaDataTables* tables, ULONG table, ULONG column, const char* name, ULONG* offset,
                          ULONG* size) {
    ULONG type = 0;
    const char* found = nullptr;
    return SUCCEEDED(tables->GetColumnInfo(table, column, offset, size, &type, &found)) && found != nullptr &&
           strcmp(found, name) == 0;
}

bool TableCells::readable(IMetaDataTables* tables, ULONG table, const char* name, std::initializer_list<Wanted> columns,
                          Rows* rows) {
    ULONG rowSize = 0;
    if (!tableAt(tables, table, name, &rows->count, &rowSize)) return false;
    for (const Wanted& wanted : columns) {
        Column& column = *wanted.column;
        if (!columnAt(tables, table, wanted.number, wanted.name, &column.offset, &column.size) ||
            (column.size != 2 && column.size != 4) || column.offset + column.size > rowSize) {
            return false;
        }
    }
    rows->block = rowBlock(tables, table, rows->count, rowSize);
    rows->stride = rowSize;
    return rows->block != nullptr;
}

const char* TableCells::heapBlock(IMetaDataTables* tables, std::initializer_list<ULONG> probes, ULONG* size) {
    const char* first = nullptr;
    if (FAILED(tables->GetStringHeapSize(size)) || *size < 2 || FAILED(tables->GetString(1, &first)) ||
        first == nullptr) {
        return nullptr;
    }
    const char* start = first - 1;
    const char* at = nullptr;
    if (FAILED(tables->GetString(*size - 1, &at)) || at != start + (*size - 1)) return nullptr;
    for (ULONG index : probes) {
        if (index == 0 || index >= *size || FAILED(tables->GetString(index, &at)) || at != start + index)
            return nullptr;
    }
    return start;
}

bool TableCells::appendAscii(const char* text, char16_t* buffer, ULONG size, ULONG& at) {
    for (; *text != 0; ++text) {
        if (static_cast<unsigned char>(*text) >= 0x80 || at + 1 >= size) return false;
        buffer[at++] = static_cast<char16_t>(*text);
    }
    return true;
}
