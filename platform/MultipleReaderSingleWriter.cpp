#include "platform/MultipleReaderSingleWriter.h"

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
        WaitForSingleObject(readersGone, INFINITE);
    }
    LeaveCriticalSection(&entryLock);
}

void MultipleReaderSingleWriter::ReleaseWriteLock() {
    LeaveCriticalSection(&stateLock);
}
