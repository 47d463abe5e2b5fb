// Method matchers by class string, for the method-of-class rules of the skip
// filter. Keys are class strings, plain or "[assembly]"-qualified.
#pragma once

#include <memory>

#include "policy/IMethodMatcher.h"
#include "policy/WCharMap.h"

class ClassMethodMatcherMap : public WCharMap<std::unique_ptr<IMethodMatcher>> {
public:
    // True if some key begins with '['; refreshed at the first call after the
    // map changed size.
    bool hasQualified();

private:
    int countedSize = -1;
    int qualifiedCount = -1;
};
