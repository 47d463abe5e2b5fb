#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "metadata/CLRUtils.h"
#include "runtime/CorErrors.h"
#include "offline/HostedRuntime.h"
#include "support/ProfilerInfoDouble.h"
#include "support/RealAssemblies.h"

namespace {

using Text = std::basic_string<char16_t>;

class CLRUtilsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(HostedRuntime::instance().ready()) << HostedRuntime::instance().error();
        info = ProfilerInfoDouble::newInstance();
    }

    std::string managedPath(std::initializer_list<const char*> args, bool& found) {
        std::vector<Text> wide;
        for (const char* arg : args) {
            wide.push_back(RealAssemblies::widen(arg));
        }
        Text path = u"untouched";
        found = CLRUtils::GetManagedModulePath(info, wide, path);
        return RealAssemblies::narrow(path.c_str());
    }

    AutoCOMPointer<ProfilerInfoDouble> info;
};

}  // namespace

TEST_F(CLRUtilsTest, RuntimeKindAndVersionOfThisInstallation) {
    EXPECT_TRUE(CLRUtils::IsDotnetCore(info));
    info->setRuntimeType(COR_PRF_DESKTOP_CLR);
    EXPECT_FALSE(CLRUtils::IsDotnetCore(info));

    // The hosted runtime's library is mapped into this process.
    int expected[3] = {-1, -1, -1};
    std::string folder = std::filesystem::path(HostedRuntime::instance().frameworkDir()).parent_path().filename();
    ASSERT_EQ(sscanf(folder.c_str(), "%d.%d.%d", &expected[0], &expected[1], &expected[2]), 3) << folder;
    int major = -1, minor = -1, patch = -1;
    ASSERT_TRUE(CLRUtils::GetCoreCLRVersion(major, minor, patch));
    EXPECT_EQ(major, expected[0]);
    EXPECT_EQ(minor, expected[1]);
    EXPECT_EQ(patch, expected[2]);

    // Versions read from a path: -1 where none is found, and nothing written then.
    const std::pair<Text, int> paths[] = {
        {u"/opt/dotnet/6.0.1/libcoreclr.so", 60001}, {u"/d/5.0.0-preview.1/libcoreclr.so", 50000},
        {u"/opt/master/libcoreclr.so", -1},          {u"/opt/6.0/libcoreclr.so", -1},
        {u"/libcoreclr.so", -1},                     {u"libcoreclr.so", -1},
        {u"/x/" + Text(200, u'9') + u"/libcoreclr.so", -1},
    };
    for (const auto& [path, version] : paths) {
        major = minor = patch = -1;
        EXPECT_EQ(CLRUtils::GetCoreCLRVersionFromPath(path, major, minor, patch), version >= 0)
            << RealAssemblies::narrow(path.c_str());
        EXPECT_EQ(version >= 0 ? major * 10000 + minor * 100 + patch : major, version)
            << RealAssemblies::narrow(path.c_str());
    }
}

TEST_F(CLRUtilsTest, ManagedProgramFromTheCommandLine) {
    struct Case {
        std::initializer_list<const char*> args;
        const char* path;
    };
    const Case cases[] = {
        {{"/usr/bin/dotnet", "app.dll", "arg"}, "app.dll"},
        {{"dotnet", "exec", "foo.dll"}, "foo.dll"},
        {{"dotnet", "run"}, "run"},
        {{"dotnet", "build", "x.dll.txt"}, nullptr},
        {{"/x/not-mapped-anywhere"}, nullptr},
    };
    bool found = false;
    for (const Case& c : cases) {
        EXPECT_EQ(managedPath(c.args, found), c.path != nullptr ? c.path : "untouched") << *c.args.begin();
        EXPECT_EQ(found, c.path != nullptr) << *c.args.begin();
    }

    // An application host: this test program plays it, being mapped.
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string name = std::filesystem::path(self).filename().string();
    EXPECT_EQ(managedPath({("/elsewhere/" + name).c_str(), "arg"}, found), self + ".dll");
    EXPECT_TRUE(found);
    Text real;
    ASSERT_TRUE(CLRUtils::GetManagedModulePath(info, real));
    EXPECT_EQ(RealAssemblies::narrow(real.c_str()), self + ".dll");

    // Not CoreCLR: the host's own mapping.
    info->setRuntimeType(COR_PRF_DESKTOP_CLR);
    EXPECT_EQ(managedPath({name.c_str()}, found), self);
    EXPECT_TRUE(found);
}
