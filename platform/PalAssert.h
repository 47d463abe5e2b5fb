// Assertions of the platform layer. They stay active in every build type: an
// argument this layer does not support ends the process instead of being
// half-served. The message is the one of the C library's own assert.
#pragma once

#define PAL_STRINGIFY_EXPANDED(x) #x
#define PAL_STRINGIFY(x) PAL_STRINGIFY_EXPANDED(x)

#define PAL_ASSERT(expr)                                                      \
    (static_cast<bool>(expr)                                                  \
         ? void(0)                                                            \
         : PalAssertFailed(PAL_STRINGIFY(expr), __FILE__, __LINE__, __PRETTY_FUNCTION__))

[[noreturn]] void PalAssertFailed(const char* expression, const char* file, unsigned int line,
                                  const char* function);
