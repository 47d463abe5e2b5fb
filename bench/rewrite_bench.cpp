// Decode, rebuild and write every IL body of the core library, as the rewrite
// does for each instrumented method, and report methods and bytes per second.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "rewrite/IMethodBuffer.h"
#include "rewrite/IMethodBuilder.h"
#include "support/AssemblyBodies.h"

namespace {

const std::vector<AssemblyBodies::Body>& coreLibBodies() {
    static AssemblyBodies assembly;
    static std::vector<AssemblyBodies::Body> bodies = [] {
        if (!assembly.load(AssemblyBodies::frameworkAssemblies().front())) return std::vector<AssemblyBodies::Body>();
        return assembly.bodies();
    }();
    return bodies;
}

bool rebuild(const AssemblyBodies::Body& body, std::vector<unsigned char>& out) {
    std::unique_ptr<IMethodBuffer> source(IMethodBuffer::newInstance(body.bytes));
    std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
    builder->copyHeader(source->getHeader());
    HRESULT hr = builder->decodeIL(source->getCode(), source->getCodeSize());
    IMAGE_COR_ILMETHOD_SECT_EH* eh = source->getEH();
    for (unsigned int i = 0; i < source->getEHClauses() && SUCCEEDED(hr); ++i) {
        hr = source->isSmallEH() ? builder->insertEHClause(&eh->Small.Clauses[i])
                                 : builder->insertEHClause(&eh->Fat.Clauses[i]);
    }
    if (FAILED(hr)) return false;
    out.resize(builder->getTotalSize());
    return SUCCEEDED(builder->writeToBuffer(out.data()));
}

void BM_RebuildCoreLibBodies(benchmark::State& state) {
    const std::vector<AssemblyBodies::Body>& bodies = coreLibBodies();
    if (bodies.empty()) {
        state.SkipWithError("core library not readable");
        return;
    }
    std::vector<unsigned char> out;
    unsigned long bytes = 0;
    for (const AssemblyBodies::Body& body : bodies) bytes += body.size;
    for (auto _ : state) {
        for (const AssemblyBodies::Body& body : bodies) {
            if (!rebuild(body, out)) {
                state.SkipWithError("a body did not rebuild");
                return;
            }
            benchmark::DoNotOptimize(out.data());
        }
    }
    state.counters["methods/s"] =
        benchmark::Counter(static_cast<double>(bodies.size()), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["methods"] = static_cast<double>(bodies.size());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

BENCHMARK(BM_RebuildCoreLibBodies)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
