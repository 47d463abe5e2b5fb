#include "policy/DirectiveKeywords.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "platform/Text16.h"
#include "policy/DirectiveController.h"
#include "runtime/CorErrors.h"

namespace {

// What parts a line's arguments.
bool isBlank(char16_t unit) {
    return unit <= u' ' && (unit == u' ' || unit == u'\t' || unit == u'\r' || unit == u'\n');
}

// The first colon (for a colon), or the first blank (for a blank), from at
// on; end where there is none. Every unit of a generated file of megabytes
// passes here: four units are read at once, and a word without a colon, or
// without a unit below '!', is passed over whole. A word's lowest lane holds
// its first unit, and its lowest marked lane is always a true mark: a borrow
// marks only lanes above it.
template <char16_t kSought>
char16_t* firstOf(char16_t* at, char16_t* end) {
    static_assert(std::endian::native == std::endian::little);
    constexpr uint64_t kLanes = 0x0001000100010001;
    constexpr uint64_t kHigh = kLanes * 0x8000;
    for (; end - at >= 4; at += 4) {
        uint64_t word = 0;
        std::memcpy(&word, at, sizeof(word));
        // A colon leaves a zero lane behind; a blank is a lane below '!'.
        const uint64_t probed = kSought == u':' ? word ^ (kLanes * u':') : word;
        const uint64_t bound = kSought == u':' ? 1 : u' ' + 1;
        const uint64_t marked = (probed - kLanes * bound) & ~probed & kHigh;
        if (marked != 0) {
            at += std::countr_zero(marked) / 16;
            break;
        }
    }
    // The rest unit by unit, and a unit below '!' that is no blank passed over.
    while (at != end && (kSought == u':' ? *at != u':' : !isBlank(*at))) {
        ++at;
    }
    return at;
}

using FilterOf = IClassMethodFilter* (*)(DirectiveController&);
using FilterRule = void (IClassMethodFilter::*)(const char16_t*);
using FilterPairRule = void (IClassMethodFilter::*)(const char16_t*, const char16_t*);
using ClassRule = void (IClassMatcher::*)(const char16_t*);
using MethodRule = void (IMethodMatcher::*)(const char16_t*);

IClassMethodFilter* globalSkips(DirectiveController& controller) {
    return controller.getSkips();
}

IClassMethodFilter* dynamicSkips(DirectiveController& controller) {
    return controller.getDynamicInstrumentationSkips();
}

// Rules of the global filter and of the dynamic instrumentation filter.

template <FilterOf filter, FilterRule rule>
HRESULT skip(DirectiveController& controller, const DirectiveLine& line) {
    (filter(controller)->*rule)(line.arguments[0]);
    return S_OK;
}

template <FilterOf filter, FilterPairRule rule>
HRESULT skipPair(DirectiveController& controller, const DirectiveLine& line) {
    (filter(controller)->*rule)(line.arguments[0], line.arguments[1]);
    return S_OK;
}

template <FilterOf filter>
HRESULT skipEmptyClasses(DirectiveController& controller, const DirectiveLine&) {
    filter(controller)->addClassSkipRule(u"");
    return S_OK;
}

// Rules of one flag. The flag stands second in the skip rules and in the
// class rules, first in the method rules.

template <FilterRule rule>
HRESULT skipForFlag(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[1]);
    if (group == nullptr) {
        return E_FAIL;
    }
    (group->getClassMethodFilter()->*rule)(line.arguments[0]);
    return S_OK;
}

HRESULT skipMethodForFlag(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[0]);
    if (group == nullptr) {
        return E_FAIL;
    }
    group->getClassMethodFilter()->addMethodSkipRule(line.arguments[1]);
    return S_OK;
}

HRESULT setFlag(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[0]);
    if (group == nullptr) {
        return E_FAIL;
    }
    group->setCreated();
    return S_OK;
}

HRESULT turnOn(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[0]);
    if (group == nullptr) {
        return E_FAIL;
    }
    group->setActive(true);
    group->setCreated();
    return S_OK;
}

HRESULT turnOff(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[0]);
    if (group == nullptr) {
        return E_FAIL;
    }
    group->setActive(false);
    return S_OK;
}

HRESULT allClasses(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[0]);
    if (group == nullptr) {
        return E_FAIL;
    }
    group->getClassMatcher()->addAllClassesRule();
    return S_OK;
}

template <ClassRule rule>
HRESULT classes(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[1]);
    if (group == nullptr) {
        return E_FAIL;
    }
    (group->getClassMatcher()->*rule)(line.arguments[0]);
    return S_OK;
}

HRESULT allMethods(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[0]);
    if (group == nullptr) {
        return E_FAIL;
    }
    group->getMethodMatcher()->addAllMethodsRule();
    return S_OK;
}

template <MethodRule rule>
HRESULT methods(DirectiveController& controller, const DirectiveLine& line) {
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[0]);
    if (group == nullptr) {
        return E_FAIL;
    }
    (group->getMethodMatcher()->*rule)(line.arguments[1]);
    return S_OK;
}

// Class and method in one line, each in a group of its own that is live at once.
// A class rule makes a compact group where it can; a parent rule always makes
// a full one. No method stands for all methods.

template <ClassRule rule>
HRESULT lineGroup(DirectiveController& controller, const DirectiveLine& line, bool oneMethod) {
    const std::u16string_view method = oneMethod ? line.argument(1) : std::u16string_view();
    if (rule == &IClassMatcher::addClassRule && controller.addClassLineGroup(line.argument(0), method) != nullptr) {
        return S_OK;
    }
    IDirectiveGroup* group = controller.addAnonymousDirectiveGroup();
    if (group == nullptr) {
        return E_FAIL;
    }
    (group->getClassMatcher()->*rule)(line.arguments[0]);
    if (oneMethod) {
        group->getMethodMatcher()->addMethodRule(line.arguments[1]);
    } else {
        group->getMethodMatcher()->addAllMethodsRule();
    }
    return S_OK;
}

template <ClassRule rule>
HRESULT allMethodsOf(DirectiveController& controller, const DirectiveLine& line) {
    return lineGroup<rule>(controller, line, false);
}

template <ClassRule rule>
HRESULT oneMethodOf(DirectiveController& controller, const DirectiveLine& line) {
    return lineGroup<rule>(controller, line, true);
}

// Class, method, label and flag; the label is dropped. A line without the flag
// names no group and is ignored.
HRESULT oneMethodWithLabel(DirectiveController& controller, const DirectiveLine& line) {
    if (line.arguments[3] == nullptr) {
        return S_OK;
    }
    IDirectiveGroup* group = controller.addDirectiveGroup(line.arguments[3]);
    if (group == nullptr) {
        return E_FAIL;
    }
    group->getClassMatcher()->addClassRule(line.arguments[0]);
    group->getMethodMatcher()->addMethodRule(line.arguments[1]);
    if (!group->isCreated()) {
        group->setActive(true);
        group->setCreated();
    } else if (!group->wasActiveSet()) {
        // A flag turned off explicitly after its creation stays off.
        group->setActive(true);
    }
    return S_OK;
}

// In the order of comparison: a keyword takes the first entry that it is a
// leading part of and whose minimum the line reaches.
const DirectiveKeywords::Keyword kKeywords[] = {
    {u"DoNotSkipClass", 1, skip<globalSkips, &IClassMethodFilter::addClassExceptionRule>},
    {u"DoNotSkipMethodForClass", 2, skipPair<globalSkips, &IClassMethodFilter::addMethodForClassExceptionRule>},
    {u"IdentifyAllClassesAs", 1, allClasses},
    {u"IdentifyAssemblyAs", 2, classes<&IClassMatcher::addAssemblyRule>},
    {u"IdentifyAnnotatedClassAs", 2, classes<&IClassMatcher::addClassAnnotationRule>},
    {u"IdentifyClassAs", 2, classes<&IClassMatcher::addClassRule>},
    {u"IdentifyFlagAs", 2, nullptr},
    {u"IdentifyInheritedAs", 2, classes<&IClassMatcher::addParentClassRule>},
    {u"IdentifyMatchingClassesAs", 2, classes<&IClassMatcher::addClassPatternRule>},
    {u"IdentifyTwoFlagIntersectionAsAggregateFlag", 3, nullptr},
    {u"IdentifyTwoFlagUnionAsAggregateFlag", 3, nullptr},
    {u"InstrumentationPoint", 1, nullptr},
    {u"NoticeConstructorCompletionIfFlagged", 1, nullptr},
    {u"NoticeFieldAssignmentIfFlagged", 1, nullptr},
    {u"NoticeObjectCreationIfFlagged", 1, nullptr},
    {u"SetFlag", 1, setFlag},
    {u"SkipAssembly", 1, skip<globalSkips, &IClassMethodFilter::addAssemblySkipRule>},
    {u"SkipAssemblyForFlag", 2, skipForFlag<&IClassMethodFilter::addAssemblySkipRule>},
    {u"SkipAssemblyPrefix", 1, skip<globalSkips, &IClassMethodFilter::addAssemblyPrefixSkipRule>},
    {u"SkipAssemblyPrefixForFlag", 2, skipForFlag<&IClassMethodFilter::addAssemblyPrefixSkipRule>},
    {u"SkipClass", 1, skip<globalSkips, &IClassMethodFilter::addClassSkipRule>},
    {u"SkipClassForFlag", 2, skipForFlag<&IClassMethodFilter::addClassSkipRule>},
    {u"SkipEmptyClasses", 0, skipEmptyClasses<globalSkips>},
    {u"SkipMethodForClass", 2, skipPair<globalSkips, &IClassMethodFilter::addMethodForClassSkipRule>},
    {u"SkipMethodForFlag", 2, skipMethodForFlag},
    {u"SkipNamespace", 1, skip<globalSkips, &IClassMethodFilter::addNamespaceSkipRule>},
    {u"SkipNamespaceForFlag", 2, skipForFlag<&IClassMethodFilter::addNamespaceSkipRule>},
    {u"SkipNamespacePrefix", 1, skip<globalSkips, &IClassMethodFilter::addNamespacePrefixSkipRule>},
    {u"SkipNamespacePrefixForFlag", 2, skipForFlag<&IClassMethodFilter::addNamespacePrefixSkipRule>},
    {u"SubstituteResultIfFlagged", 0, nullptr},
    {u"TraceAllComplexMethodsIfFlagged", 1, allMethods},
    {u"TraceAllComplexMethodsWithThresholdIfFlagged", 1, allMethods},
    {u"TraceAllMethodsIfFlagged", 1, allMethods},
    {u"TraceAllMethodsWithParametersIfFlagged", 1, allMethods},
    {u"TraceAllMethodsIfInherits", 1, allMethodsOf<&IClassMatcher::addParentClassRule>},
    {u"TraceAllMethodsOfClass", 1, allMethodsOf<&IClassMatcher::addClassRule>},
    {u"TraceAllMethodsWithThresholdIfFlagged", 1, allMethods},
    {u"TraceAllMethodsWithThresholdOfClass", 1, allMethodsOf<&IClassMatcher::addClassRule>},
    {u"TraceAnnotatedMethodsIfFlagged", 2, methods<&IMethodMatcher::addMethodAnnotationRule>},
    {u"TraceAnnotatedMethodsWithParametersIfFlagged", 2, methods<&IMethodMatcher::addMethodAnnotationRule>},
    {u"TraceMatchingMethodsWithParametersIfFlagged", 2, methods<&IMethodMatcher::addMethodPatternRule>},
    {u"TraceComplexMethodsIfFlagged", 1, allMethods},
    {u"TraceComplexMethodsWithParametersIfFlagged", 1, allMethods},
    {u"TraceComplexMethodsWithThresholdIfFlagged", 1, allMethods},
    {u"TraceOneMethodIfFlagged", 2, methods<&IMethodMatcher::addMethodRule>},
    {u"TraceOneMethodIfInherits", 2, oneMethodOf<&IClassMatcher::addParentClassRule>},
    {u"TraceOneMethodOfClass", 2, oneMethodOf<&IClassMatcher::addClassRule>},
    {u"TraceOneMethodWithParametersIfFlagged", 2, methods<&IMethodMatcher::addMethodRule>},
    {u"TraceOneMethodWithParametersIfInherits", 2, oneMethodOf<&IClassMatcher::addParentClassRule>},
    {u"TraceOneMethodWithParametersOfClass", 2, oneMethodOf<&IClassMatcher::addClassRule>},
    {u"TraceOneMethodWithThresholdIfFlagged", 2, methods<&IMethodMatcher::addMethodRule>},
    {u"TraceOneMethodWithThresholdOfClass", 2, oneMethodOf<&IClassMatcher::addClassRule>},
    {u"TurnOn", 1, turnOn},
    {u"TurnOff", 1, turnOff},
    {u"DoNotSkipDynamicInstrumentationClass", 1, skip<dynamicSkips, &IClassMethodFilter::addClassExceptionRule>},
    {u"DoNotSkipDynamicInstrumentationMethodForClass", 2,
     skipPair<dynamicSkips, &IClassMethodFilter::addMethodForClassExceptionRule>},
    {u"SkipDynamicInstrumentationAssembly", 1, skip<dynamicSkips, &IClassMethodFilter::addAssemblySkipRule>},
    {u"SkipDynamicInstrumentationAssemblyPrefix", 1,
     skip<dynamicSkips, &IClassMethodFilter::addAssemblyPrefixSkipRule>},
    {u"SkipDynamicInstrumentationClass", 1, skip<dynamicSkips, &IClassMethodFilter::addClassSkipRule>},
    {u"SkipDynamicInstrumentationEmptyClasses", 0, skipEmptyClasses<dynamicSkips>},
    {u"SkipDynamicInstrumentationMethodForClass", 2,
     skipPair<dynamicSkips, &IClassMethodFilter::addMethodForClassSkipRule>},
    {u"SkipDynamicInstrumentationNamespace", 1, skip<dynamicSkips, &IClassMethodFilter::addNamespaceSkipRule>},
    {u"SkipDynamicInstrumentationNamespacePrefix", 1,
     skip<dynamicSkips, &IClassMethodFilter::addNamespacePrefixSkipRule>},
    {u"TraceOneMethodWithlabelOfClass", 3, oneMethodWithLabel},
};

}  // namespace

bool DirectiveKeywords::parse(char16_t* line, DirectiveLine& parsed) {
    return line != nullptr && parse(line, strlen_u16(line), parsed);
}

bool DirectiveKeywords::parse(char16_t* line, size_t length, DirectiveLine& parsed) {
    if (line[0] == u'#') {
        return false;
    }
    char16_t* const end = line + length;
    char16_t* keyword = line;
    while (*keyword == u':') {
        ++keyword;
    }
    if (keyword == end) {
        // Nothing but colons.
        return false;
    }
    // Tokens are ended in place, as strtok ends them; rest is the end once
    // the line has ended.
    char16_t* keywordEnd = firstOf<u':'>(keyword, end);
    char16_t* rest = end;
    if (keywordEnd != end) {
        *keywordEnd = 0;
        rest = keywordEnd + 1;
    }
    while (isBlank(*keyword)) {
        ++keyword;
    }
    while (keywordEnd > keyword && isBlank(keywordEnd[-1])) {
        *--keywordEnd = 0;
    }
    if (keywordEnd == keyword) {
        return false;
    }
    parsed = DirectiveLine();
    parsed.keyword = keyword;
    parsed.keywordLength = static_cast<uint32_t>(keywordEnd - keyword);
    int tokens = 0;
    while (tokens < 4 && rest != end) {
        while (isBlank(*rest)) {
            ++rest;
        }
        if (rest == end) {
            break;
        }
        char16_t* token = rest;
        rest = firstOf<u' '>(rest, end);
        parsed.lengths[tokens] = static_cast<uint32_t>(rest - token);
        parsed.arguments[tokens++] = token;
        if (rest != end) *rest++ = 0;
    }
    parsed.count = tokens < 3 ? tokens : 3;
    return true;
}

const DirectiveKeywords::Keyword* DirectiveKeywords::find(const DirectiveLine& line) {
    for (const Keyword& keyword : kKeywords) {
        // The first unit turns most keywords away without a call.
        if (line.count >= keyword.minimum && line.keyword[0] == keyword.name[0] &&
            strcmp_u16(line.keyword, keyword.name) == 0) {
            return &keyword;
        }
    }
    return nullptr;
}

int DirectiveKeywords::minimumFor(const char16_t* keyword) {
    int fewest = -1;
    for (const Keyword& entry : kKeywords) {
        if (strcmp_u16(keyword, entry.name) == 0 && (fewest < 0 || entry.minimum < fewest)) {
            fewest = entry.minimum;
        }
    }
    return fewest;
}
