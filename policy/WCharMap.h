// A map keyed by 16-bit strings that owns its keys and is looked up with plain
// pointers. Keys are ordered by wcsless, so a key and each of its extensions
// are one key, as in WCharSet; the empty key is kept beside the tree and equals
// only itself.
//
// Filled while directives load, then only read; no lock.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "platform/Text16.h"

template <typename V>
class WCharMap {
public:
    // The value under key, value-initialised when absent; the key is copied.
    V& operator[](const char16_t* key) {
        if (*key == 0) {
            holdsEmpty = true;
            return emptyValue;
        }
        if (!map) {
            map = std::make_unique<std::map<std::u16string, V, wcsless>>();
        }
        auto found = map->find(key);
        if (found != map->end()) {
            return found->second;
        }
        return map->emplace(key, V{}).first->second;
    }

    // The value under key, or null when absent.
    V* find(const char16_t* key) {
        if (key == nullptr) {
            return nullptr;
        }
        if (*key == 0) {
            return holdsEmpty ? &emptyValue : nullptr;
        }
        if (!map) {
            return nullptr;
        }
        auto found = map->find(key);
        return found == map->end() ? nullptr : &found->second;
    }

    size_t size() const { return (map ? map->size() : 0) + (holdsEmpty ? 1 : 0); }
    bool empty() const { return size() == 0; }

    // Calls visit(const char16_t* key, V& value) for each entry in key order,
    // the empty key first.
    template <typename Visit>
    void forEach(Visit visit) {
        if (holdsEmpty) {
            visit(u"", emptyValue);
        }
        if (map) {
            for (auto& [key, value] : *map) {
                visit(key.c_str(), value);
            }
        }
    }

private:
    // Made at the first insertion, as most maps of a group stay empty.
    std::unique_ptr<std::map<std::u16string, V, wcsless>> map;
    bool holdsEmpty = false;
    V emptyValue{};
};
