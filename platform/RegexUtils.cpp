#include "platform/RegexUtils.h"

#include <re2/re2.h>

#include <string>

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

// UTF-8, the engine's encoding; a lone surrogate becomes U+FFFD.
std::string narrow(const char16_t* text) {
    std::string out;
    for (; *text != 0; ++text) {
        char32_t code = *text;
        if (code >= 0xD800 && code <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF) {
            code = 0x10000 + ((code - 0xD800) << 10) + (text[1] - 0xDC00);
            ++text;
        } else if (code >= 0xD800 && code <= 0xDFFF) {
            code = 0xFFFD;
        }
        if (code < 0x80) {
            out.push_back(static_cast<char>(code));
        } else if (code < 0x800) {
            out.push_back(static_cast<char>(0xC0 | code >> 6));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else if (code < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | code >> 12));
            out.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | code >> 18));
            out.push_back(static_cast<char>(0x80 | (code >> 12 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
    }
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
