#include <gtest/gtest.h>

#include <vector>

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/MemoryPages.h"

namespace {

long faultsSoFar() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt;
}

// Minor faults taken by writing a byte into each page of a fresh mapping,
// populated first or not.
long faultsOfFirstWrites(bool populated, bool* mapped) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t bytes = 256 * page;
    auto* memory = static_cast<char*>(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (memory == MAP_FAILED) return -1;
    // Half a page on each side is not whole: it stays unmapped.
    *mapped = populated && MemoryPages::populate(memory + page / 2, bytes - page);
    const long before = faultsSoFar();
    for (size_t at = 0; at < bytes; at += page) memory[at] = 1;
    const long faults = faultsSoFar() - before;
    munmap(memory, bytes);
    return faults;
}

}  // namespace

TEST(MemoryPages, PopulatedPagesTakeNoFaultAtTheirFirstWrite) {
    bool mapped = false;
    const long plain = faultsOfFirstWrites(false, &mapped);
    const long populated = faultsOfFirstWrites(true, &mapped);
    if (!mapped) GTEST_SKIP() << "this kernel cannot populate memory ahead of use";
    EXPECT_GE(plain, 256);
    // The first and the last page were only partly inside.
    EXPECT_LE(populated, 4);

    std::vector<int> elements{1, 2, 3};
    MemoryPages::reserve(elements, 100000);
    EXPECT_GE(elements.capacity(), 100000u);
    EXPECT_EQ(elements, (std::vector<int>{1, 2, 3}));
    char small[16];
    EXPECT_FALSE(MemoryPages::populate(small, sizeof(small)));
}
