#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/MultipleReaderSingleWriter.h"

namespace {
// Long enough for a blocked thread to have reached its wait.
void settle() {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}
}  // namespace

TEST(MultipleReaderSingleWriter, ReadersShareTheLock) {
    MultipleReaderSingleWriter lock;
    lock.AcquireReadLock();
    std::atomic<bool> secondReaderIn{false};
    std::thread reader([&] {
        lock.AcquireReadLock();
        secondReaderIn = true;
        lock.ReleaseReadLock();
    });
    reader.join();
    EXPECT_TRUE(secondReaderIn);
    lock.ReleaseReadLock();
}

TEST(MultipleReaderSingleWriter, WriterWaitsForTheLastReader) {
    MultipleReaderSingleWriter lock;
    lock.AcquireReadLock();
    std::atomic<bool> writing{false};
    std::thread writer([&] {
        lock.AccquireWriteLock();
        writing = true;
        lock.ReleaseWriteLock();
    });
    settle();
    EXPECT_FALSE(writing);
    lock.ReleaseReadLock();
    writer.join();
    EXPECT_TRUE(writing);
}

TEST(MultipleReaderSingleWriter, ReadersWaitWhileAWriterHoldsTheLock) {
    MultipleReaderSingleWriter lock;
    lock.AccquireWriteLock();
    std::atomic<bool> reading{false};
    std::thread reader([&] {
        lock.AcquireReadLock();
        reading = true;
        lock.ReleaseReadLock();
    });
    settle();
    EXPECT_FALSE(reading);
    lock.ReleaseWriteLock();
    reader.join();
    EXPECT_TRUE(reading);
    // Free again for a writer once the reader left.
    lock.AccquireWriteLock();
    lock.ReleaseWriteLock();
}
