// The object behind an event handle: a condition variable and a recursive mutex.
// The event has no signalled state.
#pragma once

#include <pthread.h>

#include "platform/HandleInternal.h"

class EventHandleInternal : public HandleInternal {
public:
    EventHandleInternal();
    ~EventHandleInternal() override;
    EventHandleInternal(const EventHandleInternal&) = delete;
    EventHandleInternal& operator=(const EventHandleInternal&) = delete;

    pthread_cond_t condition;
    pthread_mutex_t mutex;
};
