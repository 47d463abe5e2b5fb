#include <gtest/gtest.h>

#include <cstdint>
#include <vector>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/MemoryPages.h"

// Populating a fresh mapping maps the pages wholly inside the range, and only
// those, without a write to any of them (the kernel's page map tells).
TEST(MemoryPages, PopulatingMapsTheWholePagesInsideTheRange) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t pages = 64;
    auto* memory = static_cast<char*>(mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    const int map = open("/proc/self/pagemap", O_RDONLY);
    ASSERT_GE(map, 0);
    const auto present = [&](size_t index) {
        uint64_t entry = 0;
        const off_t at = static_cast<off_t>(reinterpret_cast<uintptr_t>(memory + index * page) / page * sizeof(entry));
        return pread(map, &entry, sizeof(entry), at) == sizeof(entry) && (entry >> 63) != 0;
    };
    EXPECT_FALSE(present(1));
    const bool populated = MemoryPages::populate(memory + page / 2, (pages - 1) * page);
    const std::vector<bool> expected = {false, true, true, false};
    const std::vector<bool> found = {present(0), present(1), present(pages - 2), present(pages - 1)};
    close(map);
    munmap(memory, pages * page);
    if (!populated) GTEST_SKIP() << "this kernel cannot populate memory ahead of use";
    EXPECT_EQ(found, expected);
}
