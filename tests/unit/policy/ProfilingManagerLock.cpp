// The controller reaches the process gate, whose lock the callback hub owns
// and initialises; the policy tests link no hub, so it lives here, recursive
// from the start.
#include "platform/Win32Types.h"

CRITICAL_SECTION gProfilingManagerLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
