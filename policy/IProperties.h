// The key-and-value store of the agent's configuration. Three sources, looked
// up in this order: environment variables "tmsenv_<key>" (key in lower case,
// '_' read as '.'), app settings "APPSETTING_<key>" when the Azure source is
// on, and the properties file with what setProperty wrote.
//
// No lock: the store is filled during start-up and only read afterwards.
#pragma once

#include <cstdio>

class IProperties {
public:
    // An empty store with the environment overrides read.
    static IProperties* newInstance();

    virtual ~IProperties() = default;

    // Never null. A key found nowhere gives the empty string and is stored in
    // the file source with an empty value, so that hasProperty is true for it
    // from then on: callers ask hasProperty first. The text lives as long as
    // its entry.
    virtual const char16_t* getProperty(const char16_t* key) = 0;
    // Writes to the file source, replacing its value; the environment still
    // takes precedence.
    virtual void setProperty(const char16_t* key, const char16_t* value) = 0;
    virtual bool hasProperty(const char16_t* key) = 0;
    // True for a value that begins with "true", false for one that begins with
    // "false", in any case; defaultValue for anything else or a missing key.
    virtual bool getBoolProperty(const char16_t* key, bool defaultValue) = 0;
    // Reads "key=value" lines (also "key: value", "key value"; '#' and '!'
    // comments). A null stream does nothing; the caller opens and closes it.
    virtual void readProperties(FILE* stream) = 0;
    // Lets the app settings of the environment take part, or stops them.
    virtual void setUseAzureEnv(bool enabled) = 0;
};
