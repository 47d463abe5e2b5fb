#include "metadata/TypeNameRows.h"

#include "metadata/MetaDataContext.h"
#include "metadata/TableCells.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

namespace {

// The tables and their columns by their numbers in the file format.
constexpr ULONG kTypeDefTable = 2;
constexpr ULONG kFlagsColumn = 0;
constexpr ULONG kNameColumn = 1;
constexpr ULONG kNamespaceColumn = 2;
constexpr ULONG kNestedClassTable = 41;
constexpr ULONG kNestedColumn = 0;
constexpr ULONG kEnclosingColumn = 1;
// Deeper nesting, or a loop in a damaged scope, is left to the engine.
constexpr int kDeepestNesting = 64;

bool isIndex(ULONG offset, ULONG size, ULONG rowSize) {
    return (size == 2 || size == 4) && offset + size <= rowSize;
}

// Appends a plain ASCII string of the heap at to buffer; false where the
// string is not plain ASCII or does not fit.
bool appendAscii(const char* text, char16_t* buffer, ULONG size, ULONG& at) {
    for (; *text != 0; ++text) {
        if (static_cast<unsigned char>(*text) >= 0x80 || at + 1 >= size) return false;
        buffer[at++] = static_cast<char16_t>(*text);
    }
    return true;
}

}  // namespace

TypeNameRows::TypeNameRows(IMetaDataImport* import) {
    ULONG rowSize = 0;
    ULONG flagsSize = 0;
    if (import == nullptr || FAILED(import->QueryInterface(IID_IMetaDataTables, reinterpret_cast<void**>(&tables))) ||
        !TableCells::tableAt(tables.get(), kTypeDefTable, "TypeDef", &rows, &rowSize) ||
        !TableCells::columnAt(tables.get(), kTypeDefTable, kFlagsColumn, "Flags", &flagsOffset, &flagsSize) ||
        !TableCells::columnAt(tables.get(), kTypeDefTable, kNameColumn, "Name", &nameOffset, &nameSize) ||
        !TableCells::columnAt(tables.get(), kTypeDefTable, kNamespaceColumn, "Namespace", &namespaceOffset,
                              &namespaceSize) ||
        flagsSize != 4 || flagsOffset + flagsSize > rowSize || !isIndex(nameOffset, nameSize, rowSize) ||
        !isIndex(namespaceOffset, namespaceSize, rowSize)) {
        return;
    }
    block = TableCells::rowBlock(tables.get(), kTypeDefTable, rows, rowSize);
    if (block == nullptr) return;
    stride = rowSize;
    const unsigned char* last = block + size_t{rows - 1} * stride;
    heap = TableCells::heapBlock(
        tables.get(),
        {TableCells::cellAt(last + nameOffset, nameSize), TableCells::cellAt(block + nameOffset, nameSize)}, &heapSize);
    ULONG nestedRowSize = 0;
    if (TableCells::tableAt(tables.get(), kNestedClassTable, "NestedClass", &nestedRows, &nestedRowSize) &&
        TableCells::columnAt(tables.get(), kNestedClassTable, kNestedColumn, "NestedClass", &nestedOffset,
                             &nestedSize) &&
        TableCells::columnAt(tables.get(), kNestedClassTable, kEnclosingColumn, "EnclosingClass", &enclosingOffset,
                             &enclosingSize) &&
        isIndex(nestedOffset, nestedSize, nestedRowSize) && isIndex(enclosingOffset, enclosingSize, nestedRowSize)) {
        nestedBlock = TableCells::rowBlock(tables.get(), kNestedClassTable, nestedRows, nestedRowSize);
        nestedStride = nestedRowSize;
    }
}

ULONG TypeNameRows::enclosingOf(ULONG row) const {
    // The table is sorted by its nested class.
    ULONG low = 0;
    ULONG high = nestedBlock != nullptr ? nestedRows : 0;
    while (low < high) {
        const ULONG middle = low + (high - low) / 2;
        const unsigned char* cells = nestedBlock + size_t{middle} * nestedStride;
        const ULONG nested = TableCells::cellAt(cells + nestedOffset, nestedSize);
        if (nested == row) return TableCells::cellAt(cells + enclosingOffset, enclosingSize);
        if (nested < row) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return 0;
}

bool TypeNameRows::appendName(ULONG row, char16_t* buffer, ULONG size, ULONG& at, int depth) const {
    if (row == 0 || row > rows || depth > kDeepestNesting) return false;
    const unsigned char* cells = block + size_t{row - 1} * stride;
    // A nested class's name is its enclosing class's, a '+' and its own.
    if ((TableCells::cellAt(cells + flagsOffset, 4) & tdVisibilityMask) >= tdNestedPublic) {
        if (!appendName(enclosingOf(row), buffer, size, at, depth + 1) || at + 1 >= size) return false;
        buffer[at++] = u'+';
    }
    const ULONG name = TableCells::cellAt(cells + nameOffset, nameSize);
    const ULONG space = TableCells::cellAt(cells + namespaceOffset, namespaceSize);
    if (name == 0 || name >= heapSize || space >= heapSize) return false;
    if (space != 0 && heap[space] != 0) {
        if (!appendAscii(heap + space, buffer, size, at) || at + 1 >= size) return false;
        buffer[at++] = u'.';
    }
    if (!appendAscii(heap + name, buffer, size, at)) return false;
    buffer[at] = 0;
    // Each level's generic arity goes, as the context cuts it.
    MetaDataContext::stripEndGenericMarker(buffer, static_cast<long>(at), &at);
    return true;
}

bool TypeNameRows::plainName(mdTypeDef type, char16_t* buffer, ULONG size) const {
    ULONG at = 0;
    return heap != nullptr && TypeFromToken(type) == mdtTypeDef && appendName(RidFromToken(type), buffer, size, at, 0);
}
