// The session table, its readers and the configuration, without a runtime: the
// sampling thread then counts every tick as a failed sample.
#include <gtest/gtest.h>

#include <string>

#include "policy/Properties.h"
#include "sampling/TraceProfiler.h"

TEST(TraceProfiler, ReadersAnswerOnlyBetweenStopAndClose) {
    TraceProfiler profiler(nullptr);
    profiler.PushSamplingInterval(1);
    // A thread session on a managed thread that is already known.
    trace_profiler_session session;
    session.nativeThread = 7;
    session.thread = 0x1234;
    const int index = profiler.StartProfilingWithSession(session);
    unsigned long functions[1], parents[1];
    int depths[1], counts[1];
    EXPECT_EQ(profiler.ReadStackSampleCount(index), -1);
    EXPECT_EQ(profiler.ReadStackSnapshots(index, functions, parents, depths, counts), -1);
    EXPECT_EQ(profiler.activeSessionCount(), 1);

    EXPECT_EQ(profiler.StopProfiling(index), 0);
    EXPECT_EQ(profiler.StopProfiling(index), 0);
    EXPECT_EQ(profiler.activeSessionCount(), 0);
    // With no runtime to stop, every tick that reached the session failed.
    EXPECT_GE(profiler.ReadStackSampleCount(index), 0);
    EXPECT_EQ(profiler.ReadFailedStackSampleCount(index), profiler.ReadStackSampleCount(index));
    EXPECT_EQ(profiler.ReadStackSnapshotEntryCount(index), 0);
    EXPECT_EQ(profiler.ReadStackSnapshots(index, functions, parents, depths, counts), 0);
    EXPECT_EQ(profiler.ReadStackSnapshots(index, nullptr, parents, depths, counts), -1);

    EXPECT_EQ(profiler.CloseProfilingSession(index), 0);
    EXPECT_EQ(profiler.CloseProfilingSession(index), -1);
    EXPECT_EQ(profiler.ReadStackSampleCount(index), -1);
    EXPECT_EQ(profiler.StopProfiling(index), -1);
    EXPECT_EQ(profiler.CloseProfilingSession(-1), -1);
    EXPECT_EQ(profiler.CloseProfilingSession(500), -1);
}

// A session on a method that has not found its frame looks the method up in
// its module at each pass: the module's unload stops it. A session whose
// frame was found, or on another module, goes on.
TEST(TraceProfiler, UnloadStopsMethodSessionsStillLookingInTheModule) {
    TraceProfiler profiler(nullptr);
    trace_profiler_session looking, found, elsewhere;
    looking.module = found.module = 0x100;
    elsewhere.module = 0x200;
    found.rootFunction = 0x300;
    const int indexes[] = {profiler.StartProfilingWithSession(looking), profiler.StartProfilingWithSession(found),
                           profiler.StartProfilingWithSession(elsewhere)};
    profiler.ModuleUnloading(
        0x100, [](FunctionID) { return false; }, [](ClassID) { return false; });
    EXPECT_EQ(profiler.activeSessionCount(), 2);
    // Stopped, it reads as any stopped session.
    EXPECT_GE(profiler.ReadStackSampleCount(indexes[0]), 0);
    EXPECT_EQ(profiler.ReadStackSampleCount(indexes[1]), -1);
}

TEST(TraceProfiler, ConfigurationFromProperties) {
    const std::u16string prefix = u"harrowlite.agent.deep.instrumentation.";
    struct Row {
        const char16_t* key;
        const char16_t* value;
        int maxStacks, interval, level;
    } rows[] = {
        {u"max.stacks", u"0", 256, 100, 2},           {u"max.stacks", u"5000", 256, 100, 2},
        {u"max.stacks", u"12abc", 12, 100, 2},        {u"max.stacks", u"4096", 4096, 100, 2},
        {u"sampling.interval.ms", u"0", 256, 100, 2}, {u"logLevel", u"t", 256, 100, 5},
        {u"logLevel", u"war", 256, 100, 2},           {u"logLevel", u"", 256, 100, 1},
    };
    for (const Row& row : rows) {
        Properties properties({{prefix + row.key, row.value}});
        TraceProfiler profiler(nullptr);
        profiler.configure(&properties);
        const std::string where(row.key, row.key + std::char_traits<char16_t>::length(row.key));
        EXPECT_EQ(profiler.getMaxStacks(), row.maxStacks) << where;
        EXPECT_EQ(profiler.getSamplingInterval(), static_cast<unsigned int>(row.interval)) << where;
        EXPECT_EQ(profiler.getLogLevel(), row.level) << where;
        EXPECT_TRUE(profiler.isEnabled());
        EXPECT_FALSE(profiler.usesClassCache());
    }
    Properties switches({{prefix + u"enabled", u"false"}, {prefix + u"useClassCache", u"true"}});
    TraceProfiler profiler(nullptr);
    profiler.configure(&switches);
    EXPECT_FALSE(profiler.isEnabled());
    EXPECT_TRUE(profiler.usesClassCache());
}
