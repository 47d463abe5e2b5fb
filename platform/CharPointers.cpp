#include "platform/CharPointers.h"

#include <cstring>

CharPointers::~CharPointers() {
    for (char* p : pointers) {
        delete[] p;
    }
}

char* CharPointers::Add(const std::string& text) {
    auto* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    pointers.push_back(copy);
    return copy;
}
