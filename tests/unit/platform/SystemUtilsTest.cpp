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

// Where the loader found the library that holds address, canonical.
std::string loadedPathOf(const void* address)
{
    Dl_info info {};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    char resolved[PATH_MAX];
    return realpath(info.dli_fname, resolved) != nullptr ? resolved : "";
}

} // namespace

TEST(SystemUtils, ProgramArgumentsStartWithThisProgram)
{
    std::vector<Text> args;
    SystemUtils::GetProgramArguments(args);
    ASSERT_FALSE(args.empty());
    EXPECT_EQ(args[0], RealAssemblies::widen(program_invocation_name));
    EXPECT_EQ(SystemUtils::GetPid(), getpid());
}

TEST(SystemUtils, FullModulePathIsTheMappedFile)
{
    const std::string expected = loadedPathOf(reinterpret_cast<const void*>(&dlsym));
    ASSERT_FALSE(expected.empty());
    const std::string name = std::filesystem::path(expected).filename();

    Text path = u"untouched";
    ASSERT_TRUE(SystemUtils::GetFullModulePath(RealAssemblies::widen(name).c_str(), path));
    EXPECT_EQ(path, RealAssemblies::widen(expected));

    std::string narrow = "untouched";
    ASSERT_TRUE(SystemUtils::GetFullModulePathA(name.c_str(), narrow));
    EXPECT_EQ(narrow, expected);

    // Any part of a file name will do.
    Text partial;
    ASSERT_TRUE(SystemUtils::GetFullModulePath(RealAssemblies::widen(name.substr(0, 4)).c_str(), partial));
    EXPECT_EQ(partial.front(), u'/');
    EXPECT_EQ(partial.find(u'\n'), Text::npos);
}

TEST(SystemUtils, UnmappedModuleLeavesThePathAlone)
{
    Text path = u"untouched";
    EXPECT_FALSE(SystemUtils::GetFullModulePath(u"no-such-module-7f3a.so", path));
    EXPECT_EQ(path, u"untouched");
    std::string narrow = "untouched";
    EXPECT_FALSE(SystemUtils::GetFullModulePathA("no-such-module-7f3a.so", narrow));
    EXPECT_EQ(narrow, "untouched");
}

TEST(SystemUtils, LookupProcAddressReachesAMappedLibrary)
{
    const std::string libc = std::filesystem::path(loadedPathOf(reinterpret_cast<const void*>(&getpid))).filename();
    ASSERT_FALSE(libc.empty());
    EXPECT_EQ(SystemUtils::LookupProcAddress(libc.c_str(), "getpid"), dlsym(RTLD_DEFAULT, "getpid"));
    EXPECT_EQ(SystemUtils::LookupProcAddress(libc.c_str(), "no_such_function_7f3a"), nullptr);
    EXPECT_EQ(SystemUtils::LookupProcAddress("no-such-module-7f3a.so", "getpid"), nullptr);
}

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
