#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <tuple>

#include "policy/Properties.h"
#include "support/RealAssemblies.h"
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

TEST_F(PropertiesFile, LinesGiveKeysAndValues) {
    auto properties = read(
        // Separators between key and value.
        "a1=b\na2 = b\na3:b\na4 b\na5==b\na6 = = b\na7=b=c\n=a8=b\n\t a9 :  b \nurl=http://host:8080/x?y=z\r\n"
        // Comments, empty values, blank lines, no escapes, a repeated key.
        "  # x=y\n#x2=y\n! x3=y\nx#=y\nempty=\nblank =   \t\n\n   \npath = C:\\agent\\dir\\ \n"
        "spaced = a value  with blanks   \ntwice=first\ntwice=second\n"
        "a0=b");  // the last line, without a line end, keeps its value
    std::string seen;
    for (const char16_t* key : {u"a0",  u"a1", u"a2", u"a3", u"a4", u"a5",    u"a6",    u"a7",   u"a8",     u"a9",
                                u"url", u"x",  u"x2", u"x3", u"x#", u"empty", u"blank", u"path", u"spaced", u"twice"}) {
        seen += RealAssemblies::narrow(key) + "=" + RealAssemblies::narrow(value(*properties, key).c_str()) + "\n";
    }
    EXPECT_EQ(seen,
              "a0=b\na1=b\na2=b\na3=b\na4=b\na5=b\na6== b\na7=b=c\na8=b\na9=b\nurl=http://host:8080/x?y=z\n"
              "x=<absent>\nx2=<absent>\nx3=<absent>\nx#=y\nempty=<absent>\nblank=<absent>\npath=C:\\agent\\dir\\\n"
              "spaced=a value  with blanks\ntwice=second\n");
    // A key alone on the last line, without a line end, has no value.
    EXPECT_EQ(value(*read("x=y\nlast"), u"last"), u"<absent>");
}

TEST(Properties, BoolValuesByLeadingWord) {
    // The value stored (null: none), the default asked with, the answer.
    const std::tuple<const char16_t*, bool, bool> cases[] = {
        {u"TRUE", false, true}, {u"false", true, false}, {u"trueish", false, true}, {u"Yes", true, true},
        {u"Yes", false, false}, {u"", false, false},     {u"tr", false, false},     {nullptr, true, true}};
    for (const auto& [stored, fallback, answer] : cases) {
        Properties::PropertyMap map;
        if (stored != nullptr) map[u"key"] = stored;
        Properties properties(map);
        EXPECT_EQ(properties.getBoolProperty(u"key", fallback), answer)
            << RealAssemblies::narrow(stored ? stored : u"-");
        EXPECT_EQ(properties.hasProperty(u"key"), stored != nullptr);  // the default does not store it
    }
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
