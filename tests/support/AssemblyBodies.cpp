#include "AssemblyBodies.h"

#include "offline/HostedRuntime.h"

namespace {
constexpr uint16_t kCodeTypeMask = 0x3;  // IL is 0
}

std::vector<std::string> AssemblyBodies::frameworkAssemblies() {
    std::vector<std::string> names = {"System.Private.CoreLib.dll", "System.Linq.dll", "System.Text.RegularExpressions.dll",
                                      "System.Collections.Immutable.dll", "System.Private.Xml.dll"};
    for (std::string& name : names) name = HostedRuntime::instance().frameworkDir() + name;
    return names;
}

bool AssemblyBodies::load(const std::string& path) { return image.load(path) && tables.load(image); }

uint32_t AssemblyBodies::declaredSize(const unsigned char* body, uint32_t available) {
    if (available < 1) return 0;
    if ((body[0] & 3) == 2) {
        uint32_t size = 1 + (body[0] >> 2);
        return size <= available ? size : 0;
    }
    if (available < 12 || (body[0] & 7) != 3) return 0;
    uint32_t codeSize = body[4] | body[5] << 8 | body[6] << 16 | static_cast<uint32_t>(body[7]) << 24;
    uint64_t end = 12ull + codeSize;
    if (end > available) return 0;
    if ((body[0] & 0x08) == 0) return static_cast<uint32_t>(end);
    uint64_t section = (end + 3) & ~3ull;
    if (section + 4 > available) return 0;
    const unsigned char* kind = body + section;
    uint32_t dataSize = (kind[0] & 0x40) ? (kind[1] | kind[2] << 8 | kind[3] << 16) : kind[1];
    uint64_t total = section + dataSize;
    return total <= available ? static_cast<uint32_t>(total) : 0;
}

std::vector<AssemblyBodies::Body> AssemblyBodies::bodies(unsigned int* outOfBounds) const {
    std::vector<Body> result;
    unsigned int bad = 0;
    for (uint32_t row = 1; row <= tables.rowCount(MetadataTables::kMethodDef); ++row) {
        MetadataTables::MethodDefRow method = tables.methodDef(row);
        if (method.rva == 0 || (method.implFlags & kCodeTypeMask) != 0) continue;
        uint32_t available = 0;
        const unsigned char* bytes = image.at(method.rva, &available);
        uint32_t size = bytes != nullptr ? declaredSize(bytes, available) : 0;
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
    return tables.string(tables.methodDef(methodRow).name);
}
