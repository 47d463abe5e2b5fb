#include "policy/MatchingDirectiveGroup.h"

MatchingDirectiveGroup::MatchingDirectiveGroup(const char16_t* name) : name(name) {}

void MatchingDirectiveGroup::setActive(bool value) {
    active = value;
    activeSet = true;
}

IClassMatcher* MatchingDirectiveGroup::getClassMatcher() {
    return &classMatcher;
}

IClassMethodFilter* MatchingDirectiveGroup::getClassMethodFilter() {
    if (!classMethodFilter) classMethodFilter = std::make_unique<ClassMethodFilter>();
    return classMethodFilter.get();
}

IMethodMatcher* MatchingDirectiveGroup::getMethodMatcher() {
    if (!methodMatcher) methodMatcher = std::make_unique<MethodMatcher>();
    return methodMatcher.get();
}

// A skip filter that was never made holds no rule: it skips nothing.
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
    return classMatcher.matchClass(context);
}

// A method matcher that was never made holds no rule: it matches no name.
bool MatchingDirectiveGroup::matchMethod(IMetaDataContext* context) {
    return methodMatcher && methodMatcher->matchMethod(context);
}

bool MatchingDirectiveGroup::mayMatchAssembly(const char16_t* assembly) {
    return classMatcher.mayMatchAssembly(assembly);
}

bool MatchingDirectiveGroup::namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) {
    return classMatcher.namedClassesOnly(visit);
}

bool MatchingDirectiveGroup::mayMatchName(const char16_t* name) {
    return methodMatcher && methodMatcher->mayMatchName(name);
}

bool MatchingDirectiveGroup::addFirstUnits(FirstUnits& units) const {
    return !methodMatcher || methodMatcher->addFirstUnits(units);
}
