#include "platform/Environment.h"

#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "platform/TextConversion.h"

const char16_t* _wgetenv(LPCWSTR name) {
    // Every value read so far, so that the returned pointer outlives the call.
    // Made on first use and never destroyed: threads may still read at exit.
    // Several threads ask: the map has a lock of its own.
    static auto& environCache = *new std::map<std::basic_string<char16_t>, std::basic_string<char16_t>>();
    static auto& cacheLock = *new std::mutex();
    std::string narrowName;
    FromChar16(name, narrowName);
    const char* value = std::getenv(narrowName.c_str());
    if (value == nullptr) {
        return nullptr;
    }
    std::basic_string<char16_t> wide;
    FromChar8(value, wide);
    std::lock_guard<std::mutex> held(cacheLock);
    std::basic_string<char16_t>& stored = environCache[name];
    // Assigning in place keeps the old buffer, and so an earlier pointer, when
    // the value has not changed.
    stored.assign(wide);
    return stored.c_str();
}

int _wputenv(LPCWSTR assignment) {
    std::string narrow;
    FromChar16(assignment, narrow);
    size_t equals = narrow.find('=');
    if (equals == std::string::npos) {
        return 1;
    }
    return setenv(narrow.substr(0, equals).c_str(), narrow.substr(equals + 1).c_str(), 1);
}

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size) {
    std::string narrowName;
    FromChar16(name, narrowName);
    const char* value = std::getenv(narrowName.c_str());
    if (value == nullptr) {
        return 0;
    }
    CopyChar8To16(value, buffer, size);
    return static_cast<DWORD>(std::char_traits<char>::length(value));
}

BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) {
    std::string narrowName;
    std::string narrowValue;
    FromChar16(name, narrowName);
    FromChar16(value, narrowValue);
    return setenv(narrowName.c_str(), narrowValue.c_str(), 1) == 0 ? TRUE : FALSE;
}
