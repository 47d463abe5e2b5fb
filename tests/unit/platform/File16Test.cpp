#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "platform/CappedLog.h"
#include "platform/File16.h"
#include "platform/FormattedOutput.h"
#include "support/RealAssemblies.h"
#include "support/ScratchDirectory.h"

namespace {

// A log opened at path, and the name of the file it took.
std::pair<FILE*, std::string> openLog(const std::string& path) {
    std::u16string taken = RealAssemblies::widen(path);
    bool held = false;
    const char* refusal = nullptr;
    FILE* log = fopenOwnLog_u16(taken, &held, &refusal);
    return {log, std::filesystem::path(RealAssemblies::narrow(taken.c_str())).filename()};
}

}  // namespace

// Each opening holds its own lock, as another process would: a held log sends
// the next opener to the first free number, and a number comes free with its
// opener, so that openers coming and going leave no file of their own.
TEST(OwnLog, HeldLogsTakeTheFirstFreeNumberAndLeaveItForTheNext) {
    ScratchDirectory scratch;
    const std::string path = scratch.path("native.log");
    const auto [first, firstName] = openLog(path);
    const auto [second, secondName] = openLog(path);
    EXPECT_EQ(firstName + " " + secondName, "native.log native_2.log");
    for (int restart = 0; restart < 3; ++restart) {
        const auto [third, thirdName] = openLog(path);
        EXPECT_EQ(thirdName, "native_3.log");
        CappedLog::close(third);
    }
    CappedLog::close(second);
    const auto [again, againName] = openLog(path);
    EXPECT_EQ(againName, "native_2.log");
    for (FILE* log : {again, first}) CappedLog::close(log);
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) files.insert(entry.path().filename());
    EXPECT_EQ(files, (std::set<std::string>{"native.log", "native_2.log", "native_3.log"}));
}

// The line that reaches a log's limit is followed by one that says so, and
// later lines are dropped, while their writers go on.
TEST(OwnLog, StopsAtItsLimitWithALineThatSaysSo) {
    ScratchDirectory scratch;
    FILE* log = openLog(scratch.path("capped.log")).first;
    ASSERT_NE(log, nullptr);
    // Close to the limit without writing all that comes before it.
    CappedLog::limit(log, CappedLog::kLimit - 100);
    const std::string line(59, 'x');
    for (int i = 0; i < 3; ++i) fprintf_8(log, "%s\n", line.c_str());
    EXPECT_EQ(fprintf_u16(log, u"%s\n", u"dropped"), 0);
    CappedLog::close(log);
    // A stream made later at the same address starts afresh.
    EXPECT_TRUE(CappedLog::admits(log));
    EXPECT_EQ(scratch.read("capped.log"), line + "\n" + line + "\nThis log has reached its limit of " +
                                              std::to_string(CappedLog::kLimit >> 20) +
                                              " MB: nothing more is written to it.\n");
}

// A text file beyond its limit is refused unread, with the limit in the reason.
TEST(TextFile, BeyondItsLimitIsRefusedUnread) {
    ScratchDirectory scratch;
    const std::string profile = scratch.write("huge.properties", "key=value\n");
    std::filesystem::resize_file(profile, (std::uintmax_t{1} << 20) + 1);
    const char* refusal = nullptr;
    EXPECT_EQ(fopenText_u16(RealAssemblies::widen(profile).c_str(), &refusal), nullptr);
    EXPECT_STREQ(refusal, "larger than 1 MB");
    FILE* directives = fopenText_u16(RealAssemblies::widen(profile).c_str(), &refusal, {}, 64);
    ASSERT_NE(directives, nullptr) << refusal;
    fclose(directives);
}
