#include "policy/WCharSet.h"

#include <cstring>

void WCharSet::insert(const char16_t* text) {
    if (text == nullptr) {
        return;
    }
    if (*text == 0) {
        holdsEmpty = true;
        return;
    }
    if (!items && !single) {
        const size_t length = strlen_u16(text);
        single = std::make_unique<char16_t[]>(length + 1);
        std::memcpy(single.get(), text, (length + 1) * sizeof(char16_t));
        return;
    }
    if (!items) {
        if (agrees(single.get(), text)) {
            return;
        }
        items = std::make_unique<std::set<std::u16string, wcsless>>();
        items->emplace(single.get());
        single.reset();
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
    if (single) {
        return agrees(single.get(), text);
    }
    return items && items->find(text) != items->end();
}

bool WCharSet::agrees(const char16_t* member, const char16_t* text) {
    if (text == nullptr) {
        return false;
    }
    if (*text == 0 || *member == 0) {
        return *text == *member;
    }
    // One key: one is a leading part of the other.
    for (; *member != 0 && *member == *text; ++member, ++text) {
    }
    return *member == 0 || *text == 0;
}

void WCharSet::clear() {
    single.reset();
    items.reset();
    holdsEmpty = false;
}
