// The class test of the candidates that the group index found for a class.
// Groups that take their classes by one name alone (IDirectiveGroup::soleClass)
// and were filed under the same name answer alike: the first of them is asked,
// the others get its answer. A generated directive file names one class in
// thousands of lines.
//
// Contract: one instance for one class; no lock inside.
#pragma once

#include <utility>
#include <vector>

#include "policy/IDirectiveGroup.h"

class FiledAnswers {
public:
    // What ask(group) answers; name is the one the index gave with the group.
    template <typename Ask>
    bool answer(IDirectiveGroup* group, const char16_t* name, Ask ask) {
        if (name == nullptr || group->soleClass().empty()) {
            return ask(group);
        }
        for (const auto& [known, answered] : answers) {
            if (known == name) return answered;
        }
        const bool answered = ask(group);
        // A class that agrees with many names is asked name by name past the limit.
        if (answers.size() < kLimit) answers.emplace_back(name, answered);
        return answered;
    }

private:
    static constexpr size_t kLimit = 64;

    std::vector<std::pair<const char16_t*, bool>> answers;
};
