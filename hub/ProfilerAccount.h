// The profiler's own account of a process: how many methods it saw, selected
// and rewrote, why it refused the others, how long its callbacks took by
// phase, and how its ReJIT requests ended. Counters only: cheap enough to be
// always on. Written as one block to the native log at shutdown, and on
// demand before each hot reload of the directives.
//
// Threads: the counters are atomic; the refusal reasons are counted on the
// compile path, under the hub's profiler lock, which write() also needs.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "runtime/CorTypes.h"

class ProfilerAccount {
public:
    // The log lines of the rewrites and their flushes have a phase of their
    // own: each flush is a write to the file system. The runtime asks before
    // it runs each precompiled method for the first time. An unload holds the
    // profiler's lock while it forgets the module's functions.
    enum Phase {
        kMetadata,
        kDecision,
        kRewrite,
        kLog,
        kShim,
        kModuleLoad,
        kPrecompiledSearch,
        kModuleUnload,
        kPhaseCount
    };

    // Adds the time from its construction to its end to a phase; timed
    // within another phase, takes it out of that one.
    class Timed {
    public:
        Timed(ProfilerAccount& account, Phase phase);
        Timed(ProfilerAccount& account, Phase phase, Phase within);
        ~Timed();
        Timed(const Timed&) = delete;
        Timed& operator=(const Timed&) = delete;

    private:
        ProfilerAccount& account;
        Phase phase;
        Phase within;
        int64_t start;
    };

    void methodCompiled(bool selected);
    // The outcome of the first rewrite of a method; reason is the engine's, for a refusal.
    void rewritten(HRESULT result, const char16_t* reason);
    void rejitRequested(unsigned int methods, HRESULT result);
    // The runtime's own compile of a method, from the end of our compile event
    // to its end: the yardstick for the time we add per method.
    void runtimeCompiled(int64_t nanoseconds);
    static int64_t now();
    void write(FILE* log) const;

    uint64_t compiled() const { return compiledCount; }
    uint64_t selected() const { return selectedCount; }
    uint64_t instrumented() const { return instrumentedCount; }
    uint64_t refused() const { return refusedCount; }
    int64_t phaseNanoseconds(Phase phase) const { return phaseTime[phase]; }

private:
    std::atomic<uint64_t> compiledCount{0};
    std::atomic<uint64_t> selectedCount{0};
    std::atomic<uint64_t> instrumentedCount{0};
    std::atomic<uint64_t> refusedCount{0};
    std::map<std::u16string, uint64_t> refusals;
    std::atomic<int64_t> phaseTime[kPhaseCount] = {};
    std::atomic<uint64_t> runtimeCompileCount{0};
    std::atomic<int64_t> runtimeCompileTime{0};
    std::atomic<uint64_t> rejitMethods{0};
    std::atomic<uint64_t> rejitRefused{0};
};
