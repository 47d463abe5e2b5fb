// Code that is not ours, run between two rewrites of a benchmark as a
// runtime's compile runs between two rewrites in a process: a chain of jumps,
// one per cache line over two megabytes, which leaves the instruction caches,
// the branch target buffers and the code's page table entries holding its
// lines instead of the rewrite's. A data walk alone leaves the branch
// predictors trained. Even with both, a rewrite here still runs about twice as
// fast as in a process, where the runtime's compiles also push the module's
// metadata and the rewrite's own data out of the last-level cache.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

class ForeignCode {
public:
    ForeignCode() {
        void* room = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (room == MAP_FAILED) return;
        auto* bytes = static_cast<unsigned char*>(room);
        for (size_t at = 0; at + kLine < kSize; at += kLine) writeJump(bytes + at);
        writeReturn(bytes + kSize - kLine);
        __builtin___clear_cache(reinterpret_cast<char*>(bytes), reinterpret_cast<char*>(bytes + kSize));
        if (mprotect(room, kSize, PROT_READ | PROT_EXEC) != 0) {
            munmap(room, kSize);
            return;
        }
        code = room;
    }
    ~ForeignCode() {
        if (code != nullptr) munmap(code, kSize);
    }
    ForeignCode(const ForeignCode&) = delete;
    ForeignCode& operator=(const ForeignCode&) = delete;

    bool ready() const { return code != nullptr; }
    void run() const { reinterpret_cast<void (*)()>(code)(); }

private:
    static constexpr size_t kSize = 2 << 20;
    static constexpr size_t kLine = 64;

    // A jump to the start of the next line.
    static void writeJump(unsigned char* at) {
#if defined(__x86_64__)
        at[0] = 0xEB;  // jmp rel8, from the end of its two bytes
        at[1] = static_cast<unsigned char>(kLine - 2);
#elif defined(__aarch64__)
        const uint32_t branch = 0x14000000u | static_cast<uint32_t>(kLine / 4);  // b, in words
        std::memcpy(at, &branch, sizeof branch);
#endif
    }
    static void writeReturn(unsigned char* at) {
#if defined(__x86_64__)
        at[0] = 0xC3;
#elif defined(__aarch64__)
        const uint32_t ret = 0xD65F03C0u;
        std::memcpy(at, &ret, sizeof ret);
#endif
    }

    void* code = nullptr;
};
