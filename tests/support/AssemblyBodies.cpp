#include "AssemblyBodies.h"

#include <fstream>

#include "RealAssemblies.h"
#include "offline/HostedRuntime.h"

namespace {

constexpr DWORD kCodeTypeMask = 0x3;  // IL is 0

uint32_t read32(const unsigned char* p) { return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24; }
uint16_t read16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

// The size that a body's headers declare, if it fits in `available`; 0 if not.
uint32_t declaredSize(const unsigned char* body, uint32_t available) {
    if (available < 1) return 0;
    if ((body[0] & 3) == 2) {
        uint32_t size = 1 + (body[0] >> 2);
        return size <= available ? size : 0;
    }
    if (available < 12 || (body[0] & 7) != 3) return 0;
    uint64_t end = 12ull + read32(body + 4);
    if (end > available) return 0;
    if ((body[0] & 0x08) == 0) return static_cast<uint32_t>(end);
    uint64_t section = (end + 3) & ~3ull;
    if (section + 4 > available) return 0;
    const unsigned char* kind = body + section;
    uint32_t dataSize = (kind[0] & 0x40) ? (kind[1] | kind[2] << 8 | kind[3] << 16) : kind[1];
    uint64_t total = section + dataSize;
    return total <= available ? static_cast<uint32_t>(total) : 0;
}

}  // namespace

std::vector<std::string> AssemblyBodies::frameworkAssemblies() {
    std::vector<std::string> names = {"System.Private.CoreLib.dll", "System.Linq.dll", "System.Text.RegularExpressions.dll",
                                      "System.Collections.Immutable.dll", "System.Private.Xml.dll"};
    for (std::string& name : names) name = HostedRuntime::instance().frameworkDir() + name;
    return names;
}

bool AssemblyBodies::load(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    file.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    import = RealAssemblies::open(path);
    if (file.size() < 0x40 || import.get() == nullptr) return false;
    // The PE header, then the section table behind the optional header.
    const uint32_t pe = read32(&file[0x3C]);
    if (static_cast<uint64_t>(pe) + 24 > file.size()) return false;
    const uint16_t count = read16(&file[pe + 6]);
    const uint64_t table = pe + 24ull + read16(&file[pe + 20]);
    if (table + 40ull * count > file.size()) return false;
    sections.clear();
    for (uint16_t i = 0; i < count; ++i) {
        const unsigned char* header = &file[table + 40ull * i];
        const uint32_t virtualSize = read32(header + 8), rawSize = read32(header + 16);
        const Section section{read32(header + 12), virtualSize != 0 && virtualSize < rawSize ? virtualSize : rawSize,
                              read32(header + 20)};
        if (static_cast<uint64_t>(section.rawPointer) + section.size > file.size()) return false;
        sections.push_back(section);
    }
    return true;
}

const unsigned char* AssemblyBodies::at(uint32_t rva, uint32_t* available) const {
    for (const Section& section : sections) {
        if (rva >= section.virtualAddress && rva - section.virtualAddress < section.size) {
            *available = section.size - (rva - section.virtualAddress);
            return file.data() + section.rawPointer + (rva - section.virtualAddress);
        }
    }
    *available = 0;
    return nullptr;
}

std::vector<AssemblyBodies::Body> AssemblyBodies::bodies(unsigned int* outOfBounds) const {
    std::vector<Body> result;
    unsigned int bad = 0;
    for (uint32_t row = 1; import->IsValidToken(TokenFromRid(row, mdtMethodDef)); ++row) {
        ULONG rva = 0;
        DWORD implFlags = 0;
        import->GetMethodProps(TokenFromRid(row, mdtMethodDef), nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                               &rva, &implFlags);
        if (rva == 0 || (implFlags & kCodeTypeMask) != 0) continue;
        uint32_t available = 0;
        const unsigned char* bytes = at(rva, &available);
        const uint32_t size = bytes != nullptr ? declaredSize(bytes, available) : 0;
        if (size == 0) {
            ++bad;
            continue;
        }
        result.push_back(Body{row, bytes, size});
    }
    if (outOfBounds != nullptr) *outOfBounds = bad;
    return result;
}

std::string AssemblyBodies::methodName(uint32_t methodRow) const {
    return RealAssemblies::nameOf(import, TokenFromRid(methodRow, mdtMethodDef));
}

std::vector<AssemblyBodies::Blob> AssemblyBodies::signatures(CorTokenType table) const {
    std::vector<Blob> blobs;
    for (uint32_t row = 1; import->IsValidToken(TokenFromRid(row, table)); ++row) {
        PCCOR_SIGNATURE data = nullptr;
        ULONG length = 0;
        const mdToken token = TokenFromRid(row, table);
        if (table == mdtMethodDef)
            import->GetMethodProps(token, nullptr, nullptr, 0, nullptr, nullptr, &data, &length, nullptr, nullptr);
        else if (table == mdtSignature)
            import->GetSigFromToken(token, &data, &length);
        else
            import->GetTypeSpecFromToken(token, &data, &length);
        blobs.push_back(Blob{data, length});
    }
    return blobs;
}
