#include <gtest/gtest.h>


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
