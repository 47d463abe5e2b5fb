// Directory search with the Win32 names: one directory, one '*' pattern, names
// in alphasort order and the directory bit. A '\' in the pattern is read as '/'.
#pragma once

#include <dirent.h>
#include <string>

#include "platform/HandleInternal.h"
#include "platform/Win32Types.h"

class Glob;

constexpr int MAX_PATH = 260;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 16;

// Only the attributes and the name are filled in by a search.
struct WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
};
using LPWIN32_FIND_DATAW = WIN32_FIND_DATAW*;

// The state of one search: the scandir list, walked entry by entry.
class FindHandleInternal : public HandleInternal {
public:
    FindHandleInternal(const std::basic_string<char16_t>& directory, struct dirent** list, int count,
                       Glob* glob);
    ~FindHandleInternal() override;

    // Moves to the next entry whose name matches; false when none is left.
    bool Next();
    // Copies the current name and directory bit; nothing else is touched. The
    // name is not checked against the MAX_PATH size of cFileName.
    void UpdateFindData(LPWIN32_FIND_DATAW data) const;

private:
    std::basic_string<char16_t> directory;
    std::basic_string<char16_t> fileName;
    bool isDirectory = false;
    Glob* glob;
    struct dirent** entries;
    int entryCount;
    int nextEntry = 0;
};

// INVALID_HANDLE_VALUE if the directory cannot be read or nothing matches.
HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
BOOL FindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW data);
// The same as CloseHandle: frees the list and the pattern.
BOOL FindClose(HANDLE handle);
