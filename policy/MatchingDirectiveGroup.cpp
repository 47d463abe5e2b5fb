#include "policy/MatchingDirectiveGroup.h"

MatchingDirectiveGroup::MatchingDirectiveGroup(const char16_t* name) : name(name) {}

void MatchingDirectiveGroup::setActive(bool value) {
    active = value;
    activeSet = true;
}

bool MatchingDirectiveGroup::skip(IMetaDataContext* context) {
    return classMethodFilter.skipClassMethod(context);
}

bool MatchingDirectiveGroup::match(IMetaDataContext* context) {
    return matchClass(context) && matchMethod(context);
}

bool MatchingDirectiveGroup::matchClass(IMetaDataContext* context) {
    return classMatcher.matchClass(context);
}

bool MatchingDirectiveGroup::matchMethod(IMetaDataContext* context) {
    return methodMatcher.matchMethod(context);
}

void MatchingDirectiveGroup::logGroup(FILE* stream) {
    classMatcher.logMatcher(stream);
    methodMatcher.logMethods(stream);
    classMethodFilter.logFilter(stream);
}
