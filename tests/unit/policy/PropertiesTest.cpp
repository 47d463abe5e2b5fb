#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "policy/Properties.h"
#include "support/ScopedEnvironment.h"
#include "support/ScratchDirectory.h"

namespace {

using Text = std::basic_string<char16_t>;

class PropertiesFile : public ::testing::Test {
protected:
    // A store read from a file that holds exactly these bytes.
    std::unique_ptr<IProperties> read(const std::string& bytes) {
        const std::string path = scratch.write("agent.properties", bytes);
        std::unique_ptr<IProperties> properties(IProperties::newInstance());
        FILE* file = fopen(path.c_str(), "r");
        EXPECT_NE(file, nullptr);
        properties->readProperties(file);
        fclose(file);
        return properties;
    }

    // The value stored under key, or "<absent>".
    static Text value(IProperties& properties, const char16_t* key) {
        return properties.hasProperty(key) ? Text(properties.getProperty(key)) : Text(u"<absent>");
    }

    ScratchDirectory scratch;
};

} // namespace

TEST_F(PropertiesFile, SeparatorsBetweenKeyAndValue) {
    auto properties = read("a1=b\n"
                           "a2 = b\n"
                           "a3:b\n"
                           "a4 b\n"
                           "a5==b\n"
                           "a6 = = b\n"
                           "a7=b=c\n"
                           "=a8=b\n"
                           "\t a9 :  b \n"
                           "url=http://host:8080/x?y=z\r\n"
                           "a0=b"); // the last line, without a line end, keeps its value
    for (const char16_t* key : {u"a0", u"a1", u"a2", u"a3", u"a4", u"a5", u"a8", u"a9"}) {
        EXPECT_EQ(value(*properties, key), u"b") << "key " << std::string(key, key + 2);
    }
    EXPECT_EQ(value(*properties, u"a6"), u"= b");
    EXPECT_EQ(value(*properties, u"a7"), u"b=c");
    EXPECT_EQ(value(*properties, u"url"), u"http://host:8080/x?y=z");
}

TEST_F(PropertiesFile, CommentsEmptyValuesAndRepeatedKeys) {
    auto properties = read("  # x=y\n"
                           "#x2=y\n"
                           "! x3=y\n"
                           "x#=y\n"
                           "empty=\n"
                           "blank =   \t\n"
                           "\n"
                           "   \n"
                           "path = C:\\agent\\dir\\ \n"
                           "spaced = a value  with blanks   \n"
                           "twice=first\n"
                           "twice=second\n"
                           "last");
    EXPECT_EQ(value(*properties, u"x"), u"<absent>");
    EXPECT_EQ(value(*properties, u"x2"), u"<absent>");
    EXPECT_EQ(value(*properties, u"x3"), u"<absent>");
    EXPECT_EQ(value(*properties, u"x#"), u"y");
    EXPECT_EQ(value(*properties, u"empty"), u"<absent>");
    EXPECT_EQ(value(*properties, u"blank"), u"<absent>");
    EXPECT_EQ(value(*properties, u"path"), u"C:\\agent\\dir\\"); // no escapes
    EXPECT_EQ(value(*properties, u"spaced"), u"a value  with blanks");
    EXPECT_EQ(value(*properties, u"twice"), u"second");
    EXPECT_EQ(value(*properties, u"last"), u"<absent>"); // last line, key alone, no line end
}

TEST(Properties, BoolValuesByLeadingWord) {
    Properties properties(Properties::PropertyMap {{u"upper", u"TRUE"},
                                                   {u"lower", u"false"},
                                                   {u"longer", u"trueish"},
                                                   {u"yes", u"Yes"},
                                                   {u"empty", u""},
                                                   {u"short", u"tr"}});
    EXPECT_TRUE(properties.getBoolProperty(u"upper", false));
    EXPECT_FALSE(properties.getBoolProperty(u"lower", true));
    EXPECT_TRUE(properties.getBoolProperty(u"longer", false));
    EXPECT_TRUE(properties.getBoolProperty(u"yes", true));
    EXPECT_FALSE(properties.getBoolProperty(u"yes", false));
    EXPECT_FALSE(properties.getBoolProperty(u"empty", false));
    EXPECT_FALSE(properties.getBoolProperty(u"short", false));
    EXPECT_TRUE(properties.getBoolProperty(u"missing", true));
    EXPECT_FALSE(properties.hasProperty(u"missing")); // the default does not store it
}

TEST_F(PropertiesFile, EnvironmentOverridesWinInAnyCase) {
    ScopedEnvironment environment;
    environment.set("tmsenv_foo_bar", "1");
    environment.set("TMSENV_FOO_BARBAZ", "env");
    environment.set("TmsEnv_Mixed_Case", "m");
    environment.set("xtmsenv_skip", "no");
    auto properties = read("foo.bar=2\nfoo.barBaz=file\nfoo_bar=3\n");
    EXPECT_EQ(value(*properties, u"foo.bar"), u"1");
    EXPECT_EQ(value(*properties, u"FOO.BAR"), u"1");
    EXPECT_EQ(value(*properties, u"foo.barBaz"), u"env");
    EXPECT_EQ(value(*properties, u"mixed.case"), u"m");
    EXPECT_EQ(value(*properties, u"foo_bar"), u"3"); // a real underscore cannot be overridden
    EXPECT_EQ(value(*properties, u"skip"), u"<absent>");

    properties->setProperty(u"foo.bar", u"set");
    EXPECT_EQ(value(*properties, u"foo.bar"), u"1");
}
