#include "policy/MethodMatcher.h"

#include <string_view>

#include "platform/FormattedOutput.h"

namespace {

// The web framework's own base controller carries action attributes on its
// helpers; they are never application actions.
constexpr std::u16string_view kExcludedClass = u"Microsoft.AspNetCore.Mvc.Controller";
constexpr std::u16string_view kExcludedClassAssembly = u"Microsoft.AspNetCore.Mvc.ViewFeatures";

}  // namespace

MethodMatcher::Broad& MethodMatcher::broad() {
    if (!more) more = std::make_unique<Broad>();
    return *more;
}

void MethodMatcher::addAllMethodsRule() {
    matchAll = true;
}

void MethodMatcher::addMethodRule(const char16_t* method) {
    if (method == nullptr) {
        return;
    }
    methods.insert(std::u16string(ruleName(method)).c_str());
}

std::u16string_view MethodMatcher::ruleName(std::u16string_view method) {
    return method.substr(0, method.find(u';'));
}

void MethodMatcher::addMethodAnnotationRule(const char16_t* attribute) {
    if (attribute != nullptr && *attribute != 0) {
        broad().annotations.insert(attribute);
    }
}

void MethodMatcher::addMethodPatternRule(const char16_t* pattern) {
    if (pattern != nullptr) {
        broad().patterns.emplace_back(pattern);
    }
}

bool MethodMatcher::matchMethod(IMetaDataContext* context) {
    if (matchAll) {
        return true;
    }
    char16_t* name = nullptr;
    if (SUCCEEDED(context->getMethodName(&name)) && methods.contains(name)) {
        return true;
    }
    if (!more) {
        return false;
    }
    ClassSet& annotations = more->annotations;
    if (!annotations.empty()) {
        char16_t** assemblies = nullptr;
        char16_t** classes = nullptr;
        unsigned int count = 0;
        if (SUCCEEDED(context->getMethodAttributes(&assemblies, &classes, &count))) {
            for (unsigned int i = count; i-- > 0;) {
                if (!findInClassSets(annotations, assemblies[i], classes[i])) {
                    continue;
                }
                char16_t* assembly = nullptr;
                char16_t* className = nullptr;
                if (FAILED(context->getClassName(&assembly, &className))) {
                    return true;
                }
                return !matchFurtherVerifyAnnotationRule(className, assembly);
            }
        }
    }
    return !more->patterns.empty() && SUCCEEDED(context->getMethodName(&name)) && matchesPattern(name);
}

bool MethodMatcher::mayMatchName(const char16_t* name) {
    return matchAll || (more && !more->annotations.empty()) || methods.contains(name) || matchesPattern(name);
}

bool MethodMatcher::addFirstUnits(FirstUnits& units) const {
    // Names are compared as prefixes of each other: a name shares its first
    // unit with the rule it meets, and only the empty rule meets the empty name.
    bool bounded = !matchAll && !more;
    methods.forEach([&](const char16_t* name) {
        if (name[0] == 0 || name[0] >= units.size()) {
            bounded = false;
        } else {
            units.set(name[0]);
        }
    });
    return bounded;
}

bool MethodMatcher::matchesPattern(std::u16string_view name) const {
    if (!more) {
        return false;
    }
    for (const Glob& pattern : more->patterns) {
        if (pattern.match(name)) {
            return true;
        }
    }
    return false;
}

bool MethodMatcher::matchFurtherVerifyAnnotationRule(char16_t* className, char16_t* assemblyName) {
    return className != nullptr && assemblyName != nullptr && className == kExcludedClass &&
           assemblyName == kExcludedClassAssembly;
}
