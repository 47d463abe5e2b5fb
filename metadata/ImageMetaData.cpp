#include "metadata/ImageMetaData.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/AutoPointer.h"
#include "platform/SystemUtils.h"
#include "runtime/CorMetadataEnums.h"
#include "runtime/Guids.h"
#include "runtime/ProfilerEnums.h"

namespace {

using GetDispenser = HRESULT (*)(REFCLSID, REFIID, void**);

// Offsets of the PE and CLI headers that lead to the metadata.
constexpr size_t kNewHeaderOffset = 0x3C;
constexpr uint32_t kLargestHeaderOffset = 0x1000;
constexpr size_t kFileHeaderSize = 20;
constexpr uint16_t kPe32 = 0x10B;
constexpr uint16_t kPe32Plus = 0x20B;
constexpr size_t kDirectoriesPe32 = 96;
constexpr size_t kDirectoriesPe32Plus = 112;
constexpr size_t kCliDirectory = 14;
constexpr size_t kSectionSize = 40;
constexpr uint16_t kMostSections = 96;
constexpr uint32_t kMetadataSignature = 0x424A5342;  // "BSJB"
constexpr uint32_t kLargestMetadata = 1u << 30;

template <typename T>
T read(const unsigned char* at) {
    T value;
    std::memcpy(&value, at, sizeof(T));
    return value;
}

// Where the image keeps its metadata, and how much of it; null if the headers
// do not lead there. A flat image lies as the file does, a mapped one with
// each section at its relative address.
const unsigned char* findMetadata(const unsigned char* base, bool flat, uint32_t* size) {
    if (base[0] != 'M' || base[1] != 'Z') return nullptr;
    const uint32_t peOffset = read<uint32_t>(base + kNewHeaderOffset);
    if (peOffset > kLargestHeaderOffset || std::memcmp(base + peOffset, "PE\0\0", 4) != 0) return nullptr;
    const unsigned char* fileHeader = base + peOffset + 4;
    const uint16_t sectionCount = read<uint16_t>(fileHeader + 2);
    const uint16_t optionalSize = read<uint16_t>(fileHeader + 16);
    const unsigned char* optional = fileHeader + kFileHeaderSize;
    const uint16_t magic = read<uint16_t>(optional);
    if ((magic != kPe32 && magic != kPe32Plus) || sectionCount > kMostSections) return nullptr;
    const unsigned char* directories = optional + (magic == kPe32Plus ? kDirectoriesPe32Plus : kDirectoriesPe32);
    const unsigned char* sections = optional + optionalSize;
    auto at = [&](uint32_t address) -> const unsigned char* {
        if (!flat) return base + address;
        for (uint16_t i = 0; i < sectionCount; ++i) {
            const unsigned char* section = sections + i * kSectionSize;
            const uint32_t start = read<uint32_t>(section + 12);
            // As the file lies, a section holds only its raw data.
            const uint32_t extent = read<uint32_t>(section + 16);
            if (address >= start && address - start < extent)
                return base + read<uint32_t>(section + 20) + (address - start);
        }
        return nullptr;
    };
    const uint32_t cliAddress = read<uint32_t>(directories + kCliDirectory * 8);
    const unsigned char* cliHeader = cliAddress != 0 ? at(cliAddress) : nullptr;
    if (cliHeader == nullptr) return nullptr;
    const uint32_t metadataAddress = read<uint32_t>(cliHeader + 8);
    *size = read<uint32_t>(cliHeader + 12);
    const unsigned char* metadata = metadataAddress != 0 ? at(metadataAddress) : nullptr;
    if (metadata == nullptr || *size < 4 || *size > kLargestMetadata ||
        read<uint32_t>(metadata) != kMetadataSignature) {
        return nullptr;
    }
    return metadata;
}

struct Scopes {
    std::mutex lock;
    AutoCOMPointer<IMetaDataDispenser> dispenser;
    bool dispenserSought = false;
    std::map<ModuleID, AutoCOMPointer<IMetaDataImport>> byModule;
};

Scopes& scopes() {
    static Scopes* shared = new Scopes();  // lives as long as the process: the runtime may call in at exit
    return *shared;
}

// The scope on the module's image; null where there is none to read.
AutoCOMPointer<IMetaDataImport> openImage(ICorProfilerInfo* info, ModuleID module, Scopes& all) {
    AutoCOMPointer<IMetaDataImport> scope;
    AutoCOMPointer<ICorProfilerInfo3> info3;
    LPCBYTE base = nullptr;
    DWORD flags = 0;
    ULONG length = 0;
    AssemblyID assembly = 0;
    if (FAILED(info->QueryInterface(IID_ICorProfilerInfo3, reinterpret_cast<void**>(&info3))) ||
        FAILED(info3->GetModuleInfo2(module, &base, 0, &length, nullptr, &assembly, &flags)) || base == nullptr ||
        (flags & COR_PRF_MODULE_DYNAMIC) != 0) {
        return scope;
    }
    uint32_t size = 0;
    const unsigned char* metadata = findMetadata(base, (flags & COR_PRF_MODULE_FLAT_LAYOUT) != 0, &size);
    if (metadata == nullptr) return scope;
    if (!all.dispenserSought) {
        all.dispenserSought = true;
        auto getDispenser =
            reinterpret_cast<GetDispenser>(SystemUtils::LookupProcAddress("libcoreclr.so", "MetaDataGetDispenser"));
        if (getDispenser != nullptr) {
            (void)getDispenser(CLSID_CorMetaDataDispenser, IID_IMetaDataDispenser,
                               reinterpret_cast<void**>(&all.dispenser));
        }
    }
    if (all.dispenser != nullptr &&
        FAILED(all.dispenser->OpenScopeOnMemory(metadata, size, ofReadOnly, IID_IMetaDataImport,
                                                reinterpret_cast<IUnknown**>(&scope)))) {
        scope = nullptr;
    }
    return scope;
}

}  // namespace

HRESULT ImageMetaData::open(ICorProfilerInfo* info, ModuleID module, REFIID riid, IUnknown** out) {
    *out = nullptr;
    Scopes& all = scopes();
    {
        std::lock_guard<std::mutex> held(all.lock);
        auto known = all.byModule.find(module);
        if (known == all.byModule.end()) {
            known = all.byModule.emplace(module, openImage(info, module, all)).first;
        }
        if (known->second != nullptr) {
            return known->second->QueryInterface(riid, reinterpret_cast<void**>(out));
        }
    }
    return info->GetModuleMetaData(module, ofRead, riid, out);
}

void ImageMetaData::forget(ModuleID module) {
    Scopes& all = scopes();
    std::lock_guard<std::mutex> held(all.lock);
    all.byModule.erase(module);
}
