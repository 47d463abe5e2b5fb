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
        for (const auto& [name, value] : saved) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            } else {
                unsetenv(name.c_str());
            }
        }
    }

    // Sets name to value, or removes it if value is null.
    void set(const std::string& name, const char* value) {
        if (saved.find(name) == saved.end()) {
            const char* old = getenv(name.c_str());
            saved[name] = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
        }
        if (value != nullptr) {
            setenv(name.c_str(), value, 1);
        } else {
            unsetenv(name.c_str());
        }
    }

private:
    std::map<std::string, std::optional<std::string>> saved;
};
