#include "metadata/TypeNameRows.h"

#include "metadata/MetaDataContext.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"

namespace {

// Deeper nesting, or a loop in a damaged scope, is left to the engine.
constexpr int kDeepestNesting = 64;

}  // namespace

TypeNameRows::TypeNameRows(IMetaDataImport* import) {
    if (import == nullptr || FAILED(import->QueryInterface(IID_IMetaDataTables, reinterpret_cast<void**>(&tables))) ||
        !TableCells::readable(tables.get(), TableCells::kTypeDefTable, "TypeDef",
                              {{0, "Flags", &flags}, {1, "Name", &name}, {2, "Namespace", &space}}, &types) ||
        flags.size != 4) {
        return;
    }
    heap = TableCells::heapBlock(tables.get(), {name.in(types.row(1)), name.in(types.row(types.count))}, &heapSize);
    if (!TableCells::readable(tables.get(), TableCells::kNestedClassTable, "NestedClass",
                              {{0, "NestedClass", &nestedClass}, {1, "EnclosingClass", &enclosingClass}}, &nested)) {
        nested = TableCells::Rows();
    }
}

ULONG TypeNameRows::enclosingOf(ULONG row) const {
    // The table is sorted by its nested class.
    ULONG low = 1;
    ULONG high = nested.block != nullptr ? nested.count + 1 : 1;
    while (low < high) {
        const ULONG middle = low + (high - low) / 2;
        const ULONG inner = nestedClass.in(nested.row(middle));
        if (inner == row) return enclosingClass.in(nested.row(middle));
        if (inner < row) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return 0;
}

bool TypeNameRows::appendName(ULONG row, char16_t* buffer, ULONG size, ULONG& at, int depth) const {
    if (row == 0 || row > types.count || depth > kDeepestNesting) return false;
    const unsigned char* cells = types.row(row);
    // A nested class's name is its enclosing class's, a '+' and its own.
    if ((flags.in(cells)&tdVisibilityMask) >= tdNestedPublic) {
        if (!appendName(enclosingOf(row), buffer, size, at, depth + 1) || at + 1 >= size) return false;
        buffer[at++] = u'+';
    }
    const ULONG own = name.in(cells);
    const ULONG within = space.in(cells);
    if (own == 0 || own >= heapSize || within >= heapSize) return false;
    if (within != 0 && heap[within] != 0) {
        if (!TableCells::appendAscii(heap + within, buffer, size, at) || at + 1 >= size) return false;
        buffer[at++] = u'.';
    }
    if (!TableCells::appendAscii(heap + own, buffer, size, at)) return false;
    buffer[at] = 0;
    // Each level's generic arity goes, as the context cuts it.
    MetaDataContext::stripEndGenericMarker(buffer, static_cast<long>(at), &at);
    return true;
}

bool TypeNameRows::plainName(mdTypeDef type, char16_t* buffer, ULONG size) const {
    ULONG at = 0;
    return heap != nullptr && TypeFromToken(type) == mdtTypeDef && appendName(RidFromToken(type), buffer, size, at, 0);
}
