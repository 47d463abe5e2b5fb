// Memory that is about to be filled, mapped in one call. A page touched for
// the first time costs a fault of its own, and on virtual machines such a
// fault costs ten times what mapping the same page in a batch does: a large
// directive file's groups and index fault in thousands of pages at start-up.
//
// Stateless; safe on any thread.
#pragma once

#include <cstddef>
#include <vector>

class MemoryPages {
public:
    // Maps the whole pages inside [start, start + bytes), writable, as the
    // first write would. False where nothing was mapped: no whole page inside,
    // a kernel older than 5.14 or an emulator, whose pages then fault in as
    // they are used.
    static bool populate(void* start, size_t bytes);

    // Reserves room for count elements and maps what the reserve added.
    template <typename T>
    static void reserve(std::vector<T>& elements, size_t count) {
        elements.reserve(count);
        populate(elements.data() + elements.size(), (elements.capacity() - elements.size()) * sizeof(T));
    }
};
