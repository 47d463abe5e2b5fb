#include "policy/ClassLineGroup.h"

#include <algorithm>

#include "policy/ClassLineGroups.h"
#include "policy/ClassSet.h"

const char16_t* ClassLineGroup::getName() {
    if (!name) {
        char16_t made[ClassLineGroups::kNameSize];
        const size_t length = ClassLineGroups::nameOf(number, made);
        name = std::make_unique_for_overwrite<char16_t[]>(length + 1);
        std::copy_n(made, length + 1, name.get());
    }
    return name.get();
}

MatchingDirectiveGroup& ClassLineGroup::full() {
    if (!changed) {
        changed = std::make_unique<MatchingDirectiveGroup>(getName());
        changed->getClassMatcher()->addClassRule(className());
        if (oneMethod) {
            changed->getMethodMatcher()->addMethodRule(method());
        } else {
            changed->getMethodMatcher()->addAllMethodsRule();
        }
        changed->setActive(true);
        changed->setCreated();
    }
    return *changed;
}

bool ClassLineGroup::matchClass(IMetaDataContext* context) {
    if (changed) {
        return changed->matchClass(context);
    }
    char16_t* assembly = nullptr;
    char16_t* name = nullptr;
    return SUCCEEDED(context->getClassName(&assembly, &name)) && classAgrees(className(), assembly, name);
}

bool ClassLineGroup::matchMethod(IMetaDataContext* context) {
    if (changed) {
        return changed->matchMethod(context);
    }
    char16_t* name = nullptr;
    return !oneMethod || (SUCCEEDED(context->getMethodName(&name)) && WCharSet::agrees(method(), name));
}

bool ClassLineGroup::mayMatchAssembly(const char16_t* assembly) {
    return changed ? changed->mayMatchAssembly(assembly) : mayNameClassOf(className(), assembly);
}

bool ClassLineGroup::mayMatchName(const char16_t* name) {
    return changed ? changed->mayMatchName(name) : !oneMethod || WCharSet::agrees(method(), name);
}

bool ClassLineGroup::addFirstUnits(FirstUnits& units) const {
    if (changed) {
        return changed->addFirstUnits(units);
    }
    const char16_t first = oneMethod ? *method() : 0;
    if (first == 0 || first >= units.size()) {
        return false;
    }
    units.set(first);
    return true;
}

bool ClassLineGroup::namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) {
    if (changed) {
        return changed->namedClassesOnly(visit);
    }
    visit(className(), false);
    return true;
}
