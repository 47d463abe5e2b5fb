#include "policy/WCharSet.h"

void WCharSet::insert(const char16_t* text) {
    if (text == nullptr) {
        return;
    }
    if (*text == 0) {
        holdsEmpty = true;
        return;
    }
    if (items.find(text) != items.end()) {
        return;
    }
    // Nodes of a std::set never move, so the copy's address stays valid.
    const std::u16string& copy = *storage.insert(std::u16string(text)).first;
    items.insert(copy.c_str());
}

bool WCharSet::contains(const char16_t* text) const {
    if (text == nullptr) {
        return false;
    }
    if (*text == 0) {
        return holdsEmpty;
    }
    return items.find(text) != items.end();
}

void WCharSet::clear() {
    items.clear();
    storage.clear();
    holdsEmpty = false;
}
