// A reader-writer lock in which a waiting writer goes first: it holds the entry
// lock while it waits, so that new readers queue behind it.
//
// Neither mode is re-entrant across the other: a reader that asks to write waits
// for itself. The writer waits on a condition of the state lock, which the last
// reader to leave signals: the platform's events keep no signalled state and
// keep their lock after a timed-out wait, which would stop the next writer.
#pragma once

#include "platform/CoreCLRPAL.h"

class MultipleReaderSingleWriter {
public:
    MultipleReaderSingleWriter();
    // Deletes both critical sections and the condition.
    ~MultipleReaderSingleWriter();
    MultipleReaderSingleWriter(const MultipleReaderSingleWriter&) = delete;
    MultipleReaderSingleWriter& operator=(const MultipleReaderSingleWriter&) = delete;

    void AcquireReadLock();
    void ReleaseReadLock();
    // Returns with the state lock held, readers at 0.
    void AccquireWriteLock();
    void ReleaseWriteLock();

private:
    CRITICAL_SECTION stateLock;
    CRITICAL_SECTION entryLock;
    CONDITION_VARIABLE readersGone;
    int readers;
};
