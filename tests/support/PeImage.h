// A PE file read into memory, with its sections, for reading IL bodies and
// metadata straight from an assembly without a runtime. Test-only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class PeImage {
public:
    // Reads and checks the file; false if it is no PE image with a CLI header.
    bool load(const std::string& path);

    // Bytes at an RVA and how many follow it in the same section; null (and 0)
    // for an RVA outside every section's file data.
    const unsigned char* at(uint32_t rva, uint32_t* available) const;

    uint32_t metadataRva() const { return metadataRvaValue; }
    uint32_t metadataSize() const { return metadataSizeValue; }

private:
    struct Section {
        uint32_t virtualAddress;
        uint32_t virtualSize;
        uint32_t rawPointer;
        uint32_t rawSize;
    };

    bool readSections(uint32_t sectionTable, uint16_t count);
    bool readCliHeader(uint32_t cliRva);
    uint32_t read32(uint64_t offset) const;
    uint16_t read16(uint64_t offset) const;

    std::vector<unsigned char> file;
    std::vector<Section> sections;
    uint32_t metadataRvaValue = 0;
    uint32_t metadataSizeValue = 0;
};
