// Class strings and the set that holds them.
//
// A class is written plainly ("N.C") or with its assembly in brackets in front
// ("[A]N.C"); both are stored as written. A lookup tries the plain name and,
// only when the set holds at least one bracketed entry, the bracketed form too.
#pragma once

#include <string>
#include <string_view>

#include "metadata/IMetaDataContext.h"
#include "policy/WCharSet.h"

class ClassSet : private WCharSet {
public:
    void insert(const char16_t* text);
    void clear();
    using WCharSet::contains;
    using WCharSet::empty;
    using WCharSet::forEach;
    using WCharSet::size;
    // True if some member begins with '['.
    bool hasQualified() const { return anyQualified; }
    // False only when no member can name a class of this assembly: every
    // member is bracketed and none agrees with "[assembly]" under the set's
    // prefix ordering.
    bool mayHoldClassOf(const char16_t* assembly) const;

private:
    // Kept as members come: a key that agrees with a member shares its first
    // unit, so a member turned away changes neither. They sit in the base's
    // tail padding, and a class matcher's flag after them: groups come by the
    // hundred thousand.
    bool anyQualified = false;
    bool anyPlain = false;
};

// True for "[A]X": a leading '[', a ']' and at least one unit behind it.
bool isClassWithAssembly(const char16_t* s);

// "[assembly]className", or className alone for a null or empty assembly.
std::u16string makeFullySpecifiedClassString(const char16_t* assembly, const char16_t* className);
// The same text in buffer, without allocating; a null view when it does not
// fit in capacity units.
std::u16string_view qualifiedName(const char16_t* assembly, const char16_t* className, char16_t* buffer,
                                  size_t capacity);

// "[assembly]className" cut to the buffer, as the sets look it up; its length.
size_t qualifiedKey(const char16_t* assembly, const char16_t* className,
                    char16_t (&buffer)[IMetaDataContext::kNameSize]);

// className is a member, or "[assembly]className" is, the latter tried only
// if the set holds a bracketed entry.
bool findInClassSets(ClassSet& set, const char16_t* assembly, const char16_t* className);
// What findInClassSets and ClassSet::mayHoldClassOf answer for a set that
// holds member alone, a class that is not blank.
bool classAgrees(const char16_t* member, const char16_t* assembly, const char16_t* className);
bool mayNameClassOf(const char16_t* member, const char16_t* assembly);
