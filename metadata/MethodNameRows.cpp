#include "metadata/MethodNameRows.h"

#include <cstring>

#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

namespace {

// The method table and its name column, in the order of the file format;
// checked against the names the scope gives them before any row is read.
constexpr ULONG kMethodTable = 6;
constexpr ULONG kNameColumn = 3;

}  // namespace

MethodNameRows::MethodNameRows(IMetaDataImport* import) : import(import) {
    ULONG rowSize = 0;
    ULONG columns = 0;
    ULONG key = 0;
    const char* table = nullptr;
    ULONG type = 0;
    const char* column = nullptr;
    if (import == nullptr || FAILED(import->QueryInterface(IID_IMetaDataTables, reinterpret_cast<void**>(&tables))) ||
        FAILED(tables->GetTableInfo(kMethodTable, &rowSize, &rows, &columns, &key, &table)) ||
        FAILED(tables->GetColumnInfo(kMethodTable, kNameColumn, &columnOffset, &columnSize, &type, &column)) ||
        table == nullptr || strcmp(table, "Method") != 0 || column == nullptr || strcmp(column, "Name") != 0) {
        tables = nullptr;
        rows = 0;
        return;
    }
    findBlock(rowSize);
    findHeap();
}

// A table written to since it was read keeps its rows in more than one block:
// then the first, middle and last rows do not lie a row size apart.
void MethodNameRows::findBlock(ULONG rowSize) {
    if (rows == 0 || (columnSize != 2 && columnSize != 4) || columnOffset + columnSize > rowSize) {
        return;
    }
    void* first = nullptr;
    void* middle = nullptr;
    void* last = nullptr;
    const ULONG middleRow = (rows + 1) / 2;
    if (FAILED(tables->GetRow(kMethodTable, 1, &first)) || FAILED(tables->GetRow(kMethodTable, middleRow, &middle)) ||
        FAILED(tables->GetRow(kMethodTable, rows, &last)) || first == nullptr) {
        return;
    }
    const auto* start = static_cast<const unsigned char*>(first);
    if (static_cast<const unsigned char*>(middle) == start + static_cast<size_t>(middleRow - 1) * rowSize &&
        static_cast<const unsigned char*>(last) == start + static_cast<size_t>(rows - 1) * rowSize) {
        block = start;
        stride = rowSize;
    }
}

// The engine hands out names as pointers into its heap, which a scope
// written to keeps in more than one block: where the heap's last byte and the
// names of the middle and last rows lie at their index from the first string,
// the heap is one block.
void MethodNameRows::findHeap() {
    ULONG size = 0;
    const char* first = nullptr;
    if (rows == 0 || FAILED(tables->GetStringHeapSize(&size)) || size < 2 || FAILED(tables->GetString(1, &first)) ||
        first == nullptr) {
        return;
    }
    const char* start = first - 1;
    for (ULONG index : {size - 1, nameIndex((rows + 1) / 2), nameIndex(rows)}) {
        const char* at = nullptr;
        if (index == 0 || index >= size || FAILED(tables->GetString(index, &at)) || at != start + index) return;
    }
    heap = start;
    heapSize = size;
}

ULONG MethodNameRows::nameIndex(ULONG row) {
    if (block != nullptr) {
        // Columns are little-endian, as in the file.
        const unsigned char* cell = block + static_cast<size_t>(row - 1) * stride + columnOffset;
        ULONG index = cell[0] | (static_cast<ULONG>(cell[1]) << 8);
        if (columnSize == 4) {
            index |= (static_cast<ULONG>(cell[2]) << 16) | (static_cast<ULONG>(cell[3]) << 24);
        }
        return index;
    }
    ULONG index = 0;
    return SUCCEEDED(tables->GetColumn(kMethodTable, kNameColumn, row, &index)) ? index : 0;
}

const char* MethodNameRows::text(ULONG index) {
    if (heap != nullptr) return index != 0 && index < heapSize ? heap + index : nullptr;
    const char* text = nullptr;
    return index != 0 && SUCCEEDED(tables->GetString(index, &text)) ? text : nullptr;
}

HRESULT MethodNameRows::name(ULONG row, ULONG index, char16_t* buffer, ULONG size) {
    if (const char* text = this->text(index)) {
        ULONG length = 0;
        for (; length + 1 < size && text[length] != 0 && static_cast<unsigned char>(text[length]) < 0x80; ++length) {
            buffer[length] = static_cast<char16_t>(text[length]);
        }
        if (text[length] == 0) {
            buffer[length] = 0;
            return S_OK;
        }
    }
    // Beyond ASCII, too long, or unread: the engine converts and cuts it.
    ULONG length = 0;
    return import->GetMethodProps(TokenFromRid(row, mdtMethodDef), nullptr, buffer, size, &length, nullptr, nullptr,
                                  nullptr, nullptr, nullptr);
}
