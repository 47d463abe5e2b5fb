// Sets environment variables for one test and puts the old values back when
// the object goes.
#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved) put(name, value ? value->c_str() : nullptr);
    }

    // Sets name to value, or removes it if value is null.
    void set(const std::string& name, const char* value) {
        if (!saved.contains(name)) {
            const char* old = getenv(name.c_str());
            saved[name] = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
        }
        put(name, value);
    }

private:
    static void put(const std::string& name, const char* value) {
        value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
    }
    std::map<std::string, std::optional<std::string>> saved;
};
