#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/FileSystem.h"
#include "support/RealAssemblies.h"
#include "support/ScratchDirectory.h"

using u16 = std::basic_string<char16_t>;

TEST(FileSystem, FullPathJoinsRelativePathsWithoutNormalising) {
    char16_t buffer[1024];
    const std::string cwd = std::filesystem::current_path();

    DWORD length = GetFullPathNameW(u"sub/file", 1024, buffer, nullptr);
    EXPECT_EQ(u16(buffer), RealAssemblies::widen(cwd + "/sub/file"));
    EXPECT_EQ(length, cwd.size() + 9);

    GetFullPathNameW(u"..\\x", 1024, buffer, nullptr);
    EXPECT_EQ(u16(buffer), RealAssemblies::widen(cwd + "/..\\x"));

    EXPECT_EQ(GetFullPathNameW(u"/a/./b/../c", 1024, buffer, nullptr), 11u);
    EXPECT_EQ(u16(buffer), u"/a/./b/../c");
    EXPECT_EQ(GetFullPathNameW(u"\\share\\x", 1024, buffer, nullptr), 8u);
    EXPECT_EQ(u16(buffer), u"\\share\\x");

    // Cut to the buffer; the result is what stands in it.
    EXPECT_EQ(GetFullPathNameW(u"/abcdef", 4, buffer, nullptr), 3u);
    EXPECT_EQ(u16(buffer), u"/ab");
    EXPECT_EQ(GetFullPathNameW(u"relative", 3, buffer, nullptr), 2u);
    EXPECT_EQ(u16(buffer), RealAssemblies::widen(cwd.substr(0, 2)));
}

TEST(FileSystemDeathTest, FullPathRefusesAFilePartPointer) {
    char16_t buffer[64];
    LPWSTR filePart = nullptr;
    EXPECT_DEATH(GetFullPathNameW(u"x", 64, buffer, &filePart), "lpFilePart == __null");
}

TEST(FileSystem, AttributesOnlyTellExistence) {
    ScratchDirectory directory;
    EXPECT_EQ(GetFileAttributesW(RealAssemblies::widen(directory.path()).c_str()), 0u);
    EXPECT_EQ(GetFileAttributesW(RealAssemblies::widen(directory.write("f", "")).c_str()), 0u);
    EXPECT_EQ(GetFileAttributesW(RealAssemblies::widen(directory.path("missing")).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(FileSystem, CreateDirectoryJudgesByErrnoAlone) {
    ScratchDirectory directory;
    u16 child = RealAssemblies::widen(directory.path("child"));
    struct stat status;

    errno = 0;
    EXPECT_EQ(CreateDirectoryW(child.c_str(), nullptr), TRUE);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(stat(directory.path("child").c_str(), &status), 0);

    EXPECT_EQ(CreateDirectoryW(child.c_str(), nullptr), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);

    errno = 0;
    EXPECT_EQ(CreateDirectoryW(RealAssemblies::widen(directory.path("no/such")).c_str(), nullptr), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);

    // A stale errno makes a successful mkdir report failure.
    errno = ENOENT;
    EXPECT_EQ(CreateDirectoryW(RealAssemblies::widen(directory.path("stale")).c_str(), nullptr), FALSE);
    EXPECT_EQ(stat(directory.path("stale").c_str(), &status), 0);
}
