// Chooses the properties file of this process from "AgentProfile.config",
// which lies beside the default agent profile. Rules come in pairs of lines:
// a match line ("ForAppPool", "ForProcess" or "ForDll" with a pattern) and a
// "use" line naming a profile relative to that directory. The first rule that
// matches and whose profile exists wins; reading stops at the first malformed
// pair. Patterns are "/regex/", a quoted glob list, or a bare glob list.
//
// Everything it does is written to the diagnostic log.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

class Glob;

class ProfileConfig {
public:
    // Reads the file, saying what it does in the diagnostic log if there is
    // one; afterwards the object is only asked for its result.
    explicit ProfileConfig(FILE* diagnosticLog);

    // Empty unless a rule matched and its file exists.
    void getProfilePath(std::basic_string<char16_t>& path);

private:
    void parseConfigFile();
    void initValues();
    bool matchCmd(const std::basic_string<char16_t>& command, const std::basic_string<char16_t>& pattern);
    bool matchValue(const std::basic_string<char16_t>& subject, const std::basic_string<char16_t>& pattern);
    bool matchGlobs(const std::basic_string<char16_t>& subject, const std::basic_string<char16_t>& list);
    void parseGlobs(const std::basic_string<char16_t>& list, std::vector<Glob>& globs);

    FILE* log;
    std::basic_string<char16_t> profilePath;
    std::basic_string<char16_t> appPool;
    std::basic_string<char16_t> processName;
    std::basic_string<char16_t> dllName;
};
