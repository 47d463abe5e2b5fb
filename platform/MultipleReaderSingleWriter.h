// A reader-writer lock in which a waiting writer goes first: it holds the entry
// lock while it waits, so that new readers queue behind it.
//
// Neither mode is re-entrant across the other: a reader that asks to write waits
// for itself. The writer waits on an event that readers set when the last of
// them leaves; events of this platform keep no signalled state, so the writer
// waits in short slices and looks at the reader count after each.
#pragma once

#include "platform/CoreCLRPAL.h"

class MultipleReaderSingleWriter {
public:
    MultipleReaderSingleWriter();
    // Deletes both critical sections; the event is not closed.
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
    HANDLE readersGone;
    int readers;
};
