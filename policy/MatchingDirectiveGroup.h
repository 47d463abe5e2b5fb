// The directive group.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "policy/ClassMatcher.h"
#include "policy/ClassMethodFilter.h"
#include "policy/IDirectiveGroup.h"
#include "policy/MethodMatcher.h"

class MatchingDirectiveGroup : public IDirectiveGroup {
public:
    // Neither active nor created. The name is not copied: it outlives the
    // group (the controller files the group under it).
    explicit MatchingDirectiveGroup(const char16_t* name);

    bool isActive() override { return active; }
    bool wasActiveSet() override { return activeSet; }
    void setActive(bool value) override;
    bool isCreated() override { return created; }
    void setCreated() override { created = true; }
    const char16_t* getName() override { return name; }
    // Made at the first call: the loaders ask for the part they add a rule to.
    IClassMatcher* getClassMatcher() override;
    IClassMethodFilter* getClassMethodFilter() override;
    IMethodMatcher* getMethodMatcher() override;
    bool skip(IMetaDataContext* context) override;
    bool skipClass(IMetaDataContext* context) override;
    bool skipMethod(IMetaDataContext* context) override;
    bool match(IMetaDataContext* context) override;
    bool matchClass(IMetaDataContext* context) override;
    bool matchMethod(IMetaDataContext* context) override;
    bool mayMatchAssembly(const char16_t* assembly) override;
    bool mayMatchName(const char16_t* name) override;
    bool addFirstUnits(FirstUnits& units) const override;
    bool namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) override;
    const char16_t* soleMethod() override { return nullptr; }
    std::u16string_view soleClass() override { return {}; }

private:
    const char16_t* name;
    // Without rules a matcher matches nothing and names no class; the method
    // matcher and the skip filter are made at their first rule: a large file
    // makes groups by the hundred thousand that only name a class.
    [[no_unique_address]] ClassMatcher classMatcher;
    bool active = false;
    bool created = false;
    bool activeSet = false;
    std::unique_ptr<MethodMatcher> methodMatcher;
    std::unique_ptr<ClassMethodFilter> classMethodFilter;
};
