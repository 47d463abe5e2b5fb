#!/usr/bin/env bash
# Builds everything with a sanitizer and runs the unit suites and the
# end-to-end suite there. The .NET programs of the end-to-end suite get the
# sanitizer's runtime preloaded, so that the instrumented library can be loaded
# into them. Arguments go to ctest.
#
# Usage: scripts/sanitize.sh [thread] [ctest arguments]
#   AddressSanitizer and UndefinedBehaviorSanitizer in build-asan/ by default;
#   "thread": ThreadSanitizer in build-tsan/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
export DOTNET_CLI_TELEMETRY_OPTOUT=1 DOTNET_NOLOGO=1
if [[ ${1:-} == thread ]]; then
    shift
    cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARN_TSAN=ON >/dev/null
    cmake --build build-tsan -j"$(nproc)"
    cd build-tsan
    # Only the runtime's own code is suppressed. The start-up children of the
    # hub suite are forked from a process whose hosted runtime already runs
    # threads, which ThreadSanitizer cannot follow; they run in the plain build.
    export TSAN_OPTIONS="suppressions=$PWD/../tests/sanitizer/tsan.supp halt_on_error=1 die_after_fork=0"
    export GTEST_FILTER="-ModuleLoad.ShimThatCannotBeDefinedDisablesTheAgent:ProfilerCallback.ShutdownStopsCompileEventsAndReleasesTheRuntime"
    ctest --output-on-failure -E e2e "$@"
    # In the .NET programs: the runtime's own signal handlers call the loader,
    # which allocates; and some runs are beyond ThreadSanitizer with the
    # runtime inside: thread suspension for stack samples (signals held back
    # by the sanitizer stall it), the framework-wide runs, whose address space
    # reservations leave the sanitizer no room for its shadow, and the release
    # test, whose shell and archiver do not start with the sanitizer preloaded.
    export TSAN_OPTIONS="$TSAN_OPTIONS report_signal_unsafe=0"
    export GTEST_FILTER="-Sampling.*:Sweep.*:WholeProgram.EveryMethodOfARealLibrary:Install.*"
    LD_PRELOAD="$(gcc -print-file-name=libtsan.so)" ctest --output-on-failure -R e2e "$@"
    exit 0
fi
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARN_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$(nproc)"
cd build-asan
export LSAN_OPTIONS="suppressions=$PWD/../tests/sanitizer/lsan.supp"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
# The gate's probes preload the library into a program of their own.
export ASAN_OPTIONS="verify_asan_link_order=0"
ctest --output-on-failure -E e2e "$@"
# The runtime handles its own faults and never frees much at exit.
LD_PRELOAD="$(gcc -print-file-name=libasan.so)" \
ASAN_OPTIONS="detect_leaks=0:handle_segv=0:allow_user_segv_handler=1" \
    ctest --output-on-failure -R e2e "$@"
