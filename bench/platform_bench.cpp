// Costs of the 16-bit text layer on the paths that matching and logging take.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <set>

#include "platform/FormattedOutput.h"
#include "platform/Text16.h"

static void StrcmpU16(benchmark::State& state) {
    const char16_t* a = u"System.Collections.Generic.Dictionary`2";
    const char16_t* b = u"System.Collections.Generic.Dictionary`2+Enumerator";
    for (auto _ : state) {
        benchmark::DoNotOptimize(strcmp_u16(a, b));
    }
}
BENCHMARK(StrcmpU16);

static void StrcasecmpU16(benchmark::State& state) {
    const char16_t* a = u"System.Collections.Generic.Dictionary`2";
    const char16_t* b = u"SYSTEM.COLLECTIONS.GENERIC.DICTIONARY`2";
    for (auto _ : state) {
        benchmark::DoNotOptimize(strcasecmp_u16(a, b));
    }
}
BENCHMARK(StrcasecmpU16);

static void WcslessSetLookup(benchmark::State& state) {
    static const char16_t* const names[] = {u"Alpha", u"Beta", u"Gamma", u"Delta", u"Epsilon", u"Zeta", u"Eta",
                                            u"Theta", u"Iota", u"Kappa", u"Lambda", u"Mu"};
    std::set<const char16_t*, wcsless> set(std::begin(names), std::end(names));
    for (auto _ : state) {
        benchmark::DoNotOptimize(set.find(u"Lambda"));
    }
}
BENCHMARK(WcslessSetLookup);

static void Fprintf8MixedWidths(benchmark::State& state) {
    FILE* sink = std::fopen("/dev/null", "w");
    for (auto _ : state) {
        fprintf_8(sink, "JIT %S::%S 0x%X(%02d) %s\n", u"System.String", u"Concat", 0x80004005, 7, "done");
    }
    std::fclose(sink);
}
BENCHMARK(Fprintf8MixedWidths);

static void Fprintf8Plain(benchmark::State& state) {
    FILE* sink = std::fopen("/dev/null", "w");
    for (auto _ : state) {
        std::fprintf(sink, "JIT %s::%s 0x%X(%02d) %s\n", "System.String", "Concat", 0x80004005, 7, "done");
    }
    std::fclose(sink);
}
BENCHMARK(Fprintf8Plain);

BENCHMARK_MAIN();
