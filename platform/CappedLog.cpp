#include "platform/CappedLog.h"

#include <atomic>
#include <mutex>

namespace {

struct Limited {
    std::atomic<FILE*> stream{nullptr};
    std::atomic<uint64_t> written{0};
};

constexpr unsigned int kSlots = 8;

struct Logs {
    std::mutex lock;  // for limit alone: writers only read the slots
    Limited slots[kSlots];
    unsigned int next = 0;
};

Logs& logs() {
    static Logs* shared = new Logs();  // lives as long as the process: logs are written at exit
    return *shared;
}

Limited* find(FILE* stream) {
    for (Limited& slot : logs().slots) {
        if (slot.stream.load(std::memory_order_acquire) == stream) return &slot;
    }
    return nullptr;
}

}  // namespace

void CappedLog::limit(FILE* stream, uint64_t written) {
    if (stream == nullptr) return;
    Logs& all = logs();
    std::lock_guard<std::mutex> held(all.lock);
    Limited* slot = find(stream);
    if (slot == nullptr) slot = find(nullptr);  // the slot of a closed log
    if (slot == nullptr) {
        slot = &all.slots[all.next];
        all.next = (all.next + 1) % kSlots;
    }
    slot->written.store(written, std::memory_order_relaxed);
    slot->stream.store(stream, std::memory_order_release);
}

bool CappedLog::admits(FILE* stream) {
    const Limited* slot = find(stream);
    return slot == nullptr || slot->written.load(std::memory_order_relaxed) < kLimit;
}

void CappedLog::wrote(FILE* stream, int bytes) {
    Limited* slot = bytes > 0 ? find(stream) : nullptr;
    if (slot == nullptr) return;
    const uint64_t before = slot->written.fetch_add(static_cast<uint64_t>(bytes), std::memory_order_relaxed);
    if (before < kLimit && before + static_cast<uint64_t>(bytes) >= kLimit) {
        fprintf(stream, "This log has reached its limit of %llu MB: nothing more is written to it.\n",
                static_cast<unsigned long long>(kLimit >> 20));
        fflush(stream);
    }
}

int CappedLog::close(FILE* stream) {
    if (stream == nullptr) return EOF;
    {
        Logs& all = logs();
        std::lock_guard<std::mutex> held(all.lock);
        if (Limited* slot = find(stream)) slot->stream.store(nullptr, std::memory_order_release);
    }
    return fclose(stream);
}
