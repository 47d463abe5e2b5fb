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
    ULONG offset = 0;
    ULONG size = 0;
    ULONG type = 0;
    const char* column = nullptr;
    if (import == nullptr ||
        FAILED(import->QueryInterface(IID_IMetaDataTables, reinterpret_cast<void**>(&tables))) ||
        FAILED(tables->GetTableInfo(kMethodTable, &rowSize, &rows, &columns, &key, &table)) ||
        FAILED(tables->GetColumnInfo(kMethodTable, kNameColumn, &offset, &size, &type, &column)) ||
        table == nullptr || strcmp(table, "Method") != 0 || column == nullptr || strcmp(column, "Name") != 0) {
        tables = nullptr;
        rows = 0;
    }
}

HRESULT MethodNameRows::name(ULONG row, char16_t* buffer, ULONG size) {
    ULONG index = 0;
    const char* text = nullptr;
    HRESULT hr = tables->GetColumn(kMethodTable, kNameColumn, row, &index);
    if (SUCCEEDED(hr)) {
        hr = tables->GetString(index, &text);
    }
    if (SUCCEEDED(hr) && text != nullptr) {
        ULONG length = 0;
        for (; length + 1 < size && text[length] != 0 && static_cast<unsigned char>(text[length]) < 0x80; ++length) {
            buffer[length] = static_cast<char16_t>(text[length]);
        }
        if (text[length] == 0) {
            buffer[length] = 0;
            return S_OK;
        }
    }
    // Beyond ASCII, or too long: the engine converts and cuts it.
    ULONG length = 0;
    return import->GetMethodProps(TokenFromRid(row, mdtMethodDef), nullptr, buffer, size, &length, nullptr,
                                  nullptr, nullptr, nullptr, nullptr);
}
