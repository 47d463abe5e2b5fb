#include <gtest/gtest.h>

#include <string>

#include "hub/AttachClientData.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

TEST(AttachClientData, PairsAreReadAsTheTokenizerSplitsThem) {
    struct Case {
        std::string data;
        Pairs expected;
    };
    const std::string big = "a=" + std::string(20000, 'v') + "\nb=2\n";
    const Case cases[] = {
        {"", {}},
        {"key=value\n", {{"key", "value"}}},
        {"a=1\nb=two words\n", {{"a", "1"}, {"b", "two words"}}},
        // The last line needs no line feed; a value may hold "=".
        {"a=1\nb=x=y", {{"a", "1"}, {"b", "x=y"}}},
        // A key without a value ends the pairs.
        {"a=1\nlonely", {{"a", "1"}}},
        // Runs of a token's own delimiter ahead of it are passed over, the
        // other delimiter is kept; an empty value takes the next line.
        {"==a=1\n\n\nb=2", {{"a", "1"}, {"\n\nb", "2"}}},
        {"a=\nb=2\n", {{"a", "b=2"}}},
        // A zero byte ends the text.
        {std::string("a=1\n\0b=2\n", 9), {{"a", "1"}}},
        // Only the first 16,383 bytes are read: the value is cut, b is lost.
        {big, {{"a", std::string(16381, 'v')}}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(AttachClientData::pairs(c.data.data(), static_cast<unsigned int>(c.data.size())), c.expected)
            << c.data.substr(0, 40);
    }
    EXPECT_EQ(AttachClientData::pairs(nullptr, 10), Pairs{});
    EXPECT_EQ(AttachClientData::text(nullptr, 10), "");
    EXPECT_EQ(AttachClientData::text("a=1\n\0junk", 9), "a=1\n");
}

}  // namespace
