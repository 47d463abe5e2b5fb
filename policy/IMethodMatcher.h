// Which methods of its classes a directive group covers. Rules accumulate while
// directives load and are then only read; a matcher without rules answers no.
//
// Contract: the context stands on the method in hand. No lock inside.
#pragma once

#include <bitset>

#include "metadata/IMetaDataContext.h"

// ASCII code units that a name may start with.
using FirstUnits = std::bitset<128>;

class IMethodMatcher {
public:
    virtual ~IMethodMatcher() = default;

    virtual void addAllMethodsRule() = 0;
    // Only what stands before the first ';' is kept: a signature behind it is
    // dropped, so overloads are not told apart.
    virtual void addMethodRule(const char16_t* method) = 0;
    // Ignores a null or empty argument.
    virtual void addMethodAnnotationRule(const char16_t* attribute) = 0;
    virtual void addMethodPatternRule(const char16_t* pattern) = 0;
    virtual bool matchMethod(IMetaDataContext* context) = 0;
    // False only when the rules can tell from the name alone that the method
    // does not match: a module scan looks no further at such a method.
    virtual bool mayMatchName(const char16_t* name) = 0;
    // Adds the first unit of every name the rules can take, all of them ASCII;
    // false if a name may start with any unit.
    virtual bool addFirstUnits(FirstUnits& units) const = 0;
};
