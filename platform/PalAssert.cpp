// Reports through the C library's assert even where NDEBUG hides it.
#undef NDEBUG
#include <cassert>

#include "platform/PalAssert.h"

void PalAssertFailed(const char* expression, const char* file, unsigned int line, const char* function) {
    __assert_fail(expression, file, line, function);
}
