// A set of 16-bit strings that owns its text and is looked up with plain
// pointers, so that a test against a name from the metadata context builds no
// string object.
//
// Members are ordered by wcsless, under which a string and each of its
// extensions are one key: a set holding "N.C" answers yes for "N.CX" and for
// "N". The empty string would be equal to every key under that ordering and
// break the tree; it is kept beside the tree and equals only itself.
//
// A directive file can make hundreds of thousands of groups, each with a dozen
// sets that mostly stay empty: the tree is made at the first insertion.
//
// Filled while directives load, then only read; no lock.
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>

#include "platform/Text16.h"

class WCharSet {
public:
    // Copies text; a key equal to a member leaves the set as it is.
    void insert(const char16_t* text);
    bool contains(const char16_t* text) const;
    // What contains answers for a set that holds member alone.
    static bool agrees(const char16_t* member, const char16_t* text);
    size_t size() const { return (items ? items->size() : single ? 1 : 0) + (holdsEmpty ? 1 : 0); }
    bool empty() const { return size() == 0; }
    void clear();

    // Calls visit(const char16_t*) for each member in order, the empty one first.
    template <typename Visit>
    void forEach(Visit visit) const {
        if (holdsEmpty) {
            visit(u"");
        }
        if (single) {
            visit(static_cast<const char16_t*>(single.get()));
        }
        if (items) {
            for (const std::u16string& item : *items) {
                visit(item.c_str());
            }
        }
    }

private:
    // A set of one member keeps it by itself. The tree is made at the second
    // member, from the two in the order they came: the tree it would have
    // been from the start.
    std::unique_ptr<char16_t[]> single;
    std::unique_ptr<std::set<std::u16string, wcsless>> items;
    bool holdsEmpty = false;
};
