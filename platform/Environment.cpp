#include "platform/Environment.h"

#include <algorithm>
#include <cstdlib>
#include <forward_list>
#include <map>
#include <mutex>
#include <string>

#include "platform/TextConversion.h"

const char16_t* _wgetenv(LPCWSTR name) {
    // Every value read so far, so that the returned pointer outlives the call.
    // Made on first use and never destroyed: threads may still read at exit.
    // Several threads ask: the map has a lock of its own, and a value once
    // handed out is never written again, as another thread may be reading it
    // outside the lock; a variable that changes gets a value of its own for
    // each text it has had.
    static auto& environCache =
        *new std::map<std::basic_string<char16_t>, std::forward_list<std::basic_string<char16_t>>>();
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
    std::forward_list<std::basic_string<char16_t>>& values = environCache[name];
    auto known = std::find(values.begin(), values.end(), wide);
    if (known == values.end()) {
        values.push_front(std::move(wide));
        known = values.begin();
    }
    return known->c_str();
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
