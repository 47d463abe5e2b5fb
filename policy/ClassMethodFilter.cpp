#include "policy/ClassMethodFilter.h"

#include <cstring>

#include "platform/FormattedOutput.h"
#include "policy/MethodMatcher.h"

namespace {

bool beginsWith(const char16_t* text, const std::u16string& prefix) {
    return strncmp_u16(text, prefix.c_str(), prefix.size()) == 0;
}

// The namespace is the class name up to its last dot; a name without a dot
// is its own namespace. space holds IMetaDataContext::kNameSize units.
void namespaceOf(const char16_t* className, char16_t* space) {
    size_t length = 0;
    const char16_t* dot = nullptr;
    for (const char16_t* p = className; *p != 0 && length + 1 < IMetaDataContext::kNameSize; ++p, ++length) {
        if (*p == u'.') {
            dot = p;
        }
    }
    const size_t cut = dot != nullptr ? static_cast<size_t>(dot - className) : length;
    std::memcpy(space, className, cut * sizeof(char16_t));
    space[cut] = 0;
}

}  // namespace

void ClassMethodFilter::addAssemblySkipRule(const char16_t* name) {
    if (name == nullptr) {
        return;
    }
    const size_t length = strlen_u16(name);
    if (length >= 2 && name[0] == u'[' && name[length - 1] == u']') {
        assemblies.insert(std::u16string(name + 1, length - 2).c_str());
    } else {
        assemblies.insert(name);
    }
}

void ClassMethodFilter::addAssemblyPrefixSkipRule(const char16_t* prefix) {
    if (prefix != nullptr) {
        assemblyPrefixes.emplace_back(prefix[0] == u'[' ? prefix + 1 : prefix);
    }
}

void ClassMethodFilter::addNamespaceSkipRule(const char16_t* name) {
    namespaces.insert(name);
}

void ClassMethodFilter::addNamespacePrefixSkipRule(const char16_t* prefix) {
    if (prefix != nullptr) {
        namespacePrefixes.emplace_back(prefix);
    }
}

void ClassMethodFilter::addClassSkipRule(const char16_t* name) {
    classes.insert(name);
}

void ClassMethodFilter::addMethodSkipRule(const char16_t* name) {
    methods.insert(name);
}

void ClassMethodFilter::addMethodForClassSkipRule(const char16_t* className, const char16_t* methodName) {
    addMethodForClass(methodsForClass, className, methodName);
}

void ClassMethodFilter::addClassExceptionRule(const char16_t* name) {
    classExceptions.insert(name);
}

void ClassMethodFilter::addMethodForClassExceptionRule(const char16_t* className, const char16_t* methodName) {
    addMethodForClass(methodForClassExceptions, className, methodName);
}

void ClassMethodFilter::addMethodForClass(ClassMethodMatcherMap& map, const char16_t* className,
                                          const char16_t* methodName) {
    if (className == nullptr) {
        return;
    }
    std::unique_ptr<IMethodMatcher>& matcher = map[className];
    if (matcher == nullptr) {
        matcher = std::make_unique<MethodMatcher>();
    }
    matcher->addMethodRule(methodName);
}

void ClassMethodFilter::matchersFor(ClassMethodMatcherMap& map, IMetaDataContext* context, Matchers& found) {
    found = {};
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    if (map.empty() || FAILED(context->getClassName(&assembly, &className))) {
        return;
    }
    if (map.hasQualified()) {
        if (auto* matcher = map.find(makeFullySpecifiedClassString(assembly, className).c_str())) {
            found[0] = matcher->get();
        }
    }
    if (auto* matcher = map.find(className)) {
        found[1] = matcher->get();
    }
}

bool ClassMethodFilter::anyMatches(const Matchers& matchers, IMetaDataContext* context) {
    for (IMethodMatcher* matcher : matchers) {
        if (matcher != nullptr && matcher->matchMethod(context)) {
            return true;
        }
    }
    return false;
}

bool ClassMethodFilter::checkMethodForClass(ClassMethodMatcherMap& map, IMetaDataContext* context) {
    Matchers found;
    matchersFor(map, context, found);
    return anyMatches(found, context);
}

bool ClassMethodFilter::skipAssembly(IMetaDataContext* context) {
    char16_t* assembly = nullptr;
    if (FAILED(context->getAssemblyName(&assembly))) {
        return false;
    }
    if (assemblies.contains(assembly)) {
        return true;
    }
    for (const std::u16string& prefix : assemblyPrefixes) {
        if (beginsWith(assembly, prefix)) {
            return true;
        }
    }
    return false;
}

bool ClassMethodFilter::skipClassMethod(IMetaDataContext* context) {
    return skipClassMethod(context, rulesFor(context));
}

ClassMethodFilter::ClassRules ClassMethodFilter::rulesFor(IMetaDataContext* context) {
    ClassRules rules;
    rules.wholeClass = skipsWholeClass(context);
    matchersFor(methodsForClass, context, rules.skipping);
    matchersFor(methodForClassExceptions, context, rules.keeping);
    return rules;
}

bool ClassMethodFilter::skipClassMethod(IMetaDataContext* context, const ClassRules& rules) {
    // skipClass or skipMethod: an exception for the method keeps it in from both.
    if ((!rules.wholeClass && methodsForClass.empty() && methods.empty()) || anyMatches(rules.keeping, context)) {
        return false;
    }
    if (rules.wholeClass || anyMatches(rules.skipping, context)) {
        return true;
    }
    char16_t* name = nullptr;
    return !methods.empty() && SUCCEEDED(context->getMethodName(&name)) && methods.contains(name);
}

bool ClassMethodFilter::skipClass(IMetaDataContext* context) {
    return skipsWholeClass(context) && !checkMethodForClass(methodForClassExceptions, context);
}

bool ClassMethodFilter::skipsWholeClass(IMetaDataContext* context) {
    // Exceptions only ever keep a class in: without a skip rule no name is
    // fetched. Every decision passes here, most of them with no rule at all.
    if (assemblies.empty() && assemblyPrefixes.empty() && classes.empty() && namespaces.empty() &&
        namespacePrefixes.empty()) {
        return false;
    }
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    if (FAILED(context->getClassName(&assembly, &className)) || findInClassSets(classExceptions, assembly, className)) {
        return false;
    }
    if (assemblies.contains(assembly) || findInClassSets(classes, assembly, className)) {
        return true;
    }
    for (const std::u16string& prefix : assemblyPrefixes) {
        if (beginsWith(assembly, prefix)) {
            return true;
        }
    }
    // Every compiled method passes here once per group: the namespace is cut
    // out only when a namespace rule can use it.
    if (namespaces.empty() && namespacePrefixes.empty()) {
        return false;
    }
    char16_t space[IMetaDataContext::kNameSize];
    namespaceOf(className, space);
    if (findInClassSets(namespaces, assembly, space)) {
        return true;
    }
    for (const std::u16string& prefix : namespacePrefixes) {
        if (beginsWith(space, prefix)) {
            return true;
        }
    }
    return false;
}

bool ClassMethodFilter::skipMethod(IMetaDataContext* context) {
    if (methodsForClass.empty() && methods.empty()) {
        return false;
    }
    if (checkMethodForClass(methodForClassExceptions, context)) {
        return false;
    }
    if (checkMethodForClass(methodsForClass, context)) {
        return true;
    }
    char16_t* name = nullptr;
    return SUCCEEDED(context->getMethodName(&name)) && methods.contains(name);
}

void ClassMethodFilter::logFilter(FILE* stream) {
    for (const std::u16string& prefix : assemblyPrefixes) {
        fprintf_u16(stream, u"\t ! assembly prefix: %s\n", prefix.c_str());
    }
    assemblies.forEach([stream](const char16_t* item) { fprintf_u16(stream, u"\t ! assembly: %s\n", item); });
    for (const std::u16string& prefix : namespacePrefixes) {
        fprintf_u16(stream, u"\t ! namespace prefix: %s\n", prefix.c_str());
    }
    namespaces.forEach([stream](const char16_t* item) { fprintf_u16(stream, u"\t ! namespace: %s\n", item); });
    classes.forEach([stream](const char16_t* item) { fprintf_u16(stream, u"\t ! class: %s\n", item); });
    methods.forEach([stream](const char16_t* item) { fprintf_u16(stream, u"\t ! method: %s\n", item); });
    classExceptions.forEach(
        [stream](const char16_t* item) { fprintf_u16(stream, u"\t ! method exception: %s\n", item); });
    methodsForClass.forEach([stream](const char16_t* key, const std::unique_ptr<IMethodMatcher>&) {
        fprintf_u16(stream, u"\t ! method for class: %s\n", key);
    });
    methodForClassExceptions.forEach([stream](const char16_t* key, const std::unique_ptr<IMethodMatcher>&) {
        fprintf_u16(stream, u"\t ! method for class exception: %s\n", key);
    });
}
