#include "platform/File16.h"

#include <alloca.h>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
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

FILE* fopenText_u16(const char16_t* path, const char** refusal) {
    static const char kNotRegular[] = "a device, pipe or socket, not a file";
    FILE* stream = fopen_u16(path, u"r");
    if (stream == nullptr) {
        *refusal = strerror(errno);
        return nullptr;
    }
    struct stat facts {};
    // A folder reads as empty; a device or a pipe may never end.
    if (fstat(fileno(stream), &facts) != 0 || S_ISCHR(facts.st_mode) || S_ISBLK(facts.st_mode) ||
        S_ISFIFO(facts.st_mode) || S_ISSOCK(facts.st_mode)) {
        fclose(stream);
        *refusal = kNotRegular;
        return nullptr;
    }
    unsigned char mark[3] = {};
    if (fread(mark, 1, sizeof(mark), stream) != sizeof(mark) || mark[0] != 0xEF || mark[1] != 0xBB ||
        mark[2] != 0xBF) {
        rewind(stream);
    }
    return stream;
}

int access_u16(const char16_t* path, int mode) {
    std::string narrowPath;
    FromChar16(path, narrowPath);
    return access(narrowPath.c_str(), mode);
}
