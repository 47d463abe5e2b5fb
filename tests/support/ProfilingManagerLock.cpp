// The process gate's lock, which the callback hub owns and initialises. Test
// programs that link the gate without the hub take this one, recursive from
// the start; in the support archive it is linked only where nothing else
// defines the lock.
#include "platform/Win32Types.h"

CRITICAL_SECTION gProfilingManagerLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
