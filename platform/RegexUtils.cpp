#include "platform/RegexUtils.h"

#include <regex>
#include <string>

namespace {

// The standard library has no regex over char16_t; wchar_t holds every unit.
std::wstring widen(const char16_t* s)
{
    std::wstring out;
    for (; *s != 0; ++s) {
        out.push_back(static_cast<wchar_t>(*s));
    }
    return out;
}

template <typename Char>
bool matchText(const std::basic_string<Char>& text, const std::basic_string<Char>& pattern)
{
    try {
        const std::basic_regex<Char> expression(pattern, std::regex_constants::ECMAScript);
        return std::regex_match(text, expression);
    } catch (const std::regex_error&) {
        return false;
    }
}

template <typename Char>
bool compiles(const std::basic_string<Char>& pattern)
{
    try {
        const std::basic_regex<Char> expression(pattern, std::regex_constants::ECMAScript);
        return true;
    } catch (const std::regex_error&) {
        return false;
    }
}

} // namespace

bool RegexUtils::match(const char16_t* text, const char16_t* pattern)
{
    return matchText(widen(text), widen(pattern));
}

bool RegexUtils::match(const char* text, const char* pattern)
{
    return matchText(std::string(text), std::string(pattern));
}

bool RegexUtils::isValid(const char16_t* pattern) { return compiles(widen(pattern)); }

bool RegexUtils::isValid(const char* pattern) { return compiles(std::string(pattern)); }
