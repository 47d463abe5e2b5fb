// The cost of instrumentMethod per method over a real assembly, beside the
// cost of decoding and writing the same bodies alone, in the same run. The
// metadata is the runtime's own, opened for writing on a copy of the file;
// the first pass defines the references, later passes find them.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "ForeignCode.h"
#include "metadata/IMetaDataContext.h"
#include "rewrite/BodyVerifier.h"
#include "rewrite/CorSig.h"
#include "rewrite/IMethodBuffer.h"
#include "rewrite/IMethodBuilder.h"
#include "rewrite/Instruction.h"
#include "rewrite/Profiler.h"
#include "offline/HostedRuntime.h"
#include "support/DecodedBody.h"
#include "support/RealAssemblies.h"
#include "support/ProfilerInfoDouble.h"

namespace {

const char kAssembly[] = "System.Linq.dll";

struct Assembly {
    AutoCOMPointer<ProfilerInfoDouble> info;
    ModuleID module = 0;
    std::vector<FunctionID> functions;
    std::vector<AssemblyBodies::Body> bodies;

    bool open(benchmark::State& state) {
        if (!HostedRuntime::instance().ready()) {
            state.SkipWithError(HostedRuntime::instance().error().c_str());
            return false;
        }
        info = ProfilerInfoDouble::newInstance();
        module = info->addWritableModule(RealAssemblies::frameworkAssembly(kAssembly));
        if (module == 0) {
            state.SkipWithError("cannot open the assembly");
            return false;
        }
        bodies = info->bodiesOf(module).bodies();
        for (const AssemblyBodies::Body& body : bodies) {
            functions.push_back(info->addFunction(module, TokenFromRid(body.methodRow, mdtMethodDef)));
        }
        return true;
    }
};

void perMethod(benchmark::State& state, size_t methods) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * methods));
    state.counters["us_per_method"] = benchmark::Counter(static_cast<double>(state.iterations() * methods),
                                                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The whole pipeline, stages 1 to 12, for every method; the history entry is
// cleared first so that each pass rewrites anew.
void InstrumentMethod(benchmark::State& state) {
    Assembly assembly;
    if (!assembly.open(state)) return;
    std::unique_ptr<IMetaDataContext> context(IMetaDataContext::newInstance(assembly.info.get()));
    std::unique_ptr<Profiler> profiler(Profiler::newInstance(assembly.info.get(), 4, true, nullptr));
    unsigned int failed = 0;
    for (auto _ : state) {
        for (FunctionID function : assembly.functions) {
            context->setFunction(function);
            profiler->clearHistoryForFunction(context.get());
            unsigned int step = 0;
            failed += FAILED(profiler->instrumentMethod(context.get(), &step)) ? 1 : 0;
        }
    }
    perMethod(state, assembly.functions.size());
    state.counters["refused_per_pass"] = static_cast<double>(failed) / static_cast<double>(state.iterations());
}

// The same with the caches cold: before each method (outside the timing), a
// walk over a buffer larger than the second-level cache pushes the rewrite's
// code and data out to the last level. With foreign code (the argument 1),
// a run of code not ours also takes the branch predictors and the
// instruction side, as the runtime's compiles between two rewrites do in a
// process.
void InstrumentMethodCold(benchmark::State& state) {
    Assembly assembly;
    if (!assembly.open(state)) return;
    ForeignCode foreign;
    const bool withForeignCode = state.range(0) != 0;
    if (withForeignCode && !foreign.ready()) {
        state.SkipWithError("cannot map code to run");
        return;
    }
    std::unique_ptr<IMetaDataContext> context(IMetaDataContext::newInstance(assembly.info.get()));
    std::unique_ptr<Profiler> profiler(Profiler::newInstance(assembly.info.get(), 4, true, nullptr));
    std::vector<unsigned char> evict(4 << 20);
    constexpr size_t kStride = 16;
    for (auto _ : state) {
        for (size_t i = 0; i < assembly.functions.size(); i += kStride) {
            state.PauseTiming();
            for (size_t at = 0; at < evict.size(); at += 64) evict[at] = static_cast<unsigned char>(evict[at] + 1);
            benchmark::ClobberMemory();
            context->setFunction(assembly.functions[i]);
            profiler->clearHistoryForFunction(context.get());
            if (withForeignCode) foreign.run();
            state.ResumeTiming();
            unsigned int step = 0;
            benchmark::DoNotOptimize(profiler->instrumentMethod(context.get(), &step));
        }
    }
    perMethod(state, (assembly.functions.size() + kStride - 1) / kStride);
}

// The first rewrite of every method of a module that has seen none, as in a
// process: the references to the trace functions and the local signatures
// are defined rather than found. Each pass opens its own copy of the module,
// outside the timing.
void InstrumentMethodFirstPass(benchmark::State& state) {
    size_t methods = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto assembly = std::make_unique<Assembly>();
        if (!assembly->open(state)) return;
        auto context = std::unique_ptr<IMetaDataContext>(IMetaDataContext::newInstance(assembly->info.get()));
        auto profiler = std::unique_ptr<Profiler>(Profiler::newInstance(assembly->info.get(), 4, true, nullptr));
        methods = assembly->functions.size();
        state.ResumeTiming();
        for (FunctionID function : assembly->functions) {
            context->setFunction(function);
            unsigned int step = 0;
            benchmark::DoNotOptimize(profiler->instrumentMethod(context.get(), &step));
        }
        state.PauseTiming();
        profiler.reset();
        context.reset();
        assembly.reset();
        state.ResumeTiming();
    }
    perMethod(state, methods);
}

// Decoding into a builder and writing it out again, nothing inserted.
void DecodeAndWrite(benchmark::State& state) {
    Assembly assembly;
    if (!assembly.open(state)) return;
    std::vector<unsigned char> out(1 << 20);
    for (auto _ : state) {
        for (const AssemblyBodies::Body& body : assembly.bodies) {
            std::unique_ptr<IMethodBuffer> buffer(IMethodBuffer::newInstance(body.bytes));
            std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
            builder->copyHeader(buffer->getHeader());
            // Every body of the library decodes: the round-trip tests prove it.
            (void)builder->decodeIL(buffer->getCode(), buffer->getCodeSize());
            IMAGE_COR_ILMETHOD_SECT_EH* section = buffer->hasEH() ? buffer->getEH() : nullptr;
            for (unsigned int i = 0; section != nullptr && i < buffer->getEHClauses(); ++i) {
                if (buffer->isSmallEH()) {
                    (void)builder->insertEHClause(&section->Small.Clauses[i]);
                } else {
                    (void)builder->insertEHClause(&section->Fat.Clauses[i]);
                }
            }
            if (builder->getTotalSize() <= out.size()) builder->writeToBuffer(out.data());
            benchmark::DoNotOptimize(out.data());
        }
    }
    perMethod(state, assembly.bodies.size());
}

// The check of each rewritten body before it is installed, alone: the bodies
// of one rewriting pass, verified again and again. Its share of
// instrumentMethod is this figure over InstrumentMethod's.
void VerifyRewrittenBody(benchmark::State& state) {
    Assembly assembly;
    if (!assembly.open(state)) return;
    std::unique_ptr<IMetaDataContext> context(IMetaDataContext::newInstance(assembly.info.get()));
    std::unique_ptr<Profiler> profiler(Profiler::newInstance(assembly.info.get(), 4, true, nullptr));
    IMetaDataImport* import = assembly.info->importOf(assembly.module);
    // The callees read, kept for the module as the rewrite keeps them.
    VerifiedCallees callees;
    std::vector<VerifiedMethod> methods;
    for (size_t i = 0; i < assembly.functions.size(); ++i) {
        context->setFunction(assembly.functions[i]);
        unsigned int step = 0;
        if (FAILED(profiler->instrumentMethod(context.get(), &step))) continue;
        mdMethodDef token = TokenFromRid(assembly.bodies[i].methodRow, mdtMethodDef);
        const unsigned char* body = assembly.info->installedBody(assembly.module, token);
        VerifiedMethod method{body, 0xFFFFFFFF, 0, 0, false, nullptr, 0, nullptr, 0, import, &callees};
        import->GetMethodProps(token, nullptr, nullptr, 0, nullptr, nullptr, &method.signature,
                               reinterpret_cast<ULONG*>(&method.signatureLength), nullptr, nullptr);
        unsigned int localToken = getLittleEndian<unsigned int>(body + 8);
        import->GetSigFromToken(localToken, &method.localSignature, reinterpret_cast<ULONG*>(&method.localSignatureLength));
        ULONG count = 0;
        CorSigUncompressData(method.localSignature + 1, method.localSignatureLength - 1, &count);
        method.localCount = count;
        ULONG generic = 0;
        ULONG parameters = 0;
        ULONG at = 1 + ((method.signature[0] & 0x10) != 0 ? CorSigUncompressData(method.signature + 1, 4, &generic) : 0);
        CorSigUncompressData(method.signature + at, method.signatureLength - at, &parameters);
        method.argumentCount = parameters + ((method.signature[0] & 0x20) != 0 ? 1 : 0);
        method.returnsValue =
            returnType({method.signature, method.signature + method.signatureLength}) != ELEMENT_TYPE_VOID;
        methods.push_back(method);
    }
    unsigned int refused = 0;
    char16_t reason[160];
    for (auto _ : state) {
        for (const VerifiedMethod& method : methods) refused += BodyVerifier::verify(method, reason, 160) != S_OK;
    }
    perMethod(state, methods.size());
    state.counters["refused_per_pass"] = static_cast<double>(refused) / static_cast<double>(state.iterations());
}

}  // namespace

BENCHMARK(InstrumentMethod)->Unit(benchmark::kMillisecond);
BENCHMARK(InstrumentMethodCold)->Unit(benchmark::kMillisecond)->ArgName("foreign_code")->Arg(0)->Arg(1);
BENCHMARK(InstrumentMethodFirstPass)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(VerifyRewrittenBody)->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeAndWrite)->Unit(benchmark::kMillisecond);

