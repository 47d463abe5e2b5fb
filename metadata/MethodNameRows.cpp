#include "metadata/MethodNameRows.h"

#include <algorithm>
#include <new>

#include "metadata/TableCells.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

namespace {

// Columns by their numbers in the file format; a column is checked against
// the name the scope gives it before any row is read.
constexpr ULONG kNameColumn = 3;
constexpr ULONG kFlagsColumn = 2;
constexpr ULONG kMethodListColumn = 5;

}  // namespace

MethodNameRows::MethodNameRows(IMetaDataImport* import) : import(import) {
    ULONG rowSize = 0;
    if (import == nullptr || FAILED(import->QueryInterface(IID_IMetaDataTables, reinterpret_cast<void**>(&tables))) ||
        !TableCells::tableAt(tables.get(), TableCells::kMethodTable, "Method", &rows, &rowSize) ||
        !TableCells::columnAt(tables.get(), TableCells::kMethodTable, kNameColumn, "Name", &columnOffset,
                              &columnSize)) {
        tables = nullptr;
        rows = 0;
        return;
    }
    findBlock(rowSize);
    findHeap();
    ULONG flagsSize = 0;
    if (block != nullptr && (!TableCells::columnAt(tables.get(), TableCells::kMethodTable, kFlagsColumn, "Flags",
                                                   &flagsOffset, &flagsSize) ||
                             flagsSize != 2 || flagsOffset + flagsSize > stride)) {
        flagsOffset = 0;
    }
}

void MethodNameRows::findBlock(ULONG rowSize) {
    if (rows == 0 || (columnSize != 2 && columnSize != 4) || columnOffset + columnSize > rowSize) {
        return;
    }
    block = TableCells::rowBlock(tables.get(), TableCells::kMethodTable, rows, rowSize);
    if (block != nullptr) stride = rowSize;
}

// Probed with the names of the middle and last rows.
void MethodNameRows::findHeap() {
    if (rows == 0) return;
    heap = TableCells::heapBlock(tables.get(), {nameIndex((rows + 1) / 2), nameIndex(rows)}, &heapSize);
}

void MethodNameRows::readOwners() {
    ownersRead = true;
    ULONG pointers = 0;
    ULONG rowSize = 0;
    TableCells::Rows types;
    TableCells::Column methodList;
    // A method pointer table stands between the classes and the methods when
    // a scope was written out of order.
    if (block == nullptr || flagsOffset == 0 ||
        !TableCells::tableAt(tables.get(), TableCells::kMethodPointerTable, "MethodPtr", &pointers, &rowSize) ||
        pointers != 0 ||
        !TableCells::readable(tables.get(), TableCells::kTypeDefTable, "TypeDef",
                              {{kMethodListColumn, "MethodList", &methodList}}, &types)) {
        return;
    }
    try {
        firstMethods.resize(types.count);
    } catch (const std::bad_alloc&) {
        // The scope answers each row then.
        return;
    }
    for (ULONG type = 0; type < types.count; ++type) {
        firstMethods[type] = methodList.in(types.row(type + 1));
    }
}

HRESULT MethodNameRows::ownerAndFlags(ULONG row, mdTypeDef* owner, DWORD* flags) {
    if (!ownersRead) readOwners();
    if (firstMethods.empty() || row == 0 || row > rows) {
        return import->GetMethodProps(TokenFromRid(row, mdtMethodDef), owner, nullptr, 0, nullptr, flags, nullptr,
                                      nullptr, nullptr, nullptr);
    }
    // The last class whose methods start at or before the row; an empty
    // class starts where the next one does.
    const auto after = std::upper_bound(firstMethods.begin(), firstMethods.end(), row);
    if (after == firstMethods.begin()) return E_FAIL;
    *owner = TokenFromRid(static_cast<ULONG>(after - firstMethods.begin()), mdtTypeDef);
    *flags = TableCells::cellAt(block + static_cast<size_t>(row - 1) * stride + flagsOffset, 2);
    return S_OK;
}

ULONG MethodNameRows::nameIndex(ULONG row) {
    if (block != nullptr)
        return TableCells::cellAt(block + static_cast<size_t>(row - 1) * stride + columnOffset, columnSize);
    ULONG index = 0;
    return SUCCEEDED(tables->GetColumn(TableCells::kMethodTable, kNameColumn, row, &index)) ? index : 0;
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
