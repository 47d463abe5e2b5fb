#include "policy/Properties.h"

#include <cstring>
#include <strings.h>
#include <unistd.h>

#include "platform/Environment.h"
#include "platform/File16.h"
#include "platform/StringUtils.h"
#include "platform/Text16.h"
#include "platform/TextConversion.h"

namespace {

constexpr int kLineUnits = 2048;
constexpr int kEnvironmentUnits = 8192;
constexpr char kEnvPrefix[] = "tmsenv_";
constexpr size_t kEnvPrefixLength = sizeof(kEnvPrefix) - 1;
constexpr char16_t kAzurePrefix[] = u"APPSETTING_";
constexpr size_t kAzurePrefixLength = sizeof(kAzurePrefix) / sizeof(char16_t) - 1;
// Characters around a key: it starts after them and ends at the first of them.
constexpr char16_t kKeyDelimiters[] = u"\r\n\t =:";

char16_t toLowerAscii(char16_t c) {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}

std::basic_string<char16_t> toLower(const char16_t* key) {
    std::basic_string<char16_t> lower(key);
    for (char16_t& c : lower) {
        c = toLowerAscii(c);
    }
    return lower;
}

bool isKeyDelimiter(char16_t c) {
    return c != 0 && strchr_u16(kKeyDelimiters, c) != nullptr;
}

}  // namespace

IProperties* IProperties::newInstance() {
    return new Properties();
}

Properties::Properties() {
    initEnvMap();
}

Properties::Properties(const PropertyMap& initial) : fileProperties(initial) {
    initEnvMap();
}

void Properties::initEnvMap() {
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const char* assignment = *entry;
        const char* equals = strchr(assignment, '=');
        if (strncasecmp(assignment, kEnvPrefix, kEnvPrefixLength) != 0 || equals == nullptr) {
            continue;
        }
        std::basic_string<char16_t> name;
        FromChar8(std::string(assignment, equals).c_str(), name);
        const char16_t* value = _wgetenv(name.c_str());
        if (value == nullptr) {
            continue;
        }
        // TMSENV_FOO_BARBAZ answers for foo.barBaz: '_' stands for '.', and
        // lookups lower the key too.
        std::basic_string<char16_t> key = name.substr(kEnvPrefixLength);
        for (char16_t& c : key) {
            c = c == u'_' ? u'.' : toLowerAscii(c);
        }
        envProperties[key] = value;
    }
}

const std::basic_string<char16_t>* Properties::find(const char16_t* key) const {
    auto fromEnvironment = envProperties.find(toLower(key));
    if (fromEnvironment != envProperties.end()) {
        return &fromEnvironment->second;
    }
    if (useAzureEnv) {
        auto fromAzure = azureProperties.find(key);
        if (fromAzure != azureProperties.end()) {
            return &fromAzure->second;
        }
    }
    auto fromFile = fileProperties.find(key);
    return fromFile != fileProperties.end() ? &fromFile->second : nullptr;
}

const char16_t* Properties::getProperty(const char16_t* key) {
    const std::basic_string<char16_t>* value = find(key);
    // A missing key is stored empty: from now on it exists.
    return value != nullptr ? value->c_str() : fileProperties[key].c_str();
}

void Properties::setProperty(const char16_t* key, const char16_t* value) {
    fileProperties[key] = value;
}

bool Properties::hasProperty(const char16_t* key) {
    return find(key) != nullptr;
}

bool Properties::getBoolProperty(const char16_t* key, bool defaultValue) {
    if (!hasProperty(key)) {
        return defaultValue;
    }
    const char16_t* value = getProperty(key);
    // The literal stands first, so any value beginning with it counts.
    if (strcasecmp_u16(u"true", value) == 0) {
        return true;
    }
    if (strcasecmp_u16(u"false", value) == 0) {
        return false;
    }
    return defaultValue;
}

void Properties::readProperties(FILE* stream) {
    if (stream == nullptr) {
        return;
    }
    char16_t line[kLineUnits];
    while (fgets_u16(line, kLineUnits, stream) != nullptr) {
        char16_t* key = line;
        while (isKeyDelimiter(*key)) {
            ++key;
        }
        if (*key == 0) {
            continue;
        }
        char16_t* rest = key;
        while (*rest != 0 && !isKeyDelimiter(*rest)) {
            ++rest;
        }
        // The character that ended the key is consumed; a key that ends the
        // text (a last line without line end) has an empty rest.
        if (*rest != 0) {
            *rest++ = 0;
        }
        if (*key == u'#' || *key == u'!') {
            continue;
        }

        key = StringUtils::wcstrim(key);
        rest = StringUtils::wcstrim(rest);
        // One separator may stand behind the one that ended the key.
        if (*rest == u'=' || *rest == u':') {
            rest = StringUtils::wcstrim(rest + 1);
        }
        if (*rest == 0) {
            continue;
        }
        setProperty(key, rest);
    }
}

void Properties::setUseAzureEnv(bool enabled) {
    useAzureEnv = enabled;
    if (!enabled) {
        return;
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        char16_t text[kEnvironmentUnits];
        CopyChar8To16(*entry, text, kEnvironmentUnits);
        if (strncmp_u16(text, kAzurePrefix, kAzurePrefixLength) != 0) {
            continue;
        }
        // Name up to the first '=', value up to the next '=' or the end: a
        // value that holds '=' keeps only what stands before it.
        std::basic_string<char16_t> assignment(text + kAzurePrefixLength);
        const size_t nameEnd = assignment.find(u'=');
        if (nameEnd == std::basic_string<char16_t>::npos) {
            continue;
        }
        const size_t valueEnd = assignment.find(u'=', nameEnd + 1);
        azureProperties[assignment.substr(0, nameEnd)] = assignment.substr(
            nameEnd + 1, valueEnd == std::basic_string<char16_t>::npos ? valueEnd : valueEnd - nameEnd - 1);
    }
}
