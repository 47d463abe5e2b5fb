#include "platform/File16.h"

#include <alloca.h>
#include <string>
#include <unistd.h>

#include "platform/TextConversion.h"

char16_t* fgets_u16(char16_t* buf, int n, FILE* stream) {
    if (n < 1) {
        return nullptr;
    }
    auto* line = static_cast<char*>(alloca(n));
    if (std::fgets(line, n, stream) == nullptr) {
        return nullptr;
    }
    CopyChar8To16(line, buf, n);
    return buf;
}

FILE* fopen_u16(const char16_t* path, const char16_t* mode) {
    std::string narrowPath;
    std::string narrowMode;
    FromChar16(path, narrowPath);
    FromChar16(mode, narrowMode);
    return std::fopen(narrowPath.c_str(), narrowMode.c_str());
}

int access_u16(const char16_t* path, int mode) {
    std::string narrowPath;
    FromChar16(path, narrowPath);
    return access(narrowPath.c_str(), mode);
}
