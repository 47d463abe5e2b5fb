#include "hub/ProfilerAccount.h"

#include "platform/Clock.h"
#include "platform/FormattedOutput.h"
#include "runtime/CorErrors.h"

namespace {

double milliseconds(int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1e6;
}

double microsecondsEach(int64_t nanoseconds, uint64_t count) {
    return count == 0 ? 0.0 : static_cast<double>(nanoseconds) / 1e3 / static_cast<double>(count);
}

}  // namespace

int64_t ProfilerAccount::now() {
    LARGE_INTEGER now;
    return QueryPerformanceCounter(&now) ? now.QuadPart : 0;
}

ProfilerAccount::Timed::Timed(ProfilerAccount& account, Phase phase) : Timed(account, phase, kPhaseCount) {}

ProfilerAccount::Timed::Timed(ProfilerAccount& account, Phase phase, Phase within)
    : account(account), phase(phase), within(within), start(now()) {}

ProfilerAccount::Timed::~Timed() {
    const int64_t elapsed = now() - start;
    account.phaseTime[phase].fetch_add(elapsed, std::memory_order_relaxed);
    if (within != kPhaseCount) account.phaseTime[within].fetch_sub(elapsed, std::memory_order_relaxed);
}

void ProfilerAccount::methodCompiled(bool selected) {
    compiledCount.fetch_add(1, std::memory_order_relaxed);
    if (selected) selectedCount.fetch_add(1, std::memory_order_relaxed);
}

void ProfilerAccount::rewritten(HRESULT result, const char16_t* reason) {
    if (SUCCEEDED(result)) {
        instrumentedCount.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    refusedCount.fetch_add(1, std::memory_order_relaxed);
    ++refusals[reason != nullptr ? reason : u"Unknown error."];
}

void ProfilerAccount::rejitRequested(unsigned int methods, HRESULT result) {
    rejitMethods.fetch_add(methods, std::memory_order_relaxed);
    if (FAILED(result)) rejitRefused.fetch_add(methods, std::memory_order_relaxed);
}

void ProfilerAccount::runtimeCompiled(int64_t nanoseconds) {
    runtimeCompileCount.fetch_add(1, std::memory_order_relaxed);
    runtimeCompileTime.fetch_add(nanoseconds, std::memory_order_relaxed);
}

void ProfilerAccount::write(FILE* log) const {
    if (log == nullptr) return;
    fprintf_8(log, "Profiler account:\n");
    fprintf_8(log, "  methods compiled %llu, selected %llu, instrumented %llu, refused %llu\n",
              static_cast<unsigned long long>(compiledCount.load()), static_cast<unsigned long long>(selectedCount.load()),
              static_cast<unsigned long long>(instrumentedCount.load()),
              static_cast<unsigned long long>(refusedCount.load()));
    for (const auto& [reason, count] : refusals) {
        fprintf_8(log, "  refused %llu: %S\n", static_cast<unsigned long long>(count), reason.c_str());
    }
    fprintf_8(log,
              "  time in callbacks: metadata %.1f ms, decision %.1f ms, rewrite %.1f ms, its log lines %.1f ms, "
              "shim %.1f ms, module loads %.1f ms, searches for precompiled code %.1f ms, module unloads %.1f ms\n",
              milliseconds(phaseTime[kMetadata]), milliseconds(phaseTime[kDecision]), milliseconds(phaseTime[kRewrite]),
              milliseconds(phaseTime[kLog]), milliseconds(phaseTime[kShim]), milliseconds(phaseTime[kModuleLoad]),
              milliseconds(phaseTime[kPrecompiledSearch]), milliseconds(phaseTime[kModuleUnload]));
    fprintf_8(log,
              "  per method: rewrite %.1f us and its log lines %.1f us (%llu rewritten), the runtime's own compile "
              "%.1f us (%llu compiled)\n",
              microsecondsEach(phaseTime[kRewrite], instrumentedCount + refusedCount),
              microsecondsEach(phaseTime[kLog], instrumentedCount + refusedCount),
              static_cast<unsigned long long>(instrumentedCount + refusedCount),
              microsecondsEach(runtimeCompileTime, runtimeCompileCount),
              static_cast<unsigned long long>(runtimeCompileCount.load()));
    fprintf_8(log, "  ReJIT: %llu methods requested, %llu refused by the runtime\n",
              static_cast<unsigned long long>(rejitMethods.load()), static_cast<unsigned long long>(rejitRefused.load()));
    fflush(log);
}
