// The class-line groups of a directive controller ("Anonymous_<n>") with
// their text, by number, which is also the order in which they were read.
//
// Contract: filled while directives load, then only read; no lock inside.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "policy/ClassLineGroup.h"
#include "policy/TextArena.h"

class ClassLineGroups {
public:
    // Longest name of an anonymous group, its terminating zero included.
    static constexpr size_t kNameSize = 24;
    // What every anonymous group's name begins with.
    static constexpr std::u16string_view kNamePrefix = u"Anonymous_";

    // "Anonymous_<number>" in name; its length.
    static size_t nameOf(uint32_t number, char16_t (&name)[kNameSize]);

    // A new group of that number, above every number so far, for a class
    // that is not blank and a method rule as written (empty: all methods). Null
    // for a class too long for the group's 16-bit offset: a line of a file is
    // far shorter, one given at run time need not be.
    ClassLineGroup* add(uint32_t number, std::u16string_view className, std::u16string_view method);
    // The group of that name, or null.
    ClassLineGroup* find(const char16_t* name);
    size_t size() const { return count; }

    // Calls visit with each group in the order of their names' code units
    // ("Anonymous_10" before "Anonymous_2").
    void inNameOrder(const std::function<void(ClassLineGroup*)>& visit);

private:
    static constexpr size_t kBlock = 1024;

    // The group at that index in the order of numbers.
    ClassLineGroup& at(size_t index);

    // A line names its class and method: 64 KB take several hundred lines.
    TextArena text{size_t{1} << 15};
    // Blocks of kBlock groups, each reserved once: a group never moves, as
    // the index points at it. All but the first, which a small file fills
    // page by page, are mapped whole as they are made (see MemoryPages).
    std::vector<std::vector<ClassLineGroup>> blocks;
    size_t count = 0;
};
