#include "platform/MultipleReaderSingleWriter.h"

namespace {
constexpr DWORD kReaderWaitSliceMs = 10;
}

MultipleReaderSingleWriter::MultipleReaderSingleWriter() : readers(0) {
    InitializeCriticalSection(&stateLock);
    InitializeCriticalSection(&entryLock);
    readersGone = CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

MultipleReaderSingleWriter::~MultipleReaderSingleWriter() {
    DeleteCriticalSection(&stateLock);
    DeleteCriticalSection(&entryLock);
}

void MultipleReaderSingleWriter::AcquireReadLock() {
    EnterCriticalSection(&entryLock);
    EnterCriticalSection(&stateLock);
    ++readers;
    ResetEvent(readersGone);
    LeaveCriticalSection(&stateLock);
    LeaveCriticalSection(&entryLock);
}

void MultipleReaderSingleWriter::ReleaseReadLock() {
    EnterCriticalSection(&stateLock);
    if (--readers == 0) {
        SetEvent(readersGone);
    }
    LeaveCriticalSection(&stateLock);
}

void MultipleReaderSingleWriter::AccquireWriteLock() {
    EnterCriticalSection(&entryLock);
    for (;;) {
        EnterCriticalSection(&stateLock);
        if (readers == 0) {
            break;
        }
        LeaveCriticalSection(&stateLock);
        // Events keep no signalled state: a reader that leaves between the test
        // above and this wait would never wake us, so the wait is bounded and the
        // count is looked at again.
        WaitForSingleObject(readersGone, kReaderWaitSliceMs);
    }
    LeaveCriticalSection(&entryLock);
}

void MultipleReaderSingleWriter::ReleaseWriteLock() {
    LeaveCriticalSection(&stateLock);
}
