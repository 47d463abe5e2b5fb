#include "policy/WCharSet.h"

void WCharSet::insert(const char16_t* text) {
    if (text == nullptr) {
        return;
    }
    if (*text == 0) {
        holdsEmpty = true;
        return;
    }
    if (!items) {
        items = std::make_unique<std::set<std::u16string, wcsless>>();
    }
    if (items->find(text) == items->end()) {
        items->emplace(text);
    }
}

bool WCharSet::contains(const char16_t* text) const {
    if (text == nullptr) {
        return false;
    }
    if (*text == 0) {
        return holdsEmpty;
    }
    return items && items->find(text) != items->end();
}

void WCharSet::clear() {
    items.reset();
    holdsEmpty = false;
}
