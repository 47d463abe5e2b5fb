#include "gate/ProfileConfig.h"

#include "platform/Environment.h"
#include "platform/File16.h"
#include "platform/FormattedOutput.h"
#include "platform/Glob.h"
#include "platform/ProcessFacts.h"
#include "platform/SharedNames.h"
#include "platform/RegexUtils.h"
#include "platform/StringUtils.h"
#include "platform/SystemUtils.h"
#include "platform/Text16.h"

namespace {

using Text = std::basic_string<char16_t>;

constexpr int kLineUnits = 2048;
using SharedNames::kAgentProfileVariable;

// The command stands first, so that a leading part of a word counts as it.
bool isCommand(const Text& command, const char16_t* word) {
    return strcasecmp_u16(command.c_str(), word) == 0;
}

bool isMatchCommand(const Text& command) {
    return isCommand(command, u"ForAppPool") || isCommand(command, u"ForProcess") || isCommand(command, u"ForDll");
}

bool isTokenEnd(char16_t c) {
    return c == 0 || c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

// Splits "command value" into its two parts: the command is the first word,
// the value all that stands behind its delimiter up to CR or LF, blanks
// included. False if either is missing.
bool splitLine(const char16_t* line, Text& command, Text& value) {
    while (*line == u' ' || *line == u'\t') {
        ++line;
    }
    const char16_t* end = line;
    while (!isTokenEnd(*end)) {
        ++end;
    }
    command.assign(line, end);
    value.clear();
    if (*end == u' ' || *end == u'\t') {
        for (const char16_t* c = end + 1; *c != 0 && *c != u'\r' && *c != u'\n'; ++c) {
            value.push_back(*c);
        }
    }
    return !command.empty() && !value.empty();
}

bool isEnclosedIn(const Text& pattern, char16_t mark) {
    return pattern.front() == mark && pattern.back() == mark;
}

// What stands between the first and the last unit; empty for a single unit.
Text inner(const Text& pattern) {
    return pattern.size() < 2 ? Text() : pattern.substr(1, pattern.size() - 2);
}

}  // namespace

ProfileConfig::ProfileConfig(FILE* diagnosticLog) : log(diagnosticLog) {
    parseConfigFile();
    if (log != nullptr) {
        fflush(log);
    }
}


void ProfileConfig::getProfilePath(std::basic_string<char16_t>& path) {
    path = profilePath;
}

void ProfileConfig::parseConfigFile() {
    const char16_t* agentProfile = _wgetenv(kAgentProfileVariable);
    if (agentProfile == nullptr) {
        return;
    }
    const Text profile(agentProfile);
    const size_t slash = profile.rfind(u'/');
    if (slash == Text::npos) {
        fprintf_8(log, "invalid agent profile: %S\n", profile.c_str());
        return;
    }
    const Text directory = profile.substr(0, slash);
    const Text configPath = directory + u"/AgentProfile.config";
    const char* refusal = nullptr;
    FILE* config = fopenText_u16(configPath.c_str(), &refusal);
    if (config == nullptr) {
        fprintf_8(log, "failed to open: %S\n", configPath.c_str());
        return;
    }

    initValues();

    Text pendingCommand;
    Text pendingPattern;
    int lineNumber = 0;
    char16_t line[kLineUnits];
    Text command;
    Text value;
    while (fgets_u16(line, kLineUnits, config) != nullptr) {
        ++lineNumber;
        if (!splitLine(line, command, value) || command.front() == u'#') {
            continue;
        }
        fprintf_8(log, "parsed command: %S value: %S\n", command.c_str(), value.c_str());

        if (pendingCommand.empty()) {
            if (!isMatchCommand(command)) {
                // The pending command is what gets printed, and it is empty here.
                fprintf_8(log, "Invalid match command %S on line: %d\n", pendingCommand.c_str(), lineNumber);
                break;
            }
            pendingCommand = command;
            pendingPattern = value;
            continue;
        }

        if (!isCommand(command, u"use")) {
            fprintf_8(log, "Expected use command on line: %d\n", lineNumber);
            break;
        }
        if (matchCmd(pendingCommand, pendingPattern)) {
            profilePath = directory + u"/" + value;
            fprintf_8(log, "Matched for profile: %S\n", profilePath.c_str());
            const char* refusal = nullptr;
            FILE* chosen = fopenText_u16(profilePath.c_str(), &refusal);
            if (chosen != nullptr) {
                fclose(chosen);
                break;
            }
            fprintf_8(log, "Profile not found: %S\n", profilePath.c_str());
            profilePath.clear();
        }
        pendingCommand.clear();
        pendingPattern.clear();
    }
    fclose(config);
}

void ProfileConfig::initValues() {
    // No pools on this platform: the name is set ("NULL") whatever the result.
    (void)ProcessFacts::getAppPoolName(appPool);
    if (appPool == u"NULL") {
        appPool.clear();
    }

    std::vector<Text> args;
    SystemUtils::GetProgramArguments(args);
    if (!args.empty()) {
        const size_t slash = args[0].rfind(u'/');
        processName = slash == Text::npos ? args[0] : args[0].substr(slash + 1);
    }

    Text applicationName;
    if (ProcessFacts::getDotnetApplicationName(applicationName)) {
        dllName = applicationName + u".dll";
    }

    fprintf_8(log, "app pool: %S\n", appPool.c_str());
    fprintf_8(log, "process name: %S\n", processName.c_str());
    fprintf_8(log, "dll name: %S\n", dllName.c_str());
}

bool ProfileConfig::matchCmd(const std::basic_string<char16_t>& command, const std::basic_string<char16_t>& pattern) {
    const Text* subject = nullptr;
    if (isCommand(command, u"ForAppPool")) {
        subject = &appPool;
    } else if (isCommand(command, u"ForProcess")) {
        subject = &processName;
    } else if (isCommand(command, u"ForDll")) {
        subject = &dllName;
    }
    return subject != nullptr && !subject->empty() && matchValue(*subject, pattern);
}

bool ProfileConfig::matchValue(const std::basic_string<char16_t>& subject, const std::basic_string<char16_t>& pattern) {
    if (isEnclosedIn(pattern, u'/')) {
        const Text expression = inner(pattern);
        if (!RegexUtils::isValid(expression.c_str())) {
            fprintf_8(log, "Invalid regex: %S\n", expression.c_str());
            return false;
        }
        return RegexUtils::match(subject.c_str(), expression.c_str());
    }
    if (isEnclosedIn(pattern, u'"')) {
        return matchGlobs(subject, inner(pattern));
    }
    return matchGlobs(subject, pattern);
}

bool ProfileConfig::matchGlobs(const std::basic_string<char16_t>& subject, const std::basic_string<char16_t>& list) {
    std::vector<Glob> globs;
    parseGlobs(list, globs);
    for (const Glob& glob : globs) {
        if (glob.match(subject)) {
            return true;
        }
    }
    return false;
}

void ProfileConfig::parseGlobs(const std::basic_string<char16_t>& list, std::vector<Glob>& globs) {
    // At most 2047 units of the list are looked at.
    char16_t buffer[kLineUnits];
    strncpy_u16(buffer, list.c_str(), kLineUnits);
    char16_t* context = nullptr;
    for (char16_t* token = StringUtils::strtok_u16(buffer, u",", &context); token != nullptr;
         token = StringUtils::strtok_u16(context, u",", &context)) {
        globs.emplace_back(token);
    }
}
