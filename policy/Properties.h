// The one implementation of IProperties.
#pragma once

#include <map>
#include <string>

#include "policy/IProperties.h"

class Properties : public IProperties {
public:
    using PropertyMap = std::map<std::basic_string<char16_t>, std::basic_string<char16_t>>;

    Properties();
    // The map becomes the initial file source.
    explicit Properties(const PropertyMap& initial);

    const char16_t* getProperty(const char16_t* key) override;
    void setProperty(const char16_t* key, const char16_t* value) override;
    bool hasProperty(const char16_t* key) override;
    bool getBoolProperty(const char16_t* key, bool defaultValue) override;
    void readProperties(FILE* stream) override;
    void setUseAzureEnv(bool enabled) override;

private:
    void initEnvMap();
    // The entry that answers for key, by order of precedence, or null.
    const std::basic_string<char16_t>* find(const char16_t* key) const;

    PropertyMap fileProperties;
    PropertyMap envProperties;
    PropertyMap azureProperties;
    bool useAzureEnv = false;
};
