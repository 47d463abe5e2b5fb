// What must not be instrumented: the global veto, the filter of dynamic
// instrumentation, and the exclusions of one directive group all have these
// rules and this order of tests. Exception rules take a class, or a method of
// a class, back out of every skip rule.
//
// Contract: rule adders copy their arguments and accept empty strings. The
// tests take a context already set to the module, class or method in hand and
// answer true for skip; a name that cannot be had means that the test concerned
// does not hold. No lock inside: filled while directives load, then only read.
#pragma once

#include "metadata/IMetaDataContext.h"

class IClassMethodFilter {
public:
    virtual ~IClassMethodFilter() = default;

    // "[A]" and "A" are the same rule.
    virtual void addAssemblySkipRule(const char16_t* name) = 0;
    // A leading '[' is dropped: "[A" and "A" are the same prefix.
    virtual void addAssemblyPrefixSkipRule(const char16_t* prefix) = 0;
    virtual void addNamespaceSkipRule(const char16_t* name) = 0;
    virtual void addNamespacePrefixSkipRule(const char16_t* prefix) = 0;
    virtual void addClassSkipRule(const char16_t* name) = 0;
    virtual void addMethodSkipRule(const char16_t* name) = 0;
    virtual void addMethodForClassSkipRule(const char16_t* className, const char16_t* methodName) = 0;
    virtual void addClassExceptionRule(const char16_t* name) = 0;
    virtual void addMethodForClassExceptionRule(const char16_t* className, const char16_t* methodName) = 0;

    // For a module at load.
    virtual bool skipAssembly(IMetaDataContext* context) = 0;
    // skipClass, then skipMethod.
    virtual bool skipClassMethod(IMetaDataContext* context) = 0;
    virtual bool skipClass(IMetaDataContext* context) = 0;
    virtual bool skipMethod(IMetaDataContext* context) = 0;
};
