#!/usr/bin/env bash
# Builds the libFuzzer harnesses of tests/fuzz with clang (in build-fuzz/) and
# runs each for a bounded time from its seed corpus. Findings (crashes, leaks,
# undefined behaviour) are written to build-fuzz/findings/<harness>/.
#
# Usage: scripts/fuzz.sh [seconds per harness, default 60] [harness ...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
missing=()
command -v clang++-14 >/dev/null || missing+=(clang-14)
ls /usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || missing+=(libclang-rt-14-dev)
[ -f /usr/include/re2/re2.h ] || missing+=(libre2-dev)
scripts/install-missing.sh ${missing[@]+"${missing[@]}"}
cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang-14 \
    -DCMAKE_CXX_COMPILER=clang++-14 -DTARN_FUZZ=ON -DTARN_TESTS=OFF >/dev/null
harnesses=("$@")
[ ${#harnesses[@]} -gt 0 ] || harnesses=(Properties Directives ProfileConfig MethodBody Signature)
cmake --build build-fuzz -j"$(nproc)" --target "${harnesses[@]/#/fuzz_}"
for harness in "${harnesses[@]}"; do
    corpus=build-fuzz/corpus/$harness
    findings=build-fuzz/findings/$harness
    mkdir -p "$corpus" "$findings"
    echo "== $harness for ${seconds}s"
    build-fuzz/tests/fuzz/fuzz_"$harness" -max_total_time="$seconds" -artifact_prefix="$findings/" \
        -print_final_stats=1 "$corpus" tests/fuzz/corpus/"$harness" 2>&1 |
        grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|==[0-9]+==ERROR|SUMMARY|#[0-9]+ *DONE)' || true
    echo "findings: $(find "$findings" -type f | wc -l)"
done
