#include "platform/Threads.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "platform/Handles.h"

namespace {

DWORD countUp(LPVOID counter) {
    ++*static_cast<int*>(counter);
    return 0;
}

// In a child: 0 if CreateThread gives no handle once the address space is all
// but used up, 1 if it gives one; 2 if the limit cannot be set, 3 if it is not
// enforced here (an emulator keeps such limits to itself). Unused under a
// sanitizer.
[[maybe_unused]] int createWithoutRoom() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t room = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (rlim_t{1} << 20);
    const rlimit limit{room, room};
    if (pages == 0 || setrlimit(RLIMIT_AS, &limit) != 0) return 2;
    if (mmap(nullptr, size_t{16} << 20, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED) return 3;
    int unused = 0;
    return CreateThread(nullptr, 0, countUp, &unused, 0, nullptr) == nullptr ? 0 : 1;
}

}  // namespace

// A thread runs and is waited for; where no thread can be had (here: no
// address space left for its stack) there is no handle, so that nobody waits
// for a thread that never ran.
TEST(Threads, ThreadRunsOrNoHandleIsGiven) {
    // First, and in a fresh process: a thread's stack, once freed, would be
    // used again without asking for room. Not under a sanitizer, whose own
    // threads need room too.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        std::_Exit(createWithoutRoom()),
        [](int status) { return WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 3); }, "");
#endif
    int counter = 0;
    HANDLE thread = CreateThread(nullptr, 0, countUp, &counter, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    JoinThread(thread);
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_EQ(counter, 1);
}
