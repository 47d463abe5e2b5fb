// Which classes a directive group covers. Rules accumulate while directives
// load and are then only read; a matcher answers yes as soon as one rule holds,
// and a matcher without rules answers no.
//
// Contract: the context stands on the method in hand; names it hands out are
// not kept. No lock inside.
#pragma once

#include <functional>

#include "metadata/IMetaDataContext.h"

class IClassMatcher {
public:
    virtual ~IClassMatcher() = default;

    virtual void addAllClassesRule() = 0;
    // Rule adders ignore a null or empty argument, but for the pattern rule.
    virtual void addAssemblyRule(const char16_t* assembly) = 0;
    virtual void addClassRule(const char16_t* className) = 0;
    // The direct base class or a declared interface.
    virtual void addParentClassRule(const char16_t* className) = 0;
    virtual void addClassAnnotationRule(const char16_t* attribute) = 0;
    // '*' is the only wildcard.
    virtual void addClassPatternRule(const char16_t* pattern) = 0;
    virtual bool matchClass(IMetaDataContext* context) = 0;
    // False only when no class of the assembly can match: a module scan
    // passes over the groups that cannot select anything in it.
    virtual bool mayMatchAssembly(const char16_t* assembly) = 0;
    // When names of classes and of parent classes are the only rules: calls
    // visit with each, a parent's marked, and answers true. Otherwise answers
    // false without a call.
    virtual bool namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) = 0;
};
