// What the hub's unit tests reach inside the callback object: the engine,
// which they replace by a recording one after the start-up has made the real
// one, the controller, the context, and the ReJIT queues.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "hub/ProfilerCallback.h"
#include "runtime/Guids.h"

class ProfilerCallbackTestAccess {
public:
    // A fresh object, not yet initialized, holding one reference.
    static ProfilerCallback* create() {
        void* out = nullptr;
        EXPECT_EQ(ProfilerCallback::CreateObject(IID_ICorProfilerCallback2, &out), S_OK);
        return static_cast<ProfilerCallback*>(static_cast<ICorProfilerCallback4*>(out));
    }
    // The callback owns the engine from here on; the one it had is deleted.
    static void replaceEngine(ProfilerCallback& callback, IProfiler* engine) { callback.profiler = engine; }
    // The callback owns the context from here on.
    static void replaceContext(ProfilerCallback& callback, IMetaDataContext* context) {
        callback.metaDataContext = context;
    }
    static IMetaDataContext* context(ProfilerCallback& callback) { return callback.metaDataContext; }
    static IProfilerController* controller(ProfilerCallback& callback) { return callback.controller; }
    static const std::vector<rejit_requests>& rejitRequests(ProfilerCallback& callback) {
        return callback.rejitRequests;
    }
    static const std::vector<rejit_requests>& revertRequests(ProfilerCallback& callback) {
        return callback.revertRequests;
    }
    // The callback holds a reference from here on.
    static void replaceInfo(ProfilerCallback& callback, ICorProfilerInfo* info) {
        info->AddRef();
        callback.profilerInfo = info;
    }
    static size_t classIdentifierCount(ProfilerCallback& callback) { return callback.classIdentifiers.size(); }
};
