// The object behind a thread handle.
#pragma once

#include <pthread.h>

#include "platform/HandleInternal.h"

class ThreadHandleInternal : public HandleInternal {
public:
    pthread_t thread = 0;
};
