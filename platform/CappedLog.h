// Our logs stop growing at kLimit bytes: the line that reaches the limit is
// followed by one that says so, and later lines are dropped. A process that
// logs without end (modules loaded and unloaded for weeks, a failure met at
// every sample) must not fill its disk. The formatted writers
// (FormattedOutput), through which every log line goes, ask before each line
// and count it after; a stream that was never limited takes every line.
//
// Thread-safe: the counts are atomic, and a few logs are limited at a time
// (a process has one or two): a new one takes the place of a closed one, else
// of the oldest.
#pragma once

#include <cstdint>
#include <cstdio>

class CappedLog {
public:
    // Far beyond what any usual process writes in its life.
    static constexpr uint64_t kLimit = 100ull << 20;

    // Counts what goes to the stream from now on, starting from written
    // bytes: 0 for a log just made.
    static void limit(FILE* stream, uint64_t written = 0);
    // Whether a line may still go to the stream.
    static bool admits(FILE* stream);
    // Counts a line of bytes written to the stream; the line that reaches the
    // limit is followed by the one that says so.
    static void wrote(FILE* stream, int bytes);
    // Forgets the stream, then closes it: a stream that the C library makes
    // later at the same address starts without a count.
    static int close(FILE* stream);
};
