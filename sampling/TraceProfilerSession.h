// The records of a sampling session: one entry of the session table, and the
// counted frames that its snapshots merge into.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "runtime/CorTypes.h"

// A frame at one place of a stack: two snapshots with the same function, caller
// and depth count as the same sample.
struct trace_profiler_sample_key {
    FunctionID function;
    FunctionID parent;  // 0 at the outermost recorded frame
    int depth;          // 1 at the outermost recorded frame

    bool operator==(const trace_profiler_sample_key& other) const {
        return function == other.function && parent == other.parent && depth == other.depth;
    }
};

// Only the function is hashed: the parent and the depth of one function vary
// little, and its frames then share a bucket.
template <>
struct std::hash<trace_profiler_sample_key> {
    size_t operator()(const trace_profiler_sample_key& key) const { return 0xDEADBEEFUL ^ key.function; }
};

struct trace_profiler_sample {
    FunctionID function;
    FunctionID parent;
    int depth;
    unsigned int count;  // snapshots that had this frame at this place
};

struct trace_profiler_session {
    ModuleID module = 0;           // method session: the method's module; 0 for a thread session
    mdMethodDef method = 0;        // method session: its token
    int nativeThread = 0;          // thread session: the kernel's thread number; 0 for a method session
    int sampleLimit = 0;           // above 0: stops after this many successful snapshots
    int index = -1;                // place in the table; -1 once closed
    FunctionID rootFunction = 0;   // method session: where walks stop, once known
    ThreadID thread = 0;           // the managed thread sampled, once known
    bool sampling = false;
    unsigned int sampleCount = 0;  // snapshots attempted
    unsigned int failedCount = 0;  // snapshots that failed
    std::vector<trace_profiler_sample> samples;  // in order of first appearance
    std::unordered_map<trace_profiler_sample_key, unsigned long> sampleIndex;
};
