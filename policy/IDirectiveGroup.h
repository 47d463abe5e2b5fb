// A directive group, or flag: a name, a state, and the class matcher, method
// matcher and skip filter that the directives naming the flag fill. A group
// takes part in matching only when it is both created and active.
//
// Contract: the matchers and the filter belong to the group. No lock inside.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "metadata/IMetaDataContext.h"
#include "policy/IClassMatcher.h"
#include "policy/IClassMethodFilter.h"
#include "policy/IMethodMatcher.h"

class IDirectiveGroup {
public:
    virtual ~IDirectiveGroup() = default;

    virtual bool isActive() = 0;
    // setActive was called at least once, whatever the value.
    virtual bool wasActiveSet() = 0;
    virtual void setActive(bool active) = 0;
    virtual bool isCreated() = 0;
    virtual void setCreated() = 0;
    virtual const char16_t* getName() = 0;
    virtual IClassMatcher* getClassMatcher() = 0;
    virtual IClassMethodFilter* getClassMethodFilter() = 0;
    virtual IMethodMatcher* getMethodMatcher() = 0;
    // The group's own filter skips the class or the method.
    virtual bool skip(IMetaDataContext* context) = 0;
    // The group's own filter skips the class; skips the method.
    virtual bool skipClass(IMetaDataContext* context) = 0;
    virtual bool skipMethod(IMetaDataContext* context) = 0;
    // matchClass, and only then matchMethod.
    virtual bool match(IMetaDataContext* context) = 0;
    virtual bool matchClass(IMetaDataContext* context) = 0;
    virtual bool matchMethod(IMetaDataContext* context) = 0;
    // Module-level tests, false only when nothing can match (see
    // IClassMatcher::mayMatchAssembly and IMethodMatcher::mayMatchName).
    virtual bool mayMatchAssembly(const char16_t* assembly) = 0;
    virtual bool mayMatchName(const char16_t* name) = 0;
    virtual bool addFirstUnits(FirstUnits& units) const = 0;
    // See IClassMatcher::namedClassesOnly; a group without class rules names
    // no class and matches none.
    virtual bool namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) = 0;
    // When not null, the group has no skip filter and selects, of a class it
    // takes, the methods whose names agree with this one and no other.
    virtual const char16_t* soleMethod() = 0;
    // When not empty, the group is live, has no skip filter, and takes the
    // classes, and the assemblies, that agree with this one name and no other.
    virtual std::u16string_view soleClass() = 0;
};

// The plain order of code units, as std::u16string's own, with equal runs
// passed over four units at a time: a large directive file makes tens of
// thousands of names that share their first ten units ("Anonymous_").
struct CodeUnitOrder {
    // A map looks names up as they are, without a string made for the key.
    using is_transparent = void;
    bool operator()(std::u16string_view a, std::u16string_view b) const {
        const size_t common = a.size() < b.size() ? a.size() : b.size();
        size_t i = 0;
        for (; i + 4 <= common; i += 4) {
            uint64_t left = 0;
            uint64_t right = 0;
            std::memcpy(&left, a.data() + i, sizeof(left));
            std::memcpy(&right, b.data() + i, sizeof(right));
            if (left != right) break;
        }
        for (; i < common; ++i) {
            if (a[i] != b[i]) return a[i] < b[i];
        }
        return a.size() < b.size();
    }
};
