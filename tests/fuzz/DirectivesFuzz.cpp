// A directive file of any content.
#include <cstdint>
#include <cstdio>
#include <memory>

#include "policy/IDirectiveController.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static FILE* log = fopen("/dev/null", "w");
    FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (stream == nullptr) return 0;
    std::unique_ptr<IDirectiveController> directives(IDirectiveController::newInstance(log));
    if (directives != nullptr) directives->readDirectives(stream);
    fclose(stream);
    return 0;
}
