// Positioned on a class, repeated name queries are answered from the context's
// buffers: the counters report the profiler-info calls made inside the timed
// loop (the metadata import is the runtime's own and is not counted).
#include <benchmark/benchmark.h>

#include <memory>

#include "metadata/IMetaDataContext.h"
#include "runtime/CorErrors.h"
#include "offline/HostedRuntime.h"
#include "support/ProfilerInfoDouble.h"
#include "support/RealAssemblies.h"

namespace {

struct Positioned {
    AutoCOMPointer<ProfilerInfoDouble> info;
    std::unique_ptr<IMetaDataContext> context;
    ModuleID module = 0;
    FunctionID first = 0;
    FunctionID second = 0;

    // A context on a class of the core library.
    bool open(benchmark::State& state, const char16_t* type, const char16_t* method, const char16_t* other) {
        if (!HostedRuntime::instance().ready()) {
            state.SkipWithError(HostedRuntime::instance().error().c_str());
            return false;
        }
        info = ProfilerInfoDouble::newInstance();
        module = info->addModule(RealAssemblies::coreLibPath());
        IMetaDataImport* import = info->importOf(module);
        mdTypeDef typeDef = RealAssemblies::findType(import, type);
        first = info->addFunction(module, RealAssemblies::findMethod(import, typeDef, method));
        second = info->addFunction(module, RealAssemblies::findMethod(import, typeDef, other));
        context.reset(IMetaDataContext::newInstance(info));
        if (context->setFunction(first) != S_OK) {
            state.SkipWithError("setFunction failed");
            return false;
        }
        return true;
    }

    int infoCalls() const {
        return info->calls("GetModuleInfo") + info->calls("GetAssemblyInfo");
    }

    void resetCalls() {
        info->resetCalls();
    }
};

void BM_RepeatedClassName(benchmark::State& state) {
    Positioned p;
    if (!p.open(state, u"System.Threading.Tasks.Task", u"InnerInvoke", u"Dispose")) {
        return;
    }
    char16_t* assembly = nullptr;
    char16_t* name = nullptr;
    p.context->getClassName(&assembly, &name);
    p.resetCalls();
    for (auto _ : state) {
        benchmark::DoNotOptimize(p.context->getClassName(&assembly, &name));
        benchmark::DoNotOptimize(name);
    }
    state.counters["info_calls"] = p.infoCalls();
}
BENCHMARK(BM_RepeatedClassName);

void BM_RepeatedAllNames(benchmark::State& state) {
    Positioned p;
    if (!p.open(state, u"System.Threading.Tasks.Task", u"InnerInvoke", u"Dispose")) {
        return;
    }
    char16_t* assembly = nullptr;
    char16_t* name = nullptr;
    char16_t** assemblies = nullptr;
    char16_t** classes = nullptr;
    unsigned int count = 0;
    auto readAll = [&] {
        p.context->getClassName(&assembly, &name);
        p.context->getMethodName(&name);
        p.context->getInterfaces(&assemblies, &classes, &count);
        p.context->getClassAttributes(&assemblies, &classes, &count);
        p.context->getMethodAttributes(&assemblies, &classes, &count);
        p.context->getParentName(&assembly, &name);
    };
    readAll();
    p.resetCalls();
    for (auto _ : state) {
        readAll();
        benchmark::DoNotOptimize(count);
    }
    state.counters["info_calls"] = p.infoCalls();
}
BENCHMARK(BM_RepeatedAllNames);

// For comparison: a move to another method of the same class, and the class
// name asked again (kept) with the method name (asked anew).
void BM_NextMethodOfTheClass(benchmark::State& state) {
    Positioned p;
    if (!p.open(state, u"System.Threading.Tasks.Task", u"InnerInvoke", u"Dispose")) {
        return;
    }
    char16_t* name = nullptr;
    bool flip = false;
    for (auto _ : state) {
        p.context->setFunction((flip = !flip) ? p.second : p.first);
        p.context->getClassName(nullptr, &name);
        p.context->getMethodName(&name);
        benchmark::DoNotOptimize(name);
    }
    state.counters["info_calls_per_move"] =
        benchmark::Counter(p.infoCalls() + p.info->calls("GetFunctionInfo") + p.info->calls("GetModuleMetaData"),
                           benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_NextMethodOfTheClass);

// A class with a generic interface has no interface list: the failure is not
// cached, so each query asks the runtime again.
void BM_InterfacesOfClassWithGenericInterface(benchmark::State& state) {
    Positioned p;
    if (!p.open(state, u"System.Collections.Generic.List`1", u"Add", u"Clear")) {
        return;
    }
    char16_t** classes = nullptr;
    unsigned int count = 0;
    p.resetCalls();
    for (auto _ : state) {
        benchmark::DoNotOptimize(p.context->getInterfaces(nullptr, &classes, &count));
    }
    state.counters["info_calls_per_query"] =
        benchmark::Counter(p.infoCalls(), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_InterfacesOfClassWithGenericInterface);

}  // namespace

BENCHMARK_MAIN();
