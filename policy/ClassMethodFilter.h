// The skip filter.
#pragma once

#include <array>
#include <cstdio>
#include <list>
#include <string>

#include "policy/ClassMethodMatcherMap.h"
#include "policy/ClassSet.h"
#include "policy/IClassMethodFilter.h"

class ClassMethodFilter : public IClassMethodFilter {
public:
    ClassMethodFilter() = default;
    ClassMethodFilter(const ClassMethodFilter&) = delete;
    ClassMethodFilter& operator=(const ClassMethodFilter&) = delete;
    ~ClassMethodFilter() override = default;

    void addAssemblySkipRule(const char16_t* name) override;
    void addAssemblyPrefixSkipRule(const char16_t* prefix) override;
    void addNamespaceSkipRule(const char16_t* name) override;
    void addNamespacePrefixSkipRule(const char16_t* prefix) override;
    void addClassSkipRule(const char16_t* name) override;
    void addMethodSkipRule(const char16_t* name) override;
    void addMethodForClassSkipRule(const char16_t* className, const char16_t* methodName) override;
    void addClassExceptionRule(const char16_t* name) override;
    void addMethodForClassExceptionRule(const char16_t* className, const char16_t* methodName) override;

    bool skipAssembly(IMetaDataContext* context) override;
    bool skipClassMethod(IMetaDataContext* context) override;
    // skipsWholeClass, unless a method-of-class exception keeps the method in.
    bool skipClass(IMetaDataContext* context) override;
    bool skipMethod(IMetaDataContext* context) override;

    // What skipClass decides from the class alone, the same for all its
    // methods: a class exception keeps it in; then assembly, class and
    // namespace sets; the linear prefix lists last.
    bool skipsWholeClass(IMetaDataContext* context);

    // The method matchers of a class's method-of-class rules, qualified and
    // plain; null where the filter has none.
    using Matchers = std::array<IMethodMatcher*, 2>;
    // All that skipClassMethod takes from the class, the same for all its
    // methods: a decision asks the rest method by method.
    struct ClassRules {
        bool wholeClass = false;
        Matchers skipping{};
        Matchers keeping{};
    };
    ClassRules rulesFor(IMetaDataContext* context);
    bool skipClassMethod(IMetaDataContext* context, const ClassRules& rules);

    // Adds methodName to the matcher of className, made on first use.
    void addMethodForClass(ClassMethodMatcherMap& map, const char16_t* className, const char16_t* methodName);
    // The matcher of the class, by qualified key first, then plain, selects
    // the method in hand.
    bool checkMethodForClass(ClassMethodMatcherMap& map, IMetaDataContext* context);
    // One line a rule, for diagnostics.
    void logFilter(FILE* stream);

private:
    static void matchersFor(ClassMethodMatcherMap& map, IMetaDataContext* context, Matchers& found);
    static bool anyMatches(const Matchers& matchers, IMetaDataContext* context);

    std::list<std::u16string> assemblyPrefixes;
    WCharSet assemblies;
    std::list<std::u16string> namespacePrefixes;
    ClassSet namespaces;
    ClassSet classes;
    WCharSet methods;
    ClassMethodMatcherMap methodsForClass;
    ClassSet classExceptions;
    ClassMethodMatcherMap methodForClassExceptions;
};
