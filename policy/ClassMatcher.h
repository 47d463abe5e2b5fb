// The class matcher of a directive group.
#pragma once

#include <cstdio>
#include <list>
#include <memory>

#include "platform/Glob.h"
#include "policy/ClassSet.h"
#include "policy/IClassMatcher.h"

class ClassMatcher : public IClassMatcher {
public:
    void addAllClassesRule() override;
    void addAssemblyRule(const char16_t* assembly) override;
    void addClassRule(const char16_t* className) override;
    void addParentClassRule(const char16_t* className) override;
    void addClassAnnotationRule(const char16_t* attribute) override;
    void addClassPatternRule(const char16_t* pattern) override;

    // Cheap tests first; the parent, interface, attribute and pattern rules
    // fetch their names only when a rule of that kind exists.
    bool matchClass(IMetaDataContext* context) override;
    bool mayMatchAssembly(const char16_t* assembly) override;
    bool namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) override;

    bool matchesAll() const { return matchAll; }

private:
    // The rules beyond named classes, made at the first of them: a large
    // directive file makes groups by the hundred thousand that name one class.
    struct Broad {
        ClassSet parents;
        ClassSet annotations;
        WCharSet assemblies;
        std::list<Glob> patterns;
    };
    Broad& broad();

    // The set last but for the flag, which sits in its tail padding, and the
    // group's own flags in what is left: groups come by the hundred thousand.
    std::unique_ptr<Broad> more;
    [[no_unique_address]] ClassSet classes;
    bool matchAll = false;
};
