#include "platform/DirectorySearch.h"

#include <cstdlib>
#include <unistd.h>

#include "platform/Glob.h"
#include "platform/Handles.h"
#include "platform/Text16.h"
#include "platform/TextConversion.h"

namespace {

constexpr int kWorkingDirectoryBytes = 2048;

}  // namespace

FindHandleInternal::FindHandleInternal(const std::basic_string<char16_t>& directory, struct dirent** list, int count,
                                       Glob* glob)
    : directory(directory), glob(glob), entries(list), entryCount(count) {}

FindHandleInternal::~FindHandleInternal() {
    // Entries already walked were freed one by one; the rest go with the list.
    for (int i = nextEntry; i < entryCount; ++i) {
        free(entries[i]);
    }
    free(entries);
    delete glob;
}

bool FindHandleInternal::Next() {
    fileName.clear();
    while (nextEntry < entryCount) {
        struct dirent* entry = entries[nextEntry++];
        std::basic_string<char16_t> name;
        FromChar8(entry->d_name, name);
        const bool entryIsDirectory = entry->d_type == DT_DIR;
        free(entry);
        if (glob->match(name)) {
            fileName = name;
            isDirectory = entryIsDirectory;
            break;
        }
    }
    return !fileName.empty();
}

void FindHandleInternal::UpdateFindData(LPWIN32_FIND_DATAW data) const {
    strcpy_u16(data->cFileName, fileName.c_str());
    data->dwFileAttributes = isDirectory ? FILE_ATTRIBUTE_DIRECTORY : 0;
}

HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
    std::basic_string<char16_t> path(pattern);
    for (char16_t& unit : path) {
        if (unit == u'\\') {
            unit = u'/';
        }
    }

    std::basic_string<char16_t> directory;
    std::basic_string<char16_t> filePattern;
    const size_t slash = path.rfind(u'/');
    if (slash == std::basic_string<char16_t>::npos) {
        char workingDirectory[kWorkingDirectoryBytes];
        if (getcwd(workingDirectory, sizeof(workingDirectory)) == nullptr) {
            return INVALID_HANDLE_VALUE;
        }
        FromChar8(workingDirectory, directory);
        filePattern = path;
    } else {
        directory = path.substr(0, slash);
        filePattern = path.substr(slash + 1);
    }

    std::string narrowDirectory;
    FromChar16(directory.c_str(), narrowDirectory);
    struct dirent** list = nullptr;
    const int count = scandir(narrowDirectory.c_str(), &list, nullptr, alphasort);
    if (count < 0) {
        return INVALID_HANDLE_VALUE;
    }

    auto* search = new FindHandleInternal(directory, list, count, new Glob(filePattern));
    if (!search->Next()) {
        delete search;
        return INVALID_HANDLE_VALUE;
    }
    search->UpdateFindData(data);
    return RegisterHandle(search);
}

BOOL FindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW data) {
    auto* search = static_cast<FindHandleInternal*>(handle);
    if (!search->Next()) {
        return FALSE;
    }
    search->UpdateFindData(data);
    return TRUE;
}

BOOL FindClose(HANDLE handle) {
    return CloseHandle(handle);
}
