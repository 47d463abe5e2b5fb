// The directive group.
#pragma once

#include <cstdio>
#include <string>

#include "policy/ClassMatcher.h"
#include "policy/ClassMethodFilter.h"
#include "policy/IDirectiveGroup.h"
#include "policy/MethodMatcher.h"

class MatchingDirectiveGroup : public IDirectiveGroup {
public:
    // Neither active nor created; the name is copied.
    explicit MatchingDirectiveGroup(const char16_t* name);

    bool isActive() override { return active; }
    bool wasActiveSet() override { return activeSet; }
    void setActive(bool value) override;
    bool isCreated() override { return created; }
    void setCreated() override { created = true; }
    const char16_t* getName() override { return name.c_str(); }
    IClassMatcher* getClassMatcher() override { return &classMatcher; }
    IClassMethodFilter* getClassMethodFilter() override { return &classMethodFilter; }
    IMethodMatcher* getMethodMatcher() override { return &methodMatcher; }
    bool skip(IMetaDataContext* context) override;
    bool match(IMetaDataContext* context) override;
    bool matchClass(IMetaDataContext* context) override;
    bool matchMethod(IMetaDataContext* context) override;

    // Class rules, method rules, then exclusions; a diagnostic only.
    void logGroup(FILE* stream);

private:
    bool active = false;
    bool created = false;
    bool activeSet = false;
    std::u16string name;
    ClassMatcher classMatcher;
    ClassMethodFilter classMethodFilter;
    MethodMatcher methodMatcher;
};
