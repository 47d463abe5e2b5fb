// The code that a trace call itself runs through. A rewritten method there
// would call the trace functions from inside a trace call, and the first one
// would never return: the shim and the agent, and the core library's helpers
// that the runtime calls on its own for static bases, class initialisation,
// casts, stubs and exception dispatch.
#pragma once

class TracePath {
public:
    // Whether a method of this class must keep its own body. coreLibrary says
    // that the class belongs to the core library.
    static bool contains(const char16_t* assembly, const char16_t* className, bool coreLibrary);
};
