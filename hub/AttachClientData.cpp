#include "hub/AttachClientData.h"

#include <cstring>

namespace {
constexpr unsigned int kBufferBytes = 16384;
}  // namespace

std::vector<std::pair<std::string, std::string>> AttachClientData::pairs(const void* data, unsigned int size) {
    std::vector<std::pair<std::string, std::string>> result;
    if (data == nullptr || size == 0) {
        return result;
    }
    std::string buffer(kBufferBytes, '\0');
    std::memcpy(buffer.data(), data, size < kBufferBytes ? size : kBufferBytes - 1);
    char* context = nullptr;
    for (char* key = strtok_r(buffer.data(), "=", &context); key != nullptr; key = strtok_r(nullptr, "=", &context)) {
        char* value = strtok_r(nullptr, "\n", &context);
        if (value == nullptr) {
            break;
        }
        result.emplace_back(key, value);
    }
    return result;
}

std::string AttachClientData::text(const void* data, unsigned int size) {
    if (data == nullptr || size == 0) {
        return "";
    }
    const char* bytes = static_cast<const char*>(data);
    return std::string(bytes, strnlen(bytes, size));
}
