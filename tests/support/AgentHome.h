// An agent home under a scratch directory, as the unit suites lay it out: the
// agent profile agent/profiles/default.properties, written from the
// properties set, and the files a test puts beside it.
#pragma once

#include <map>
#include <string>

#include "ScratchDirectory.h"

class AgentHome {
public:
    const ScratchDirectory& files() const { return scratch; }
    std::string root() const { return scratch.path(); }
    // The folder of the agent profile, where directive names are looked up first.
    std::string profiles() const { return scratch.path("agent/profiles"); }
    std::string profilePath() const { return profiles() + "/default.properties"; }

    // Writes a file under the profile's folder (or, with a leading '/', under the root).
    std::string write(const std::string& relative, const std::string& text) const {
        return relative.starts_with('/') ? scratch.write(relative.substr(1), text)
                                         : scratch.write("agent/profiles/" + relative, text);
    }
    // A property of the profile, which writeProfile writes out with the others.
    void set(const std::string& key, const std::string& value) { properties[key] = value; }
    void unset(const std::string& key) { properties.erase(key); }
    std::string writeProfile() const {
        std::string text;
        for (const auto& [key, value] : properties) text += key + "=" + value + "\n";
        return write("default.properties", text);
    }

protected:
    ScratchDirectory scratch;
    std::map<std::string, std::string> properties;
};
