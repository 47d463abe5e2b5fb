#include "policy/DirectiveLineReader.h"

#include <sys/stat.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <exception>
#include <thread>
#include <vector>

#include "platform/File16.h"
#include "platform/Text16.h"
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

// Batches on their way from the reading thread to the applying one.
class Handover {
public:
    // Waits for room; false once the taker has stopped.
    bool put(std::unique_ptr<Batch> batch) {
        std::unique_lock<std::mutex> held(lock);
        changed.wait(held, [&] { return stopped || waiting.size() < kBatchesWaiting; });
        if (stopped) return false;
        waiting.push_back(std::move(batch));
        changed.notify_all();
        return true;
    }
    // The next batch; null once the reader has finished and every batch is taken.
    std::unique_ptr<Batch> take() {
        std::unique_lock<std::mutex> held(lock);
        changed.wait(held, [&] { return finished || !waiting.empty(); });
        if (waiting.empty()) return nullptr;
        std::unique_ptr<Batch> batch = std::move(waiting.front());
        waiting.pop_front();
        changed.notify_all();
        return batch;
    }
    void finish(HRESULT status) {
        const std::lock_guard<std::mutex> held(lock);
        finished = true;
        readStatus = status;
        changed.notify_all();
    }
    // A batch applied, for the reader to fill again.
    void giveBack(std::unique_ptr<Batch> batch) {
        const std::lock_guard<std::mutex> held(lock);
        try {
            spare.push_back(std::move(batch));
        } catch (const std::bad_alloc&) {
            // The batch is freed, and the reader makes a new one.
        }
    }
    // A batch given back, if any.
    std::unique_ptr<Batch> takeBack() {
        const std::lock_guard<std::mutex> held(lock);
        if (spare.empty()) return nullptr;
        std::unique_ptr<Batch> batch = std::move(spare.back());
        spare.pop_back();
        return batch;
    }
    void stop() {
        const std::lock_guard<std::mutex> held(lock);
        stopped = true;
        changed.notify_all();
    }
    HRESULT status() {
        const std::lock_guard<std::mutex> held(lock);
        return readStatus;
    }

private:
    std::mutex lock;
    std::condition_variable changed;
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
    char16_t line[kLineSize];
    HRESULT status = S_OK;
    while (SUCCEEDED(status) && fgets_u16(line, kLineSize, stream) != nullptr) {
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
        char16_t line[kLineSize];
        for (bool more = true; more;) {
            std::unique_ptr<Batch> batch = emptied(handover.takeBack());
            while (batch->starts.size() < kBatchLines && (more = fgets_u16(line, kLineSize, stream) != nullptr)) {
                batch->starts.push_back(batch->text.size());
                batch->text.insert(batch->text.end(), line, line + strlen_u16(line) + 1);
            }
            for (size_t start : batch->starts) {
                DirectiveLine parsed;
                if (DirectiveKeywords::parse(batch->text.data() + start, parsed)) batch->lines.push_back(parsed);
            }
            if (!batch->lines.empty() && !handover.put(std::move(batch))) {
                return;
            }
        }
    } catch (...) {
        // Nothing may leave the thread; the lines handed over stand.
        status = E_FAIL;
    }
    handover.finish(status);
}

HRESULT readOnThread(FILE* stream, const DirectiveLineReader::Apply& apply) {
    Handover handover;
    std::thread reader;
    try {
        reader = std::thread(readBatches, stream, std::ref(handover));
    } catch (const std::exception&) {
        // No thread to be had: the stream is read here.
        return readInTurn(stream, apply);
    }
    // However the applying ends, the reader is stopped and waited for.
    struct Joined {
        Handover& handover;
        std::thread& reader;
        ~Joined() {
            handover.stop();
            reader.join();
        }
    } joined{handover, reader};
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
