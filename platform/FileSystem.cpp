#include "platform/FileSystem.h"

#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/PalAssert.h"
#include "platform/Text16.h"
#include "platform/TextConversion.h"

namespace {
constexpr size_t kWorkingDirectoryBytes = 2048;
}

DWORD GetFullPathNameW(LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR* lpFilePart) {
    PAL_ASSERT(lpFilePart == NULL);
    // A cut path names another file: it is no answer.
    if (path[0] == u'\\' || path[0] == u'/') {
        if (strlen_u16(path) >= size) return 0;
        strncpy_u16(buffer, path, size);
        return static_cast<DWORD>(strlen_u16(buffer));
    }
    char workingDirectory[kWorkingDirectoryBytes];
    if (getcwd(workingDirectory, sizeof(workingDirectory)) == nullptr) {
        return 0;
    }
    std::string narrowPath;
    FromChar16(path, narrowPath);
    std::string full = std::string(workingDirectory) + "/" + narrowPath;
    if (full.size() >= size) return 0;
    CopyChar8To16(full.c_str(), buffer, size);
    return static_cast<DWORD>(strlen_u16(buffer));
}

DWORD GetFileAttributesW(LPCWSTR path) {
    std::string narrowPath;
    FromChar16(path, narrowPath);
    struct stat status;
    return stat(narrowPath.c_str(), &status) == 0 ? 0 : INVALID_FILE_ATTRIBUTES;
}

BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
    std::string narrowPath;
    FromChar16(path, narrowPath);
    // errno alone decides, as GetLastError reads it afterwards. The folders we
    // make hold our logs: readable by the group, by nobody else.
    mkdir(narrowPath.c_str(), 0750);
    return errno == 0 ? TRUE : FALSE;
}

DWORD GetLastError() {
    switch (errno) {
        case 0:
            return ERROR_SUCCESS;
        case EEXIST:
            return ERROR_ALREADY_EXISTS;
        default:
            return ERROR_NOT_SUPPORTED;
    }
}
