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
    if (import == nullptr || FAILED(import->QueryInterface(IID_IMetaDataTables, reinterpret_cast<void**>(&tables))) ||
        !TableCells::tableAt(tables.get(), TableCells::kMethodTable, "Method", &methods.count, &methods.stride) ||
        !TableCells::columnAt(tables.get(), TableCells::kMethodTable, kNameColumn, "Name", &nameColumn.offset,
                              &nameColumn.size)) {
        tables = nullptr;
        methods = TableCells::Rows();
        return;
    }
    findBlock();
    findHeap();
    if (methods.block != nullptr && (!TableCells::columnAt(tables.get(), TableCells::kMethodTable, kFlagsColumn,
                                                           "Flags", &flagsColumn.offset, &flagsColumn.size) ||
                                     flagsColumn.size != 2 || flagsColumn.offset + flagsColumn.size > methods.stride)) {
        flagsColumn = TableCells::Column();
    }
}

void MethodNameRows::findBlock() {
    if (methods.count == 0 || (nameColumn.size != 2 && nameColumn.size != 4) ||
        nameColumn.offset + nameColumn.size > methods.stride) {
        return;
    }
    methods.block = TableCells::rowBlock(tables.get(), TableCells::kMethodTable, methods.count, methods.stride);
}

// Probed with the names of the middle and last rows.
void MethodNameRows::findHeap() {
    if (methods.count == 0) return;
    heap =
        TableCells::heapBlock(tables.get(), {nameIndex((methods.count + 1) / 2), nameIndex(methods.count)}, &heapSize);
}

void MethodNameRows::readOwners() {
    ownersRead = true;
    ULONG pointers = 0;
    ULONG rowSize = 0;
    TableCells::Rows types;
    TableCells::Column methodList;
    // A method pointer table stands between the classes and the methods when
    // a scope was written out of order.
    if (methods.block == nullptr || flagsColumn.size == 0 ||
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
    if (firstMethods.empty() || row == 0 || row > methods.count) {
        return import->GetMethodProps(TokenFromRid(row, mdtMethodDef), owner, nullptr, 0, nullptr, flags, nullptr,
                                      nullptr, nullptr, nullptr);
    }
    // The last class whose methods start at or before the row; an empty
    // class starts where the next one does.
    const auto after = std::upper_bound(firstMethods.begin(), firstMethods.end(), row);
    if (after == firstMethods.begin()) return E_FAIL;
    *owner = TokenFromRid(static_cast<ULONG>(after - firstMethods.begin()), mdtTypeDef);
    *flags = flagsColumn.in(methods.row(row));
    return S_OK;
}

ULONG MethodNameRows::nameIndex(ULONG row) {
    if (methods.block != nullptr) return nameColumn.in(methods.row(row));
    ULONG index = 0;
    return SUCCEEDED(tables->GetColumn(TableCells::kMethodTable, kNameColumn, row, &index)) ? index : 0;
}

const char* MethodNameRows::text(ULONG index) {
    if (heap != nullptr) return index != 0 && index < heapSize ? heap + index : nullptr;
    const char* text = nullptr;
    return index != 0 && SUCCEEDED(tables->GetString(index, &text)) ? text : nullptr;
}

HRESULT MethodNameRows::name(ULONG row, ULONG index, char16_t* buffer, ULONG size) {
    ULONG length = 0;
    if (const char* text = this->text(index); text != nullptr && TableCells::appendAscii(text, buffer, size, length)) {
        buffer[length] = 0;
        return S_OK;
    }
    // Beyond ASCII, too long, or unread: the engine converts and cuts it.
    return import->GetMethodProps(TokenFromRid(row, mdtMethodDef), nullptr, buffer, size, &length, nullptr, nullptr,
                                  nullptr, nullptr, nullptr);
}
