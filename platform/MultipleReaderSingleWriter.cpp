#include "platform/MultipleReaderSingleWriter.h"

MultipleReaderSingleWriter::MultipleReaderSingleWriter() : readers(0) {
    InitializeCriticalSection(&stateLock);
    InitializeCriticalSection(&entryLock);
    InitializeConditionVariable(&readersGone);
}

MultipleReaderSingleWriter::~MultipleReaderSingleWriter() {
    pthread_cond_destroy(&readersGone);
    DeleteCriticalSection(&stateLock);
    DeleteCriticalSection(&entryLock);
}

void MultipleReaderSingleWriter::AcquireReadLock() {
    EnterCriticalSection(&entryLock);
    EnterCriticalSection(&stateLock);
    ++readers;
    LeaveCriticalSection(&stateLock);
    LeaveCriticalSection(&entryLock);
}

void MultipleReaderSingleWriter::ReleaseReadLock() {
    EnterCriticalSection(&stateLock);
    if (--readers == 0) {
        WakeConditionVariable(&readersGone);
    }
    LeaveCriticalSection(&stateLock);
}

void MultipleReaderSingleWriter::AccquireWriteLock() {
    EnterCriticalSection(&entryLock);
    EnterCriticalSection(&stateLock);
    // Only the writer that holds the entry lock waits here, so one wake-up serves.
    while (readers != 0) {
        SleepConditionVariableCS(&readersGone, &stateLock, -1);
    }
    LeaveCriticalSection(&entryLock);
}

void MultipleReaderSingleWriter::ReleaseWriteLock() {
    LeaveCriticalSection(&stateLock);
}
