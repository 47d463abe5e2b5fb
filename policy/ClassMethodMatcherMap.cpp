#include "policy/ClassMethodMatcherMap.h"

bool ClassMethodMatcherMap::hasQualified() {
    const int entries = static_cast<int>(size());
    if (countedSize != entries) {
        countedSize = entries;
        qualifiedCount = 0;
        forEach([this](const char16_t* key, const std::unique_ptr<IMethodMatcher>&) {
            if (key[0] == u'[') {
                ++qualifiedCount;
            }
        });
    }
    return qualifiedCount >= 1;
}
