#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <vector>

#include "platform/MemoryPages.h"

// Populating a fresh mapping maps the pages wholly inside the range, and only
// those, without a write to any of them.
TEST(MemoryPages, PopulatingMapsTheWholePagesInsideTheRange) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t pages = 64;
    auto* memory = static_cast<char*>(mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    std::vector<unsigned char> resident(pages);
    ASSERT_EQ(mincore(memory, pages * page, resident.data()), 0);
    EXPECT_EQ(resident[1] & 1, 0);
    const bool populated = MemoryPages::populate(memory + page / 2, (pages - 1) * page);
    ASSERT_EQ(mincore(memory, pages * page, resident.data()), 0);
    munmap(memory, pages * page);
    if (!populated) GTEST_SKIP() << "this kernel cannot populate memory ahead of use";
    const std::vector<bool> found = {(resident[0] & 1) != 0, (resident[1] & 1) != 0, (resident[pages - 2] & 1) != 0,
                                     (resident[pages - 1] & 1) != 0};
    EXPECT_EQ(found, (std::vector<bool>{false, true, true, false}));
}
