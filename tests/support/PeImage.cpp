#include "PeImage.h"

#include <fstream>

namespace {
constexpr uint32_t kPeSignature = 0x00004550;  // "PE\0\0"
constexpr uint16_t kPe32Magic = 0x10B;
constexpr uint16_t kPe32PlusMagic = 0x20B;
constexpr uint32_t kCliDirectory = 14;
constexpr uint32_t kSectionHeaderSize = 40;
}  // namespace

uint32_t PeImage::read32(uint64_t offset) const {
    if (offset + 4 > file.size()) return 0;
    return file[offset] | file[offset + 1] << 8 | file[offset + 2] << 16 | static_cast<uint32_t>(file[offset + 3]) << 24;
}

uint16_t PeImage::read16(uint64_t offset) const {
    if (offset + 2 > file.size()) return 0;
    return static_cast<uint16_t>(file[offset] | file[offset + 1] << 8);
}

bool PeImage::load(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) return false;
    file.resize(static_cast<size_t>(in.tellg()));
    in.seekg(0);
    if (!in.read(reinterpret_cast<char*>(file.data()), static_cast<std::streamsize>(file.size()))) return false;
    sections.clear();
    if (file.size() < 0x40 || file[0] != 'M' || file[1] != 'Z') return false;

    uint32_t pe = read32(0x3C);
    if (read32(pe) != kPeSignature) return false;
    uint32_t coff = pe + 4;
    uint16_t sectionCount = read16(coff + 2);
    uint16_t optionalSize = read16(coff + 16);
    uint32_t optional = coff + 20;
    uint16_t magic = read16(optional);
    uint32_t directories;
    if (magic == kPe32Magic) {
        directories = optional + 96;
    } else if (magic == kPe32PlusMagic) {
        directories = optional + 112;
    } else {
        return false;
    }
    if (directories + (kCliDirectory + 1) * 8 > optional + optionalSize) return false;
    if (!readSections(optional + optionalSize, sectionCount)) return false;
    return readCliHeader(read32(directories + kCliDirectory * 8));
}

bool PeImage::readSections(uint32_t sectionTable, uint16_t count) {
    if (sectionTable + static_cast<uint64_t>(count) * kSectionHeaderSize > file.size()) return false;
    for (uint16_t i = 0; i < count; ++i) {
        uint32_t header = sectionTable + i * kSectionHeaderSize;
        Section section{read32(header + 12), read32(header + 8), read32(header + 20), read32(header + 16)};
        if (static_cast<uint64_t>(section.rawPointer) + section.rawSize > file.size()) return false;
        sections.push_back(section);
    }
    return true;
}

bool PeImage::readCliHeader(uint32_t cliRva) {
    uint32_t available = 0;
    const unsigned char* cli = at(cliRva, &available);
    if (cli == nullptr || available < 16) return false;
    auto get32 = [cli](unsigned int offset) {
        return cli[offset] | cli[offset + 1] << 8 | cli[offset + 2] << 16 | static_cast<uint32_t>(cli[offset + 3]) << 24;
    };
    metadataRvaValue = get32(8);
    metadataSizeValue = get32(12);
    const unsigned char* metadata = at(metadataRvaValue, &available);
    return metadata != nullptr && available >= metadataSizeValue;
}

const unsigned char* PeImage::at(uint32_t rva, uint32_t* available) const {
    for (const Section& section : sections) {
        uint32_t size = section.virtualSize != 0 && section.virtualSize < section.rawSize ? section.virtualSize
                                                                                     : section.rawSize;
        if (rva >= section.virtualAddress && rva - section.virtualAddress < size) {
            uint32_t into = rva - section.virtualAddress;
            *available = size - into;
            return file.data() + section.rawPointer + into;
        }
    }
    *available = 0;
    return nullptr;
}
