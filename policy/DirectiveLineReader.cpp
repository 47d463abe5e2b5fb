#include "policy/DirectiveLineReader.h"

#include <sys/stat.h>

#include <cstring>

#include <deque>
#include <memory>
#include <new>
#include <vector>

#include "platform/HeldLock.h"
#include "platform/Synchronization.h"
#include "platform/TextConversion.h"
#include "platform/Threads.h"
#include "runtime/CorErrors.h"

namespace {

// Longest line of a directive file, terminator included; a longer line
// arrives in pieces.
constexpr int kLineSize = 2048;
// A file from this size on is read on a thread of its own: below it, the
// thread would cost more than it saves.
constexpr off_t kThreadedFrom = off_t{1} << 20;
// Lines handed over at once, and how many batches may wait to be applied.
constexpr size_t kBatchLines = 1024;
constexpr size_t kBatchesWaiting = 4;
// Room reserved for a batch's text: lines of a generated file are short.
constexpr size_t kBatchUnits = kBatchLines * 64;

// Lines read one after another: their text in one block, which no longer
// moves once the lines are taken apart.
struct Batch {
    std::vector<char16_t> text;
    std::vector<size_t> starts;
    std::vector<DirectiveLine> lines;
};

// A batch to fill: one given back, its memory in use already, or a new one.
std::unique_ptr<Batch> emptied(std::unique_ptr<Batch> batch) {
    if (batch == nullptr) {
        batch = std::make_unique<Batch>();
        batch->text.reserve(kBatchUnits);
    }
    batch->text.clear();
    batch->starts.clear();
    batch->lines.clear();
    return batch;
}

// Batches on their way from the reading thread to the applying one. Only one
// of the two can wait at a time (the reader for room, the taker for a batch),
// so one wake-up always reaches the one waiting.
class Handover {
public:
    Handover() {
        InitializeCriticalSection(&lock);
        InitializeConditionVariable(&changed);
    }
    ~Handover() {
        pthread_cond_destroy(&changed);
        DeleteCriticalSection(&lock);
    }
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

    // Waits for room; false once the taker has stopped.
    bool put(std::unique_ptr<Batch>& batch) {
        HeldLock held(&lock);
        while (!stopped && waiting.size() >= kBatchesWaiting) SleepConditionVariableCS(&changed, &lock, -1);
        if (stopped) return false;
        waiting.push_back(std::move(batch));
        WakeConditionVariable(&changed);
        return true;
    }
    // The next batch; null once the reader has finished and every batch is taken.
    std::unique_ptr<Batch> take() {
        HeldLock held(&lock);
        while (!finished && waiting.empty()) SleepConditionVariableCS(&changed, &lock, -1);
        if (waiting.empty()) return nullptr;
        std::unique_ptr<Batch> batch = std::move(waiting.front());
        waiting.pop_front();
        WakeConditionVariable(&changed);
        return batch;
    }
    // A batch applied, for the reader to fill again.
    void giveBack(std::unique_ptr<Batch> batch) {
        HeldLock held(&lock);
        try {
            spare.push_back(std::move(batch));
        } catch (const std::bad_alloc&) {
            // The batch is freed, and the reader makes a new one.
        }
    }
    // A batch given back, if any.
    std::unique_ptr<Batch> takeBack() {
        HeldLock held(&lock);
        if (spare.empty()) return nullptr;
        std::unique_ptr<Batch> batch = std::move(spare.back());
        spare.pop_back();
        return batch;
    }
    void finish(HRESULT status) {
        HeldLock held(&lock);
        finished = true;
        readStatus = status;
        WakeConditionVariable(&changed);
    }
    void stop() {
        HeldLock held(&lock);
        stopped = true;
        WakeConditionVariable(&changed);
    }
    HRESULT status() {
        HeldLock held(&lock);
        return readStatus;
    }

private:
    CRITICAL_SECTION lock;
    CONDITION_VARIABLE changed;
    std::deque<std::unique_ptr<Batch>> waiting;  // guarded by lock
    std::vector<std::unique_ptr<Batch>> spare;   // guarded by lock
    bool finished = false;                       // guarded by lock
    bool stopped = false;                        // guarded by lock
    HRESULT readStatus = S_OK;                   // guarded by lock
};

bool isLargeFile(FILE* stream) {
    struct stat facts {};
    return fstat(fileno(stream), &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_size >= kThreadedFrom;
}

HRESULT readInTurn(FILE* stream, const DirectiveLineReader::Apply& apply) {
    char bytes[kLineSize];
    char16_t line[kLineSize];
    HRESULT status = S_OK;
    while (SUCCEEDED(status) && fgets(bytes, kLineSize, stream) != nullptr) {
        CopyUtf8To16(bytes, strnlen(bytes, kLineSize - 1), line);
        DirectiveLine parsed;
        if (DirectiveKeywords::parse(line, parsed)) status = apply(parsed);
    }
    return status;
}

// The reading thread: batch after batch until the stream ends or the taker
// stops.
void readBatches(FILE* stream, Handover& handover) {
    HRESULT status = S_OK;
    try {
        char line[kLineSize];
        for (bool more = true; more;) {
            std::unique_ptr<Batch> batch = emptied(handover.takeBack());
            // Each line widened straight into the batch.
            while (batch->starts.size() < kBatchLines && (more = fgets_unlocked(line, kLineSize, stream) != nullptr)) {
                const size_t start = batch->text.size();
                const size_t length = strnlen(line, kLineSize - 1);
                batch->starts.push_back(start);
                batch->text.resize(start + length + 1);
                batch->text.resize(start + CopyUtf8To16(line, length, batch->text.data() + start) + 1);
            }
            for (size_t i = 0; i < batch->starts.size(); ++i) {
                const size_t start = batch->starts[i];
                const size_t end = i + 1 < batch->starts.size() ? batch->starts[i + 1] : batch->text.size();
                DirectiveLine parsed;
                if (DirectiveKeywords::parse(batch->text.data() + start, end - start - 1, parsed)) {
                    batch->lines.push_back(parsed);
                }
            }
            if (!batch->lines.empty() && !handover.put(batch)) {
                return;
            }
        }
    } catch (...) {
        // Nothing may leave the thread; the lines handed over stand.
        status = E_FAIL;
    }
    handover.finish(status);
}

// What the reading thread is given.
struct ReadJob {
    FILE* stream;
    Handover& handover;
};

DWORD runReader(LPVOID argument) {
    const ReadJob& job = *static_cast<ReadJob*>(argument);
    readBatches(job.stream, job.handover);
    return 0;
}

HRESULT readOnThread(FILE* stream, const DirectiveLineReader::Apply& apply) {
    Handover handover;
    ReadJob job{stream, handover};
    const ScopedThread reader(runReader, &job);
    if (!reader.started()) {
        // No thread to be had: the stream is read here.
        return readInTurn(stream, apply);
    }
    // However the applying ends, the reader is told to stop before it is
    // waited for.
    const struct Stopping {
        Handover& handover;
        ~Stopping() { handover.stop(); }
    } stopping{handover};
    HRESULT status = S_OK;
    while (SUCCEEDED(status)) {
        std::unique_ptr<Batch> batch = handover.take();
        if (batch == nullptr) {
            return FAILED(handover.status()) ? handover.status() : status;
        }
        for (const DirectiveLine& line : batch->lines) {
            status = apply(line);
            if (FAILED(status)) break;
        }
        handover.giveBack(std::move(batch));
    }
    return status;
}

}  // namespace

HRESULT DirectiveLineReader::read(FILE* stream, const Apply& apply) {
    return isLargeFile(stream) ? readOnThread(stream, apply) : readInTurn(stream, apply);
}
