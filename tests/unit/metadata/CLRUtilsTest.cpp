#include <gtest/gtest.h>

#include "metadata/CLRUtils.h"
#include "support/RealAssemblies.h"

// The version of the runtime in use is checked end to end, in the "Runtime
// Info" line; here, versions read from paths: -1 where none is found, and
// nothing written then.
TEST(CLRUtils, VersionFromTheRuntimeLibraryPath) {
    using Text = std::u16string;
    const std::pair<Text, int> paths[] = {
        {u"/opt/dotnet/6.0.1/libcoreclr.so", 60001}, {u"/d/5.0.0-preview.1/libcoreclr.so", 50000},
        {u"/opt/master/libcoreclr.so", -1},          {u"/opt/6.0/libcoreclr.so", -1},
        {u"/libcoreclr.so", -1},                     {u"libcoreclr.so", -1},
        {u"/x/" + Text(200, u'9') + u"/libcoreclr.so", -1},
    };
    for (const auto& [path, version] : paths) {
        int major = -1, minor = -1, patch = -1;
        EXPECT_EQ(CLRUtils::GetCoreCLRVersionFromPath(path, major, minor, patch), version >= 0)
            << RealAssemblies::narrow(path.c_str());
        EXPECT_EQ(version >= 0 ? major * 10000 + minor * 100 + patch : major, version)
            << RealAssemblies::narrow(path.c_str());
    }
}
