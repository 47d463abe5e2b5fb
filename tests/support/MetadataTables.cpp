#include "MetadataTables.h"

#include <cstring>

namespace {

uint32_t get32(const unsigned char* p) {
    return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
}
uint16_t get16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

constexpr uint32_t kMetadataSignature = 0x424A5342;  // "BSJB"

// Coded index families: the tables each can point into, and the tag bits.
struct CodedIndex {
    unsigned int bits;
    std::vector<int> tables;  // -1 for an unused tag
};

const CodedIndex kCodedIndices[] = {
    {2, {0x02, 0x01, 0x1B}},                                    // 0 TypeDefOrRef
    {2, {0x04, 0x08, 0x17}},                                    // 1 HasConstant
    {5, {0x06, 0x04, 0x01, 0x02, 0x08, 0x09, 0x0A, 0x00, 0x0E, 0x17, 0x14, 0x11, 0x1A, 0x1B, 0x20, 0x23, 0x26,
         0x27, 0x28, 0x2A, 0x2C, 0x2B}},                        // 2 HasCustomAttribute
    {1, {0x04, 0x08}},                                          // 3 HasFieldMarshal
    {2, {0x02, 0x06, 0x20}},                                    // 4 HasDeclSecurity
    {3, {0x02, 0x01, 0x1A, 0x06, 0x1B}},                        // 5 MemberRefParent
    {1, {0x14, 0x17}},                                          // 6 HasSemantics
    {1, {0x06, 0x0A}},                                          // 7 MethodDefOrRef
    {1, {0x04, 0x06}},                                          // 8 MemberForwarded
    {2, {0x26, 0x23, 0x27}},                                    // 9 Implementation
    {3, {-1, -1, 0x06, 0x0A, -1}},                              // 10 CustomAttributeType
    {2, {0x00, 0x1A, 0x23, 0x01}},                              // 11 ResolutionScope
    {1, {0x02, 0x06}},                                          // 12 TypeOrMethodDef
};

}  // namespace

namespace {

using Kind = unsigned int;
struct ColumnSpec {
    Kind kind;
    unsigned int argument;
};
constexpr Kind F = 0, S = 1, G = 2, B = 3, I = 4, C = 5;

// The columns of every table of the compressed form, in order.
const std::vector<ColumnSpec> kSchema[MetadataTables::kTableCount] = {
    /*00 Module*/ {{F, 2}, {S, 0}, {G, 0}, {G, 0}, {G, 0}},
    /*01 TypeRef*/ {{C, 11}, {S, 0}, {S, 0}},
    /*02 TypeDef*/ {{F, 4}, {S, 0}, {S, 0}, {C, 0}, {I, 0x04}, {I, 0x06}},
    /*03 FieldPtr*/ {{I, 0x04}},
    /*04 Field*/ {{F, 2}, {S, 0}, {B, 0}},
    /*05 MethodPtr*/ {{I, 0x06}},
    /*06 MethodDef*/ {{F, 4}, {F, 2}, {F, 2}, {S, 0}, {B, 0}, {I, 0x08}},
    /*07 ParamPtr*/ {{I, 0x08}},
    /*08 Param*/ {{F, 2}, {F, 2}, {S, 0}},
    /*09 InterfaceImpl*/ {{I, 0x02}, {C, 0}},
    /*0A MemberRef*/ {{C, 5}, {S, 0}, {B, 0}},
    /*0B Constant*/ {{F, 2}, {C, 1}, {B, 0}},
    /*0C CustomAttribute*/ {{C, 2}, {C, 10}, {B, 0}},
    /*0D FieldMarshal*/ {{C, 3}, {B, 0}},
    /*0E DeclSecurity*/ {{F, 2}, {C, 4}, {B, 0}},
    /*0F ClassLayout*/ {{F, 2}, {F, 4}, {I, 0x02}},
    /*10 FieldLayout*/ {{F, 4}, {I, 0x04}},
    /*11 StandAloneSig*/ {{B, 0}},
    /*12 EventMap*/ {{I, 0x02}, {I, 0x14}},
    /*13 EventPtr*/ {{I, 0x14}},
    /*14 Event*/ {{F, 2}, {S, 0}, {C, 0}},
    /*15 PropertyMap*/ {{I, 0x02}, {I, 0x17}},
    /*16 PropertyPtr*/ {{I, 0x17}},
    /*17 Property*/ {{F, 2}, {S, 0}, {B, 0}},
    /*18 MethodSemantics*/ {{F, 2}, {I, 0x06}, {C, 6}},
    /*19 MethodImpl*/ {{I, 0x02}, {C, 7}, {C, 7}},
    /*1A ModuleRef*/ {{S, 0}},
    /*1B TypeSpec*/ {{B, 0}},
    /*1C ImplMap*/ {{F, 2}, {C, 8}, {S, 0}, {I, 0x1A}},
    /*1D FieldRVA*/ {{F, 4}, {I, 0x04}},
    /*1E EncLog*/ {{F, 4}, {F, 4}},
    /*1F EncMap*/ {{F, 4}},
    /*20 Assembly*/ {{F, 4}, {F, 2}, {F, 2}, {F, 2}, {F, 2}, {F, 4}, {B, 0}, {S, 0}, {S, 0}},
    /*21 AssemblyProcessor*/ {{F, 4}},
    /*22 AssemblyOS*/ {{F, 4}, {F, 4}, {F, 4}},
    /*23 AssemblyRef*/ {{F, 2}, {F, 2}, {F, 2}, {F, 2}, {F, 4}, {B, 0}, {S, 0}, {S, 0}, {B, 0}},
    /*24 AssemblyRefProcessor*/ {{F, 4}, {I, 0x23}},
    /*25 AssemblyRefOS*/ {{F, 4}, {F, 4}, {F, 4}, {I, 0x23}},
    /*26 File*/ {{F, 4}, {S, 0}, {B, 0}},
    /*27 ExportedType*/ {{F, 4}, {F, 4}, {S, 0}, {S, 0}, {C, 9}},
    /*28 ManifestResource*/ {{F, 4}, {F, 4}, {S, 0}, {C, 9}},
    /*29 NestedClass*/ {{I, 0x02}, {I, 0x02}},
    /*2A GenericParam*/ {{F, 2}, {F, 2}, {C, 12}, {S, 0}},
    /*2B MethodSpec*/ {{C, 7}, {B, 0}},
    /*2C GenericParamConstraint*/ {{I, 0x2A}, {C, 0}},
};

}  // namespace

bool MetadataTables::load(const PeImage& image) {
    uint32_t available = 0;
    const unsigned char* root = image.at(image.metadataRva(), &available);
    if (root == nullptr || available < image.metadataSize() || image.metadataSize() < 16) return false;
    if (get32(root) != kMetadataSignature) return false;
    return readStreams(root, image.metadataSize()) && readTableHeader();
}

bool MetadataTables::readStreams(const unsigned char* root, uint32_t size) {
    uint32_t versionLength = get32(root + 12);
    uint64_t position = 16ull + versionLength;
    if (position + 4 > size) return false;
    uint16_t streamCount = get16(root + position + 2);
    position += 4;
    for (uint16_t i = 0; i < streamCount; ++i) {
        if (position + 8 > size) return false;
        uint32_t offset = get32(root + position);
        uint32_t length = get32(root + position + 4);
        const char* name = reinterpret_cast<const char*>(root + position + 8);
        size_t nameLength = strnlen(name, size - (position + 8));
        if (static_cast<uint64_t>(offset) + length > size) return false;
        const unsigned char* data = root + offset;
        if (std::strcmp(name, "#~") == 0) {
            tables = data;
            tablesSize = length;
        } else if (std::strcmp(name, "#Strings") == 0) {
            strings = data;
            stringsSize = length;
        } else if (std::strcmp(name, "#Blob") == 0) {
            blobs = data;
            blobsSize = length;
        }
        position += 8 + ((nameLength + 4) & ~3ull);
    }
    return tables != nullptr && strings != nullptr && blobs != nullptr;
}

unsigned int MetadataTables::codedIndexSize(unsigned int family) const {
    const CodedIndex& coded = kCodedIndices[family];
    uint32_t largest = 0;
    for (int table : coded.tables) {
        if (table >= 0 && rows[table] > largest) largest = rows[table];
    }
    return largest < (1u << (16 - coded.bits)) ? 2 : 4;
}

unsigned int MetadataTables::columnSize(unsigned int kind, unsigned int argument) const {
    switch (kind) {
    case F:
        return argument;
    case S:
        return (heapSizes & 0x01) ? 4 : 2;
    case G:
        return (heapSizes & 0x02) ? 4 : 2;
    case B:
        return (heapSizes & 0x04) ? 4 : 2;
    case I:
        return rows[argument] < 0x10000 ? 2 : 4;
    default:
        return codedIndexSize(argument);
    }
}

bool MetadataTables::readTableHeader() {
    if (tablesSize < 24) return false;
    heapSizes = tables[6];
    uint64_t valid = get32(tables + 8) | static_cast<uint64_t>(get32(tables + 12)) << 32;
    uint32_t position = 24;
    for (unsigned int table = 0; table < 64; ++table) {
        if ((valid >> table & 1) == 0) continue;
        if (table >= kTableCount || position + 4 > tablesSize) return false;
        rows[table] = get32(tables + position);
        position += 4;
    }
    uint64_t offset = position;
    for (unsigned int table = 0; table < kTableCount; ++table) {
        unsigned int size = 0;
        for (const ColumnSpec& column : kSchema[table]) {
            columnOffsets[table].push_back(size);
            size += columnSize(column.kind, column.argument);
        }
        rowSize[table] = size;
        tableOffset[table] = static_cast<uint32_t>(offset);
        offset += static_cast<uint64_t>(size) * rows[table];
    }
    return offset <= tablesSize;
}

const unsigned char* MetadataTables::rowAt(unsigned int table, uint32_t row) const {
    if (row == 0 || row > rows[table]) return nullptr;
    return tables + tableOffset[table] + static_cast<uint64_t>(row - 1) * rowSize[table];
}

uint32_t MetadataTables::readColumn(unsigned int table, uint32_t row, unsigned int column) const {
    const unsigned char* data = rowAt(table, row);
    if (data == nullptr) return 0;
    unsigned int offset = columnOffsets[table][column];
    unsigned int next = column + 1 < columnOffsets[table].size() ? columnOffsets[table][column + 1] : rowSize[table];
    switch (next - offset) {
    case 1:
        return data[offset];
    case 2:
        return get16(data + offset);
    default:
        return get32(data + offset);
    }
}

MetadataTables::MethodDefRow MetadataTables::methodDef(uint32_t row) const {
    return MethodDefRow{readColumn(kMethodDef, row, 0), static_cast<uint16_t>(readColumn(kMethodDef, row, 1)),
                        static_cast<uint16_t>(readColumn(kMethodDef, row, 2)), readColumn(kMethodDef, row, 3),
                        readColumn(kMethodDef, row, 4)};
}

uint32_t MetadataTables::blobColumn(unsigned int table, uint32_t row) const { return readColumn(table, row, 0); }

MetadataTables::Blob MetadataTables::blob(uint32_t index) const {
    if (index >= blobsSize) return Blob{nullptr, 0};
    const unsigned char* p = blobs + index;
    uint32_t left = blobsSize - index;
    uint32_t length;
    uint32_t header;
    if ((p[0] & 0x80) == 0) {
        length = p[0];
        header = 1;
    } else if ((p[0] & 0xC0) == 0x80 && left >= 2) {
        length = (p[0] & 0x3Fu) << 8 | p[1];
        header = 2;
    } else if ((p[0] & 0xE0) == 0xC0 && left >= 4) {
        length = (p[0] & 0x1Fu) << 24 | p[1] << 16 | p[2] << 8 | p[3];
        header = 4;
    } else {
        return Blob{nullptr, 0};
    }
    if (static_cast<uint64_t>(header) + length > left) return Blob{nullptr, 0};
    return Blob{p + header, length};
}

std::string MetadataTables::string(uint32_t index) const {
    if (index >= stringsSize) return std::string();
    const char* text = reinterpret_cast<const char*>(strings + index);
    return std::string(text, strnlen(text, stringsSize - index));
}
