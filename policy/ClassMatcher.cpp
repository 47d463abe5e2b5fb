#include "policy/ClassMatcher.h"

#include <iterator>

#include "platform/FormattedOutput.h"

namespace {

bool isBlank(const char16_t* text) {
    return text == nullptr || *text == 0;
}

// Walks a list from its end, as the lists are built in declaration order and
// the last declared entries are the likeliest to be specific.
bool anyInClassSet(ClassSet& set, char16_t** assemblies, char16_t** classes, unsigned int count) {
    for (unsigned int i = count; i-- > 0;) {
        if (findInClassSets(set, assemblies[i], classes[i])) {
            return true;
        }
    }
    return false;
}

}  // namespace

ClassMatcher::Broad& ClassMatcher::broad() {
    if (!more) more = std::make_unique<Broad>();
    return *more;
}

void ClassMatcher::addAllClassesRule() {
    matchAll = true;
}

void ClassMatcher::addAssemblyRule(const char16_t* assembly) {
    if (!isBlank(assembly)) {
        broad().assemblies.insert(assembly);
    }
}

void ClassMatcher::addClassRule(const char16_t* className) {
    if (!isBlank(className)) {
        classes.insert(className);
    }
}

void ClassMatcher::addParentClassRule(const char16_t* className) {
    if (!isBlank(className)) {
        broad().parents.insert(className);
    }
}

void ClassMatcher::addClassAnnotationRule(const char16_t* attribute) {
    if (!isBlank(attribute)) {
        broad().annotations.insert(attribute);
    }
}

void ClassMatcher::addClassPatternRule(const char16_t* pattern) {
    if (pattern != nullptr) {
        broad().patterns.emplace_back(pattern);
    }
}

bool ClassMatcher::mayMatchAssembly(const char16_t* assembly) {
    // Parents, attributes and patterns may name classes of any assembly.
    if (matchAll || (more && (!more->parents.empty() || !more->annotations.empty() || !more->patterns.empty() ||
                              more->assemblies.contains(assembly)))) {
        return true;
    }
    return !classes.empty() && classes.mayHoldClassOf(assembly);
}

bool ClassMatcher::namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) {
    if (matchAll || (more && (!more->assemblies.empty() || !more->annotations.empty() || !more->patterns.empty()))) {
        return false;
    }
    classes.forEach([&](const char16_t* name) { visit(name, false); });
    if (more) more->parents.forEach([&](const char16_t* name) { visit(name, true); });
    return true;
}

bool ClassMatcher::matchClass(IMetaDataContext* context) {
    if (matchAll) {
        return true;
    }
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    if (SUCCEEDED(context->getClassName(&assembly, &className))) {
        if (findInClassSets(classes, assembly, className) || (more && more->assemblies.contains(assembly))) {
            return true;
        }
    }
    if (!more) {
        return false;
    }
    ClassSet& parents = more->parents;
    ClassSet& annotations = more->annotations;
    const std::list<Glob>& patterns = more->patterns;
    char16_t** assemblyList = nullptr;
    char16_t** classList = nullptr;
    unsigned int count = 0;
    if (!parents.empty()) {
        if (SUCCEEDED(context->getParentName(&assembly, &className)) && findInClassSets(parents, assembly, className)) {
            return true;
        }
        if (SUCCEEDED(context->getInterfaces(&assemblyList, &classList, &count)) &&
            anyInClassSet(parents, assemblyList, classList, count)) {
            return true;
        }
    }
    if (!annotations.empty() && SUCCEEDED(context->getClassAttributes(&assemblyList, &classList, &count)) &&
        anyInClassSet(annotations, assemblyList, classList, count)) {
        return true;
    }
    if (!patterns.empty()) {
        if (FAILED(context->getClassName(&assembly, &className))) {
            return false;
        }
        // Built on the stack: every class is tested against the patterns of
        // every group that has some. The context's names always fit.
        char16_t buffer[2 * IMetaDataContext::kNameSize + 2];
        std::u16string spilled;
        std::u16string_view qualified = qualifiedName(assembly, className, buffer, std::size(buffer));
        if (qualified.data() == nullptr) {
            spilled = makeFullySpecifiedClassString(assembly, className);
            qualified = spilled;
        }
        const std::u16string_view plain(className);
        for (const Glob& pattern : patterns) {
            if (pattern.match(qualified) || pattern.match(plain)) {
                return true;
            }
        }
    }
    return false;
}
