// A properties file (the agent profile) of any content.
#include <cstdint>
#include <cstdio>
#include <memory>

#include "policy/IProperties.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (stream == nullptr) return 0;
    std::unique_ptr<IProperties> properties(IProperties::newInstance());
    properties->readProperties(stream);
    fclose(stream);
    return 0;
}
