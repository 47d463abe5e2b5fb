#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/StringUtils.h"

namespace {

using Text = std::basic_string<char16_t>;

std::vector<char16_t> buffer(const char16_t* text, size_t extra = 0)
{
    Text s(text);
    std::vector<char16_t> units(s.begin(), s.end());
    units.resize(units.size() + 1 + extra, 0);
    return units;
}

std::vector<Text> tokens(const char16_t* text, const char16_t* delims)
{
    std::vector<char16_t> units = buffer(text);
    std::vector<Text> found;
    char16_t* context = nullptr;
    for (char16_t* token = StringUtils::strtok_u16(units.data(), delims, &context); token != nullptr;
         token = StringUtils::strtok_u16(context, delims, &context)) {
        found.emplace_back(token);
    }
    return found;
}

bool inList(const char16_t* list, const char16_t* value, bool caseSensitive)
{
    std::vector<char16_t> units = buffer(list);
    return StringUtils::findInList(units.data(), u",", value, caseSensitive);
}

} // namespace

TEST(StringUtils, StrtokYieldsNoEmptyTokens)
{
    EXPECT_EQ(tokens(u",,a,,b", u","), (std::vector<Text>{u"a", u"b"}));
    EXPECT_EQ(tokens(u"a, b\tc ,", u" ,\t"), (std::vector<Text>{u"a", u"b", u"c"}));
    EXPECT_TRUE(tokens(u",,,", u",").empty());
    EXPECT_TRUE(tokens(u"", u",").empty());
    EXPECT_EQ(tokens(u"whole", u","), (std::vector<Text>{u"whole"}));

    // The delimiter behind a token is overwritten and the context points past it;
    // a token that runs to the end leaves no context.
    std::vector<char16_t> text = buffer(u"ab,cd");
    char16_t* context = text.data();
    char16_t* first = StringUtils::strtok_u16(text.data(), u",", &context);
    EXPECT_EQ(first, text.data());
    EXPECT_EQ(text[2], 0);
    EXPECT_EQ(context, text.data() + 3);
    char16_t* second = StringUtils::strtok_u16(context, u",", &context);
    EXPECT_EQ(Text(second), u"cd");
    EXPECT_EQ(context, nullptr);
    EXPECT_EQ(StringUtils::strtok_u16(context, u",", &context), nullptr);
}

TEST(StringUtils, FindInListComparesEachTrimmedTokenAsALeadingPart)
{
    EXPECT_TRUE(inList(u"ab, cd", u"cd", true));
    EXPECT_TRUE(inList(u"ab, cd", u"cde", true)); // "cd" is a leading part of the value
    EXPECT_FALSE(inList(u"ab, cd", u"c", true));  // the token is the longer one
    EXPECT_FALSE(inList(u"ab, cd", u"CD", true));
    EXPECT_TRUE(inList(u"ab, cd", u"CD", false));
    EXPECT_TRUE(inList(u"dotnet.cmd,MSBuild,csc", u"MSBuild", true));
    EXPECT_FALSE(inList(u"dotnet.cmd,MSBuild,csc", u"myapp", true));
    EXPECT_TRUE(inList(u"ab,  ,cd", u"anything", true)); // a blank token matches all
    EXPECT_FALSE(inList(u"", u"anything", true));

    // The list is taken apart in place.
    std::vector<char16_t> list = buffer(u"x,y");
    StringUtils::findInList(list.data(), u",", u"z", true);
    EXPECT_EQ(list[1], 0);
}
