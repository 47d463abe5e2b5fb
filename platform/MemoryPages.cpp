#include "platform/MemoryPages.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

bool MemoryPages::populate(void* start, size_t bytes) {
    // Arm64 kernels may use pages of 16 or 64 KB.
    static const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t first = (reinterpret_cast<uintptr_t>(start) + page - 1) & ~(page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(start) + bytes) & ~(page - 1);
    if (end <= first || madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE) != 0) {
        return false;
    }
    // A user-mode emulator answers the request without carrying it out.
    unsigned char resident = 0;
    return mincore(reinterpret_cast<void*>(first), page, &resident) == 0 && (resident & 1) != 0;
}
