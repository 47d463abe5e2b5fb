// The ReJIT service thread: wakes once a second, or when woken for a reload,
// until the callback object is torn down. The rounds of queued requests run on
// it.
#include "hub/ProfilerCallback.h"
#include "platform/FormattedOutput.h"
#include "platform/Synchronization.h"
#include "platform/Threads.h"

namespace {
constexpr DWORD kServiceIntervalMs = 1000;
}  // namespace

DWORD ProfilerCallback::ServiceReJITThreadFunction(LPVOID parameter) {
    auto* callback = static_cast<ProfilerCallback*>(parameter);
    while (!callback->serviceStopping) {
        if (fpc == nullptr && callback->nativeLog != nullptr) {
            fprintf_8(callback->nativeLog, "*** fpc is NULL\n");
        }
        try {
            callback->ServiceReJITRequests();
        } catch (...) {
            // The round is lost; the next one comes a second later.
        }
        WaitForSingleObject(callback->serviceWakeEvent, kServiceIntervalMs);
    }
    // From here on the object may be gone: nothing of it is touched again.
    callback->serviceThreadDone = true;
    return 0;
}

void ProfilerCallback::logNoServiceThread() {
    if (nativeLog != nullptr) {
        fprintf_8(nativeLog,
                  "No thread to be had for the ReJIT service: requests to instrument again are not served\n");
        fflush(nativeLog);
    }
}

void ProfilerCallback::stopServiceThread() {
    if (serviceThread == nullptr) {
        return;
    }
    // A wake-up that finds the thread between two waits is lost: signal until
    // it has left, so that it never waits on an event that is about to close.
    serviceStopping = true;
    while (!serviceThreadDone) {
        SetEvent(serviceWakeEvent);
        Sleep(1);
    }
    JoinThread(serviceThread);
    CloseHandle(serviceThread);
    serviceThread = nullptr;
}
