// The group that a line naming a class and one of its methods, or all of
// them, makes ("TraceOneMethodOfClass: N.C Run"): live from the start, with
// one class rule and one method rule and no skip filter. A generated directive
// file makes such groups by the hundred thousand, so one is a few words beside
// its text. A later line that names the group to change it turns it into a
// full group first, which answers from then on.
//
// Contract: the text belongs to the group's store. No lock inside.
#pragma once

#include <cstdint>
#include <memory>

#include "policy/IDirectiveGroup.h"
#include "policy/MatchingDirectiveGroup.h"

class ClassLineGroup final : public IDirectiveGroup {
public:
    // text holds the class of classLength units and, with oneMethod, the
    // method behind it, each ending in a zero; without, the group selects all
    // methods. The group's name is made the first time it is asked for: most
    // are never named.
    ClassLineGroup(const char16_t* text, uint32_t number, uint16_t classLength, bool oneMethod)
        : text(text), number(number), classLength(classLength), oneMethod(oneMethod) {}

    uint32_t getNumber() const { return number; }

    bool isActive() override { return changed ? changed->isActive() : true; }
    bool wasActiveSet() override { return changed ? changed->wasActiveSet() : true; }
    void setActive(bool value) override { full().setActive(value); }
    bool isCreated() override { return changed ? changed->isCreated() : true; }
    void setCreated() override { full().setCreated(); }
    const char16_t* getName() override;
    IClassMatcher* getClassMatcher() override { return full().getClassMatcher(); }
    IClassMethodFilter* getClassMethodFilter() override { return full().getClassMethodFilter(); }
    IMethodMatcher* getMethodMatcher() override { return full().getMethodMatcher(); }
    bool skip(IMetaDataContext* context) override { return changed && changed->skip(context); }
    bool skipClass(IMetaDataContext* context) override { return changed && changed->skipClass(context); }
    bool skipMethod(IMetaDataContext* context) override { return changed && changed->skipMethod(context); }
    bool match(IMetaDataContext* context) override { return matchClass(context) && matchMethod(context); }
    bool matchClass(IMetaDataContext* context) override;
    bool matchMethod(IMetaDataContext* context) override;
    bool mayMatchAssembly(const char16_t* assembly) override;
    bool mayMatchName(const char16_t* name) override;
    bool addFirstUnits(FirstUnits& units) const override;
    bool namedClassesOnly(const std::function<void(const char16_t* name, bool parent)>& visit) override;
    const char16_t* soleMethod() override { return changed ? nullptr : method(); }
    std::u16string_view soleClass() override {
        return changed ? std::u16string_view() : std::u16string_view(className(), classLength);
    }

private:
    // The full group with the same rules and state, made at the first call.
    MatchingDirectiveGroup& full();
    const char16_t* className() const { return text; }
    const char16_t* method() const { return oneMethod ? text + classLength + 1 : nullptr; }

    const char16_t* text;
    uint32_t number;
    uint16_t classLength;
    bool oneMethod;
    std::unique_ptr<char16_t[]> name;
    std::unique_ptr<MatchingDirectiveGroup> changed;
};
