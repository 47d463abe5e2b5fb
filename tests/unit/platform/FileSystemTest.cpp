#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/FileSystem.h"

using u16 = std::basic_string<char16_t>;

namespace {

u16 widen(const std::string& text) {
    return u16(text.begin(), text.end());
}

std::string workingDirectory() {
    char buffer[4096];
    return getcwd(buffer, sizeof(buffer));
}

// A fresh directory, removed with its direct children at the end.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        char pattern[] = "/tmp/tarn_pal_XXXXXX";
        path = mkdtemp(pattern);
    }
    ~TemporaryDirectory() { std::system(("rm -rf " + path).c_str()); }
    std::string path;
};

}  // namespace

TEST(FileSystem, FullPathJoinsRelativePathsWithoutNormalising) {
    char16_t buffer[1024];
    std::string cwd = workingDirectory();

    DWORD length = GetFullPathNameW(u"sub/file", 1024, buffer, nullptr);
    EXPECT_EQ(u16(buffer), widen(cwd + "/sub/file"));
    EXPECT_EQ(length, cwd.size() + 9);

    GetFullPathNameW(u"..\\x", 1024, buffer, nullptr);
    EXPECT_EQ(u16(buffer), widen(cwd + "/..\\x"));

    EXPECT_EQ(GetFullPathNameW(u"/a/./b/../c", 1024, buffer, nullptr), 11u);
    EXPECT_EQ(u16(buffer), u"/a/./b/../c");
    EXPECT_EQ(GetFullPathNameW(u"\\share\\x", 1024, buffer, nullptr), 8u);
    EXPECT_EQ(u16(buffer), u"\\share\\x");

    // Cut to the buffer; the result is what stands in it.
    EXPECT_EQ(GetFullPathNameW(u"/abcdef", 4, buffer, nullptr), 3u);
    EXPECT_EQ(u16(buffer), u"/ab");
    EXPECT_EQ(GetFullPathNameW(u"relative", 3, buffer, nullptr), 2u);
    EXPECT_EQ(u16(buffer), widen(cwd.substr(0, 2)));
}

TEST(FileSystemDeathTest, FullPathRefusesAFilePartPointer) {
    char16_t buffer[64];
    LPWSTR filePart = nullptr;
    EXPECT_DEATH(GetFullPathNameW(u"x", 64, buffer, &filePart), "lpFilePart == __null");
}

TEST(FileSystem, AttributesOnlyTellExistence) {
    TemporaryDirectory directory;
    std::string file = directory.path + "/f";
    std::fclose(std::fopen(file.c_str(), "w"));
    EXPECT_EQ(GetFileAttributesW(widen(directory.path).c_str()), 0u);
    EXPECT_EQ(GetFileAttributesW(widen(file).c_str()), 0u);
    EXPECT_EQ(GetFileAttributesW(widen(directory.path + "/missing").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(FileSystem, CreateDirectoryJudgesByErrnoAlone) {
    TemporaryDirectory directory;
    u16 child = widen(directory.path + "/child");
    struct stat status;

    errno = 0;
    EXPECT_EQ(CreateDirectoryW(child.c_str(), nullptr), TRUE);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(stat((directory.path + "/child").c_str(), &status), 0);

    EXPECT_EQ(CreateDirectoryW(child.c_str(), nullptr), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);

    errno = 0;
    EXPECT_EQ(CreateDirectoryW(widen(directory.path + "/no/such").c_str(), nullptr), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);

    // A stale errno makes a successful mkdir report failure.
    errno = ENOENT;
    EXPECT_EQ(CreateDirectoryW(widen(directory.path + "/stale").c_str(), nullptr), FALSE);
    EXPECT_EQ(stat((directory.path + "/stale").c_str(), &status), 0);
}
