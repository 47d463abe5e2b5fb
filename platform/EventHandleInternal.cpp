#include "platform/EventHandleInternal.h"

EventHandleInternal::EventHandleInternal() {
    pthread_cond_init(&condition, nullptr);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

EventHandleInternal::~EventHandleInternal() {
    pthread_mutex_destroy(&mutex);
    pthread_cond_destroy(&condition);
}
