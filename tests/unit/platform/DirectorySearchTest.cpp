#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include "platform/DirectorySearch.h"
#include "platform/Handles.h"
#include "support/RealAssemblies.h"
#include "support/ScratchDirectory.h"

namespace {

using Text = std::basic_string<char16_t>;

struct Found {
    Text name;
    DWORD attributes;
    bool operator==(const Found&) const = default;
};

// Every entry a search delivers, in order; empty if FindFirstFileW refused.
std::vector<Found> search(const Text& pattern)
{
    std::vector<Found> found;
    WIN32_FIND_DATAW data {};
    HANDLE handle = FindFirstFileW(pattern.c_str(), &data);
    if (handle == INVALID_HANDLE_VALUE) {
        return found;
    }
    do {
        found.push_back({data.cFileName, data.dwFileAttributes});
    } while (FindNextFileW(handle, &data));
    EXPECT_TRUE(FindClose(handle));
    return found;
}

class DirectorySearch : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Written out of order on purpose.
        scratch.write("dir/c.fmd", "c");
        scratch.write("dir/a.txt", "a");
        scratch.write("dir/b.fmd", "b");
        std::filesystem::create_directories(scratch.path("dir/sub.fmd"));
    }
    ScratchDirectory scratch;
};

} // namespace

TEST_F(DirectorySearch, DeliversMatchesInSortedOrderWithTheDirectoryBit)
{
    const std::vector<Found> expected {
        {u"b.fmd", 0}, {u"c.fmd", 0}, {u"sub.fmd", FILE_ATTRIBUTE_DIRECTORY}};
    EXPECT_EQ(search(RealAssemblies::widen(scratch.path("dir/*.fmd"))), expected);
    // Backslashes are read as slashes, all through the pattern.
    EXPECT_EQ(search(RealAssemblies::widen(scratch.path("dir\\*.fmd"))), expected);
    EXPECT_EQ(search(RealAssemblies::widen(scratch.path("dir")) + u"\\..\\dir\\*.fmd"), expected);

    // No match, or no directory: an invalid handle.
    WIN32_FIND_DATAW data {};
    EXPECT_EQ(FindFirstFileW(RealAssemblies::widen(scratch.path("dir/*.none")).c_str(), &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(FindFirstFileW(RealAssemblies::widen(scratch.path("missing/*.fmd")).c_str(), &data),
              INVALID_HANDLE_VALUE);
}

TEST_F(DirectorySearch, StarDeliversTheDotEntriesAndAnEarlyCloseFreesTheSearchOnce)
{
    const std::vector<Found> all = search(RealAssemblies::widen(scratch.path("dir/*")));
    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(all[0], (Found {u".", FILE_ATTRIBUTE_DIRECTORY}));
    EXPECT_EQ(all[1], (Found {u"..", FILE_ATTRIBUTE_DIRECTORY}));
    EXPECT_EQ(all[2].name, u"a.txt");

    WIN32_FIND_DATAW data {};
    HANDLE handle = FindFirstFileW(RealAssemblies::widen(scratch.path("dir/*")).c_str(), &data);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Text(data.cFileName), u".");
    EXPECT_TRUE(FindClose(handle));
    EXPECT_FALSE(CloseHandle(handle));
}

TEST_F(DirectorySearch, PatternWithoutSeparatorSearchesTheWorkingDirectory)
{
    const std::string previous = std::filesystem::current_path();
    ASSERT_EQ(chdir(scratch.path("dir").c_str()), 0);
    const std::vector<Found> found = search(u"*.txt");
    ASSERT_EQ(chdir(previous.c_str()), 0);
    EXPECT_EQ(found, (std::vector<Found> {{u"a.txt", 0}}));
}
