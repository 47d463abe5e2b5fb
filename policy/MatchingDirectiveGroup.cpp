#include "policy/MatchingDirectiveGroup.h"

MatchingDirectiveGroup::MatchingDirectiveGroup(const char16_t* name) : name(name) {}

void MatchingDirectiveGroup::setActive(bool value) {
    active = value;
    activeSet = true;
}

IClassMatcher* MatchingDirectiveGroup::getClassMatcher() {
    if (!classMatcher) classMatcher = std::make_unique<ClassMatcher>();
    return classMatcher.get();
}

IClassMethodFilter* MatchingDirectiveGroup::getClassMethodFilter() {
    if (!classMethodFilter) classMethodFilter = std::make_unique<ClassMethodFilter>();
    return classMethodFilter.get();
}

IMethodMatcher* MatchingDirectiveGroup::getMethodMatcher() {
    if (!methodMatcher) methodMatcher = std::make_unique<MethodMatcher>();
    return methodMatcher.get();
}

// A part that was never made holds no rule: it skips and matches nothing.
bool MatchingDirectiveGroup::skip(IMetaDataContext* context) {
    return classMethodFilter && classMethodFilter->skipClassMethod(context);
}

bool MatchingDirectiveGroup::skipClass(IMetaDataContext* context) {
    return classMethodFilter && classMethodFilter->skipClass(context);
}

bool MatchingDirectiveGroup::skipMethod(IMetaDataContext* context) {
    return classMethodFilter && classMethodFilter->skipMethod(context);
}

bool MatchingDirectiveGroup::match(IMetaDataContext* context) {
    return matchClass(context) && matchMethod(context);
}

bool MatchingDirectiveGroup::matchClass(IMetaDataContext* context) {
    return classMatcher && classMatcher->matchClass(context);
}

bool MatchingDirectiveGroup::matchMethod(IMetaDataContext* context) {
    return methodMatcher && methodMatcher->matchMethod(context);
}

bool MatchingDirectiveGroup::mayMatchAssembly(const char16_t* assembly) {
    return classMatcher && classMatcher->mayMatchAssembly(assembly);
}

bool MatchingDirectiveGroup::namedClassesOnly(const std::function<void(const char16_t*)>& visit) {
    return !classMatcher || classMatcher->namedClassesOnly(visit);
}

bool MatchingDirectiveGroup::mayMatchName(const char16_t* name) {
    return methodMatcher && methodMatcher->mayMatchName(name);
}

