#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "platform/File16.h"

using u16 = std::basic_string<char16_t>;

TEST(File16, FgetsWidensALineAndKeepsTheNewline) {
    char path[] = "/tmp/tarn_pal_lines_XXXXXX";
    int descriptor = mkstemp(path);
    ASSERT_GE(descriptor, 0);
    const char content[] = "first \xE9\nsecond line\n";
    ASSERT_EQ(write(descriptor, content, sizeof(content) - 1), static_cast<ssize_t>(sizeof(content) - 1));
    close(descriptor);

    u16 widePath(path, path + sizeof(path) - 1);
    EXPECT_EQ(access_u16(widePath.c_str(), R_OK), 0);
    FILE* file = fopen_u16(widePath.c_str(), u"r");
    ASSERT_NE(file, nullptr);

    char16_t line[32];
    EXPECT_EQ(fgets_u16(line, 32, file), line);
    EXPECT_EQ(u16(line), u"first \xFFE9\n");
    // A short buffer takes n-1 bytes of the next line.
    EXPECT_EQ(fgets_u16(line, 4, file), line);
    EXPECT_EQ(u16(line), u"sec");
    EXPECT_EQ(fgets_u16(line, 32, file), line);
    EXPECT_EQ(u16(line), u"ond line\n");

    line[0] = u'#';
    EXPECT_EQ(fgets_u16(line, 32, file), nullptr);
    EXPECT_EQ(line[0], u'#');
    std::fclose(file);

    unlink(path);
    EXPECT_EQ(fopen_u16(widePath.c_str(), u"r"), nullptr);
    EXPECT_EQ(access_u16(widePath.c_str(), F_OK), -1);
}
