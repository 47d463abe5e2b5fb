#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/MemoryPages.h"

// Writing into each page of a fresh mapping faults once a page, unless the
// pages were populated first: then only the two pages partly inside do.
TEST(MemoryPages, PopulatedPagesTakeNoFaultAtTheirFirstWrite) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t bytes = 256 * page;
    long faults[2] = {};
    for (bool populated : {false, true}) {
        auto* memory =
            static_cast<char*>(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        ASSERT_NE(memory, MAP_FAILED);
        if (populated && !MemoryPages::populate(memory + page / 2, bytes - page)) {
            munmap(memory, bytes);
            GTEST_SKIP() << "this kernel cannot populate memory ahead of use";
        }
        rusage before{}, after{};
        getrusage(RUSAGE_THREAD, &before);
        for (size_t at = 0; at < bytes; at += page) memory[at] = 1;
        getrusage(RUSAGE_THREAD, &after);
        faults[populated] = after.ru_minflt - before.ru_minflt;
        munmap(memory, bytes);
    }
    EXPECT_GE(faults[false], 256);
    EXPECT_LE(faults[true], 4);
}
