#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/SystemUtils.h"
#include "support/RealAssemblies.h"
#include "support/ScratchDirectory.h"

namespace {

using Text = std::basic_string<char16_t>;

bool isDirectory(const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

TEST(SystemUtils, TryToCreateFullPathMakesTheDirectoriesAboveTheFile)
{
    ScratchDirectory scratch;
    // A stale errno from before must not turn a made directory into a failure.
    errno = ENOENT;
    EXPECT_TRUE(SystemUtils::TryToCreateFullPath(RealAssemblies::widen(scratch.path("a/b/c.log"))));
    EXPECT_TRUE(isDirectory(scratch.path("a")));
    EXPECT_TRUE(isDirectory(scratch.path("a/b")));
    EXPECT_FALSE(std::filesystem::exists(scratch.path("a/b/c.log")));

    // Both separators count; existing directories are fine.
    EXPECT_TRUE(SystemUtils::TryToCreateFullPath(RealAssemblies::widen(scratch.path("a\\x/y\\z.log"))));
    EXPECT_TRUE(isDirectory(scratch.path("a\\x")));
    EXPECT_TRUE(isDirectory(scratch.path("a\\x/y")));

    // A prefix ending in ':' is passed over.
    EXPECT_TRUE(SystemUtils::TryToCreateFullPath(RealAssemblies::widen(scratch.path("d:/e.log"))));
    EXPECT_FALSE(std::filesystem::exists(scratch.path("d:")));

    // No separator: nothing to do.
    EXPECT_TRUE(SystemUtils::TryToCreateFullPath(u"plain.log"));
    EXPECT_FALSE(std::filesystem::exists("plain.log"));

    // A file where a directory should be.
    scratch.write("file", "x");
    EXPECT_FALSE(SystemUtils::TryToCreateFullPath(RealAssemblies::widen(scratch.path("file/sub/c.log"))));
}
