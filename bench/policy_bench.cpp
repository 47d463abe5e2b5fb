// The directive decision for every method of the core library, against a
// directive set of the size that real installations load: about 500 rules over
// 50 flags, with global and per-flag skips. Figures are per method, with the
// match cache (cleared before each pass, as every method is decided once in a
// process) and without it.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "metadata/IMetaDataContext.h"
#include "policy/DirectiveController.h"
#include "policy/IDirectiveController.h"
#include "offline/HostedRuntime.h"
#include "offline/OfflineProfilerInfo.h"
#include "support/RealAssemblies.h"
#include "unit/policy/SteeredContext.h"

namespace {

struct Method {
    mdTypeDef type;
    mdToken extends;
    mdMethodDef token;
};

struct CoreLibrary {
    AutoCOMPointer<OfflineProfilerInfo> info;
    ModuleID module = 0;
    std::vector<Method> methods;
    std::vector<std::string> classNames;
    std::string error;
};

CoreLibrary& coreLibrary() {
    static CoreLibrary* library = [] {
        auto* made = new CoreLibrary();
        if (!HostedRuntime::instance().ready()) {
            made->error = HostedRuntime::instance().error();
            return made;
        }
        // The runtime's own metadata, as the profiler reads it in a process.
        made->info = AutoCOMPointer<OfflineProfilerInfo>(new OfflineProfilerInfo());
        made->module = made->info->addModule(RealAssemblies::widen(RealAssemblies::coreLibPath()));
        IMetaDataImport* import = made->info->importOf(made->module);
        if (import == nullptr) {
            made->error = "cannot open the core library";
            return made;
        }
        HCORENUM types = nullptr;
        mdTypeDef type = 0;
        ULONG count = 0;
        while (import->EnumTypeDefs(&types, &type, 1, &count) == S_OK && count == 1) {
            char16_t name[1024];
            ULONG length = 0;
            DWORD flags = 0;
            mdToken extends = 0;
            import->GetTypeDefProps(type, name, 1024, &length, &flags, &extends);
            made->classNames.push_back(RealAssemblies::narrow(name));
            HCORENUM methods = nullptr;
            mdMethodDef method = 0;
            while (import->EnumMethods(&methods, type, &method, 1, &count) == S_OK && count == 1) {
                made->methods.push_back({type, extends, method});
            }
            import->CloseEnum(methods);
        }
        import->CloseEnum(types);
        return made;
    }();
    return *library;
}

// 50 flags of about ten rules each, drawn from the library's own class names,
// with the skips that a shipped directive set carries.
std::string realisticDirectives(const CoreLibrary& library) {
    static const char* const methodNames[] = {"Invoke", "Execute", "Send", "Receive", "Read", "Write",
                                              "Open", "Close", "Parse", "Format", "Run", "Start"};
    std::string text =
        "SkipAssemblyPrefix: Microsoft.\n"
        "SkipNamespacePrefix: System.Runtime.Intrinsics\n"
        "SkipNamespacePrefix: Internal.\n"
        "SkipNamespace: System.Numerics\n"
        "SkipClass: System.String\n"
        "SkipClass: System.Span\n"
        "SkipMethodForClass: System.Collections.Generic.List Add\n"
        "DoNotSkipMethodForClass: System.String Concat\n"
        "SkipEmptyClasses\n";
    size_t next = 0;
    const size_t stride = library.classNames.size() / 400 + 1;
    for (int flag = 0; flag < 50; ++flag) {
        const std::string name = "Flag" + std::to_string(flag);
        for (int rule = 0; rule < 3; ++rule, next += stride) {
            text += "IdentifyClassAs: " + library.classNames[next % library.classNames.size()] + " " + name + "\n";
        }
        text += "IdentifyInheritedAs: " + library.classNames[(next + 7) % library.classNames.size()] + " " + name +
                "\n";
        if (flag % 5 == 0) {
            text += "IdentifyMatchingClassesAs: *Collections.Concurrent.*Queue* " + name + "\n";
            text += "TraceAllMethodsIfFlagged: " + name + "\n";
        } else {
            text += "TraceOneMethodIfFlagged: " + name + " " + methodNames[flag % 12] + "\n";
            text += "TraceOneMethodIfFlagged: " + name + " " + methodNames[(flag + 5) % 12] + "\n";
            text += "TraceMatchingMethodsWithParametersIfFlagged: " + name + " Try*Async\n";
        }
        text += "SkipMethodForFlag: " + name + " ToString\n";
        text += "SkipNamespaceForFlag: System.Reflection.Emit " + name + "\n";
        text += (flag % 10 == 9 ? "SetFlag: " : "TurnOn: ") + name + "\n";
    }
    for (int i = 0; i < 20; ++i, next += stride) {
        text += "TraceOneMethodOfClass: " + library.classNames[next % library.classNames.size()] + " " +
                methodNames[i % 12] + "\n";
    }
    return text;
}

// A generated file of one-method lines, as large users write them (one line
// per endpoint or method of interest): about bytes of it, a fifth of the lines
// on classes of the library, the rest on classes it does not have.
std::string generatedDirectives(const CoreLibrary& library, size_t bytes) {
    static const char* const methodNames[] = {"Invoke", "Execute", "Send", "Receive", "Read", "Write"};
    std::string text;
    for (size_t line = 0; text.size() < bytes; ++line) {
        const std::string className = line % 5 == 0 ? library.classNames[(line * 7919) % library.classNames.size()]
                                                    : "Company" + std::to_string(line % 97) + ".Service" +
                                                          std::to_string(line % 1013) + ".Endpoint" +
                                                          std::to_string(line);
        text += "TraceOneMethodOfClass: " + className + " " + methodNames[line % 6] + "\n";
    }
    return text;
}

// The text's lines, widened, for a controller to read (and cut up).
std::vector<std::u16string> linesOf(const std::string& narrow) {
    const std::u16string text = RealAssemblies::widen(narrow);
    std::vector<std::u16string> lines;
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find(u'\n', start);
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// A controller that has read the lines; the heap it took in heap when asked
// (the count walks the allocator's lists).
std::unique_ptr<IDirectiveController> readLines(std::vector<std::u16string>& lines, size_t* heap) {
    const size_t before = heap != nullptr ? mallinfo2().uordblks : 0;
    std::unique_ptr<IDirectiveController> controller(IDirectiveController::newInstance(nullptr));
    for (std::u16string& line : lines) controller->readDirective(line.data());
    if (heap != nullptr) *heap = mallinfo2().uordblks - before;
    return controller;
}

// Every method of the core library decided, with the realistic set, a
// generated file of that many bytes, or the text given.
void decideEveryMethod(benchmark::State& state, bool withCache, size_t generatedBytes = 0, const char* text = nullptr) {
    CoreLibrary& library = coreLibrary();
    if (!library.error.empty()) {
        state.SkipWithError(library.error.c_str());
        return;
    }
    size_t heap = 0;
    std::vector<std::u16string> lines = linesOf(text != nullptr       ? std::string(text)
                                                : generatedBytes == 0 ? realisticDirectives(library)
                                                                      : generatedDirectives(library, generatedBytes));
    const size_t rules = lines.size();
    std::unique_ptr<IDirectiveController> controller = readLines(lines, &heap);
    state.counters["heap_MB"] = static_cast<double>(heap) / 1e6;
    SteeredContext context(library.info);
    context.setModuleID(library.module);
    context.setImport(library.info->importOf(library.module));
    // The first decision also files the groups by class name: a cost of the
    // start, not of each method.
    const Method& first = library.methods.front();
    context.setTypeDef(first.type);
    context.setSuperToken(first.extends);
    context.setMethodDef(first.token);
    const auto started = std::chrono::steady_clock::now();
    (void)controller->shouldMonitor(&context);
    state.counters["first_decision_ms"] =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();

    size_t selected = 0;
    for (auto _ : state) {
        controller->clearCache();
        selected = 0;
        mdTypeDef current = 0;
        for (const Method& method : library.methods) {
            if (method.type != current) {
                current = method.type;
                context.setTypeDef(method.type);
                context.setSuperToken(method.extends);
                context.classID = withCache ? library.module + method.type : 0;
            }
            context.setMethodDef(method.token);
            selected += controller->shouldMonitor(&context) ? 1 : 0;
        }
    }
    state.counters["methods"] = static_cast<double>(library.methods.size());
    state.counters["selected"] = static_cast<double>(selected);
    state.counters["rules"] = static_cast<double>(rules);
    state.counters["per_method"] = benchmark::Counter(static_cast<double>(library.methods.size()),
                                                      benchmark::Counter::kIsIterationInvariantRate |
                                                          benchmark::Counter::kInvert);
}

void DecisionWithCache(benchmark::State& state) {
    decideEveryMethod(state, true);
}
BENCHMARK(DecisionWithCache)->Unit(benchmark::kMillisecond);

void DecisionWithoutCache(benchmark::State& state) {
    decideEveryMethod(state, false);
}
BENCHMARK(DecisionWithoutCache)->Unit(benchmark::kMillisecond);

// A service's own directives, one assembly of its own, and the group for entry
// points that every process has: the core library's methods are decided by
// their assembly and their names.
void DecisionByAssemblyRule(benchmark::State& state) {
    decideEveryMethod(state, true, 0,
                      "IdentifyAssemblyAs: Shop.Service Own\nTraceAllMethodsIfFlagged: Own\nTurnOn: Own\n"
                      "IdentifyAllClassesAs: Main\nTraceOneMethodIfFlagged: Main Main\n"
                      "TraceOneMethodIfFlagged: Main main\nTurnOn: Main\n");
}
BENCHMARK(DecisionByAssemblyRule)->Unit(benchmark::kMillisecond);

// The decision with a generated file of one-method lines of 5 MB and of 50 MB.
void DecisionWithGeneratedFile(benchmark::State& state) {
    decideEveryMethod(state, true, static_cast<size_t>(state.range(0)) << 20);
}
BENCHMARK(DecisionWithGeneratedFile)->Arg(5)->Arg(50)->Unit(benchmark::kMillisecond)->Iterations(10);

// The lines of a generated file of one-method lines of 5 MB; none, with the
// benchmark skipped, without the core library.
std::vector<std::u16string> generatedLines(benchmark::State& state) {
    CoreLibrary& library = coreLibrary();
    if (!library.error.empty()) {
        state.SkipWithError(library.error.c_str());
        return {};
    }
    return linesOf(generatedDirectives(library, size_t{5} << 20));
}

// Reading a generated file of one-method lines of 5 MB as the first module
// load reads it: from the file, which is read and taken apart on a thread of
// its own while the lines before are applied.
void ReadGeneratedFile(benchmark::State& state) {
    CoreLibrary& library = coreLibrary();
    if (!library.error.empty()) {
        state.SkipWithError(library.error.c_str());
        return;
    }
    const std::string text = generatedDirectives(library, size_t{5} << 20);
    FILE* file = tmpfile();
    if (file == nullptr || fwrite(text.data(), 1, text.size(), file) != text.size()) {
        state.SkipWithError("no temporary file for the directives");
        return;
    }
    const auto read = [&](size_t* heap) {
        rewind(file);
        const size_t before = heap != nullptr ? mallinfo2().uordblks : 0;
        std::unique_ptr<IDirectiveController> controller(IDirectiveController::newInstance(nullptr));
        (void)controller->readDirectives(file);
        if (heap != nullptr) *heap = mallinfo2().uordblks - before;
        return controller;
    };
    std::unique_ptr<IDirectiveController> controller;
    for (auto _ : state) {
        // Not timed: the freeing of the last controller.
        state.PauseTiming();
        controller.reset();
        state.ResumeTiming();
        controller = read(nullptr);
    }
    controller.reset();
    size_t heap = 0;
    controller = read(&heap);
    fclose(file);
    const auto rules = static_cast<double>(std::count(text.begin(), text.end(), '\n'));
    state.counters["rules"] = rules;
    state.counters["heap_MB"] = static_cast<double>(heap) / 1e6;
    state.counters["bytes_per_line"] = static_cast<double>(heap) / rules;
}
BENCHMARK(ReadGeneratedFile)->Unit(benchmark::kMillisecond)->Iterations(5);

// Filing the groups of a generated file of one-method lines of 5 MB in the
// index, which the first module load of a process does, and sorting their
// names, which the first class that agrees with one of them does.
void IndexGeneratedFile(benchmark::State& state) {
    const std::vector<std::u16string> lines = generatedLines(state);
    if (lines.empty()) {
        return;
    }
    const std::u16string agreeing = RealAssemblies::widen(coreLibrary().classNames.front());
    std::unique_ptr<IDirectiveController> controller;
    for (auto _ : state) {
        state.PauseTiming();
        controller.reset();
        std::vector<std::u16string> read = lines;
        controller = readLines(read, nullptr);
        state.ResumeTiming();
        const DirectiveGroupIndex& index = static_cast<DirectiveController&>(*controller).groupIndex();
        DirectiveGroupIndex::Candidates found;
        index.candidates(u"System.Private.CoreLib", agreeing.c_str(), {}, found, false);
        benchmark::DoNotOptimize(found.data());
    }
    state.counters["rules"] = static_cast<double>(lines.size());
}
BENCHMARK(IndexGeneratedFile)->Unit(benchmark::kMillisecond)->Iterations(5);

// The heap that a large directive file takes once loaded: 262,144 lines of
// about 40 bytes (10 MB), each naming a class for a flag of its own, so that
// every line makes a directive group.
void DirectiveFileMemory(benchmark::State& state) {
    constexpr int kLines = 262144;
    size_t bytes = 0;
    size_t heap = 0;
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks;
        std::unique_ptr<IDirectiveController> controller(IDirectiveController::newInstance(nullptr));
        bytes = 0;
        for (int i = 0; i < kLines; ++i) {
            char line[64];
            const int length = snprintf(line, sizeof line, "IdentifyClassAs: Shop.C%06d F%06d", i, i);
            bytes += static_cast<size_t>(length) + 1;
            std::u16string text = RealAssemblies::widen(line);
            controller->readDirective(text.data());
        }
        heap = mallinfo2().uordblks - before;
    }
    state.counters["file_MB"] = static_cast<double>(bytes) / 1e6;
    state.counters["heap_MB"] = static_cast<double>(heap) / 1e6;
    state.counters["bytes_per_line"] = static_cast<double>(heap) / kLines;
}
BENCHMARK(DirectiveFileMemory)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
