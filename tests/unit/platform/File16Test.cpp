#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "platform/CappedLog.h"
#include "platform/File16.h"
#include "platform/FormattedOutput.h"
#include "platform/TextConversion.h"
#include "support/ScratchDirectory.h"

// Each opening holds its own lock, as another process would: a held log sends
// the next opener to the first free number, and a number comes free with its
// opener, so that openers coming and going leave no file of their own.
TEST(OwnLog, HeldLogsTakeTheFirstFreeNumberAndLeaveItForTheNext) {
    ScratchDirectory scratch;
    const auto open = [&](std::string& name, bool expectHeld) {
        std::u16string path;
        FromChar8(scratch.path("native.log").c_str(), path);
        bool held = false;
        const char* refusal = nullptr;
        FILE* log = fopenOwnLog_u16(path, &held, &refusal);
        EXPECT_EQ(held, expectHeld);
        FromChar16(path.c_str(), name);
        name = std::filesystem::path(name).filename();
        return log;
    };
    std::string name;
    FILE* first = open(name, false);
    EXPECT_EQ(name, "native.log");
    FILE* second = open(name, true);
    EXPECT_EQ(name, "native_2.log");
    for (int restart = 0; restart < 5; ++restart) {
        FILE* third = open(name, true);
        EXPECT_EQ(name, "native_3.log");
        ASSERT_NE(third, nullptr);
        fclose(third);
    }
    fclose(second);
    fclose(open(name, true));
    EXPECT_EQ(name, "native_2.log");
    fclose(first);

    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
        files.insert(entry.path().filename());
    }
    EXPECT_EQ(files, (std::set<std::string>{"native.log", "native_2.log", "native_3.log"}));
}

// The line that reaches a log's limit is followed by one that says so, and
// later lines are dropped, while their writers go on.
TEST(OwnLog, StopsAtItsLimitWithALineThatSaysSo) {
    ScratchDirectory scratch;
    std::u16string path;
    FromChar8(scratch.path("capped.log").c_str(), path);
    bool held = false;
    const char* refusal = nullptr;
    FILE* log = fopenOwnLog_u16(path, &held, &refusal);
    ASSERT_NE(log, nullptr) << refusal;
    // Close to the limit without writing all that comes before it.
    CappedLog::limit(log, CappedLog::kLimit - 100);
    const std::string line(59, 'x');
    for (int i = 0; i < 3; ++i) fprintf_8(log, "%s\n", line.c_str());
    EXPECT_EQ(fprintf_u16(log, u"%s\n", u"dropped"), 0);
    fclose(log);
    EXPECT_EQ(scratch.read("capped.log"), line + "\n" + line + "\nThis log has reached its limit of " +
                                              std::to_string(CappedLog::kLimit >> 20) +
                                              " MB: nothing more is written to it.\n");
}

// A text file beyond its limit is refused unread, with the limit in the reason.
TEST(TextFile, BeyondItsLimitIsRefusedUnread) {
    ScratchDirectory scratch;
    const std::string profile = scratch.write("huge.properties", "key=value\n");
    std::filesystem::resize_file(profile, (std::uintmax_t{1} << 20) + 1);
    std::u16string path;
    FromChar8(profile.c_str(), path);
    const char* refusal = nullptr;
    EXPECT_EQ(fopenText_u16(path.c_str(), &refusal), nullptr);
    EXPECT_STREQ(refusal, "larger than 1 MB");
    FILE* directives = fopenText_u16(path.c_str(), &refusal, {}, 64);
    ASSERT_NE(directives, nullptr) << refusal;
    fclose(directives);
}
