#!/usr/bin/env bash
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer in
# build-asan/ and runs the unit suites and the end-to-end suite there. The .NET
# programs of the end-to-end suite get the sanitizer's runtime preloaded, so that
# the instrumented library can be loaded into them. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
export DOTNET_CLI_TELEMETRY_OPTOUT=1 DOTNET_NOLOGO=1
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
