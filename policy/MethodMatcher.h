// The method matcher of a directive group, and of each method-of-class rule
// of a skip filter.
#pragma once

#include <cstdio>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Glob.h"
#include "policy/ClassSet.h"
#include "policy/IMethodMatcher.h"

class MethodMatcher : public IMethodMatcher {
public:
    void addAllMethodsRule() override;
    void addMethodRule(const char16_t* method) override;
    void addMethodAnnotationRule(const char16_t* attribute) override;
    void addMethodPatternRule(const char16_t* pattern) override;

    // Once an attribute rule fires, it alone decides: an excluded class makes
    // the answer no without trying the pattern rules.
    bool matchMethod(IMetaDataContext* context) override;
    bool mayMatchName(const char16_t* name) override;
    bool addFirstUnits(FirstUnits& units) const override;

    // True if the attribute rule must not select methods of this class in this
    // assembly. Both names are compared exactly.
    bool matchFurtherVerifyAnnotationRule(char16_t* className, char16_t* assemblyName);

    // The name a method rule takes: what stands before the first ';'.
    static std::u16string_view ruleName(std::u16string_view method);

private:
    bool matchesPattern(std::u16string_view name) const;

    // The attribute and pattern rules, made at the first of them: most
    // groups name their methods.
    struct Broad {
        ClassSet annotations;
        std::list<Glob> patterns;
    };
    Broad& broad();

    bool matchAll = false;
    WCharSet methods;
    std::unique_ptr<Broad> more;
};
