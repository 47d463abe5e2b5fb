// The compressed metadata tables (#~) and heaps of an assembly, read directly
// from its bytes: row counts, column widths from the heap-size flags and coded
// index sizes, and the few columns the IL tests need. Test-only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "PeImage.h"

class MetadataTables {
public:
    enum Table : unsigned int {
        kTypeRef = 0x01,
        kTypeDef = 0x02,
        kMethodDef = 0x06,
        kMemberRef = 0x0A,
        kStandAloneSig = 0x11,
        kTypeSpec = 0x1B,
        kTableCount = 0x2D,
    };

    struct Blob {
        const unsigned char* data;
        uint32_t length;
    };

    struct MethodDefRow {
        uint32_t rva;
        uint16_t implFlags;
        uint16_t flags;
        uint32_t name;       // #Strings index
        uint32_t signature;  // #Blob index
    };

    // False if the metadata is not the compressed form this reader knows.
    bool load(const PeImage& image);

    uint32_t rowCount(unsigned int table) const { return rows[table]; }
    // Rows are numbered from 1, as in tokens.
    MethodDefRow methodDef(uint32_t row) const;
    // The single blob column of StandAloneSig and TypeSpec.
    uint32_t blobColumn(unsigned int table, uint32_t row) const;
    // A blob by #Blob index; data null if the index or length is out of bounds.
    Blob blob(uint32_t index) const;
    std::string string(uint32_t index) const;

private:
    bool readStreams(const unsigned char* root, uint32_t size);
    bool readTableHeader();
    // kind: fixed, string, guid, blob, table index, coded index; argument: width,
    // table or coded index family.
    unsigned int columnSize(unsigned int kind, unsigned int argument) const;
    unsigned int codedIndexSize(unsigned int family) const;
    const unsigned char* rowAt(unsigned int table, uint32_t row) const;
    uint32_t readColumn(unsigned int table, uint32_t row, unsigned int column) const;

    const unsigned char* tables = nullptr;
    uint32_t tablesSize = 0;
    const unsigned char* strings = nullptr;
    uint32_t stringsSize = 0;
    const unsigned char* blobs = nullptr;
    uint32_t blobsSize = 0;
    unsigned char heapSizes = 0;
    uint32_t rows[kTableCount] = {};
    uint32_t tableOffset[kTableCount] = {};
    unsigned int rowSize[kTableCount] = {};
    std::vector<unsigned int> columnOffsets[kTableCount];
};
