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
    std::unique_ptr<IProperties> read(const std::string& bytes)
    {
        const std::string path = scratch.write("agent.properties", bytes);
        std::unique_ptr<IProperties> properties(IProperties::newInstance());
        FILE* file = fopen(path.c_str(), "r");
        EXPECT_NE(file, nullptr);
        properties->readProperties(file);
        fclose(file);
        return properties;
    }

    // The value stored under key, or "<absent>".
    static Text value(IProperties& properties, const char16_t* key)
    {
        return properties.hasProperty(key) ? Text(properties.getProperty(key)) : Text(u"<absent>");
    }

    ScratchDirectory scratch;
};

} // namespace

TEST_F(PropertiesFile, SeparatorsBetweenKeyAndValue)
{
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

TEST_F(PropertiesFile, CommentsEmptyValuesAndRepeatedKeys)
{
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

TEST_F(PropertiesFile, BadInputIsPassedOver)
{
    EXPECT_FALSE(read("")->hasProperty(u"a"));

    // A 0 byte ends the text of its line; the lines around it still count.
    const char bytes[] = "a=1\nbin=x\0y=2\n\x01\x02\xff=\xfe\nc=3\n";
    auto binary = read(std::string(bytes, sizeof(bytes) - 1));
    EXPECT_EQ(value(*binary, u"a"), u"1");
    EXPECT_EQ(value(*binary, u"bin"), u"x");
    EXPECT_EQ(value(*binary, u"y"), u"<absent>");
    EXPECT_EQ(value(*binary, u"c"), u"3");
    // High bytes widen with sign extension.
    const char16_t highKey[] = {0x01, 0x02, 0xFFFF, 0};
    EXPECT_EQ(value(*binary, highKey), Text(1, char16_t(0xFFFE)));

    // 2047 units a read: a longer line comes through in pieces.
    const std::string longValue(3000, 'v');
    auto longLine = read("long=" + longValue + " tail=end\nafter=1\n");
    EXPECT_EQ(value(*longLine, u"long"), Text(2047 - 5, u'v'));
    EXPECT_EQ(value(*longLine, u"after"), u"1");
    // The rest of the line reads as a line of its own, whose key is the run of v's.
    EXPECT_EQ(value(*longLine, Text(3000 - 2042, u'v').c_str()), u"tail=end");

    auto exact = read("k=" + std::string(2045, 'x') + "\nnext=2\n");
    EXPECT_EQ(value(*exact, u"k"), Text(2045, u'x'));
    EXPECT_EQ(value(*exact, u"next"), u"2");

    std::unique_ptr<IProperties> untouched(IProperties::newInstance());
    untouched->readProperties(nullptr);
    EXPECT_FALSE(untouched->hasProperty(u"a"));
}

TEST(Properties, MissingKeyIsStoredEmptyOnFirstGetAndKeysAreExact)
{
    Properties properties(Properties::PropertyMap {{u"Agent.Name", u"one"}});
    EXPECT_FALSE(properties.hasProperty(u"unknown.key"));
    EXPECT_EQ(Text(properties.getProperty(u"unknown.key")), u"");
    EXPECT_TRUE(properties.hasProperty(u"unknown.key"));
    EXPECT_EQ(Text(properties.getProperty(u"Agent.Name")), u"one");
    properties.setProperty(u"Agent.Name", u"two");
    EXPECT_EQ(Text(properties.getProperty(u"Agent.Name")), u"two");
    EXPECT_FALSE(properties.hasProperty(u"agent.name"));
    EXPECT_FALSE(properties.hasProperty(u"Agent")); // no prefix lookup in the file source
}

TEST(Properties, BoolValuesByLeadingWord)
{
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

TEST_F(PropertiesFile, EnvironmentOverridesWinInAnyCase)
{
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

TEST_F(PropertiesFile, AppSettingsTakePartOnlyWhenSwitchedOn)
{
    ScopedEnvironment environment;
    environment.set("APPSETTING_foo", "1");
    environment.set("APPSETTING_cut", "a=b");
    environment.set("APPSETTING_half", "a=b");
    environment.set("APPSETTING_My_Key", "k");
    environment.set("appsetting_low", "x");
    environment.set("TMSENV_CUT", "env");
    auto properties = read("foo=2\ncut=file\n");

    EXPECT_EQ(value(*properties, u"foo"), u"2");
    properties->setUseAzureEnv(true);
    EXPECT_EQ(value(*properties, u"foo"), u"1");
    EXPECT_EQ(value(*properties, u"My_Key"), u"k");
    EXPECT_EQ(value(*properties, u"my.key"), u"<absent>");
    EXPECT_EQ(value(*properties, u"low"), u"<absent>");
    EXPECT_EQ(value(*properties, u"cut"), u"env"); // the environment still comes first
    EXPECT_EQ(value(*properties, u"half"), u"a"); // a value ends at its first '='

    properties->setUseAzureEnv(false);
    EXPECT_EQ(value(*properties, u"foo"), u"2");
    EXPECT_EQ(value(*properties, u"My_Key"), u"<absent>");
}
