#include "platform/RegexUtils.h"

#include <re2/re2.h>

#include <string>

#include "platform/TextConversion.h"

namespace {

// The engine would report a bad pattern on standard error.
RE2::Options quietOptions() {
    RE2::Options options;
    options.set_log_errors(false);
    return options;
}

bool matchText(const std::string& text, const std::string& pattern) {
    const RE2 expression(pattern, quietOptions());
    return expression.ok() && RE2::FullMatch(text, expression);
}

// UTF-8, the engine's encoding: every unit is a character here.
std::string narrow(const char16_t* text) {
    std::string out;
    while (*text != 0) AppendUtf8(text, out);
    return out;
}

}  // namespace

bool RegexUtils::match(const char16_t* text, const char16_t* pattern) {
    return matchText(narrow(text), narrow(pattern));
}

bool RegexUtils::match(const char* text, const char* pattern) {
    return matchText(text, pattern);
}

bool RegexUtils::isValid(const char16_t* pattern) {
    return RE2(narrow(pattern), quietOptions()).ok();
}

bool RegexUtils::isValid(const char* pattern) {
    return RE2(pattern, quietOptions()).ok();
}
