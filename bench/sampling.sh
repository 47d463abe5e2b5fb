#!/usr/bin/env bash
# What stack sampling costs a program: ten threads, each 64 frames deep, do a
# fixed amount of work under the profiler, once sampled every 10 ms and once not
# sampled at all. Prints the pause of one sampling pass (SuspendRuntime to
# ResumeRuntime, median and worst, from the profiler's own count) and the CPU
# time that the sampled runs took beyond the unsampled ones.
#
# Usage: bench/sampling.sh <build directory> [work per thread] [runs]
set -euo pipefail

build=${1:?usage: $0 <build directory> [work per thread] [runs]}
work=${2:-6000000}
runs=${3:-3}
build=$(cd "$build" && pwd)
program=$build/e2e/Sampled/Sampled.dll
profiler=$build/tarn.NativeProfiler.so
agent=$build/e2e/agent
for needed in "$program" "$profiler" "$agent/tarn.Agent.dll"; do
    [[ -e $needed ]] || { echo "missing $needed: build the tarn_e2e_tests target first" >&2; exit 1; }
done

work_dir=$(mktemp -d /tmp/tarn-sampling-XXXXXX)
trap 'rm -rf "$work_dir"' EXIT
mkdir -p "$work_dir/bin/netcore"
cp "$agent"/* "$work_dir/bin/netcore/"
printf 'TraceAllMethodsOfClass: Sampled.Traced\n' >"$work_dir/program.fmd"
cat >"$work_dir/default.properties" <<PROPERTIES
harrowlite.fieldmark.enable=true
harrowlite.nativeprofiler.logfile=native.log
harrowlite.fieldmark.directivesFile=program.fmd
harrowlite.agent.deep.instrumentation.logLevel=INFO
PROPERTIES

# User plus system CPU seconds of one run, in milliseconds; its native log
# stays in $work_dir/<mode>-<run>.log.
cpu_ms() {
    local mode=$1 run=$2 times
    rm -f "$work_dir"/native_*.log
    TIMEFORMAT='%U %S'
    times=$( { time (cd "$work_dir" && env -i PATH="$PATH" HOME="${HOME:-/tmp}" DOTNET_CLI_TELEMETRY_OPTOUT=1 \
        CORECLR_ENABLE_PROFILING=1 "CORECLR_PROFILER={7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}" \
        CORECLR_PROFILER_PATH="$profiler" TMSENV_AGENT_PROFILE="$work_dir/default.properties" \
        dotnet "$program" bench "$mode" "$work" >/dev/null 2>&1); } 2>&1 )
    cat "$work_dir"/native_*.log >"$work_dir/$mode-$run.log"
    awk '{printf "%d\n", ($1 + $2) * 1000}' <<<"$times"
}

median() { sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

plain=() sampled=()
for ((i = 0; i < runs; i++)); do
    plain+=("$(cpu_ms plain "$i")")
    sampled+=("$(cpu_ms sampled "$i")")
done
plain_ms=$(printf '%s\n' "${plain[@]}" | median)
sampled_ms=$(printf '%s\n' "${sampled[@]}" | median)

echo "pause of one sampling pass, 10 threads 64 frames deep (one line a sampled run):"
for ((i = 0; i < runs; i++)); do
    grep -h "Sampling stopped the runtime" "$work_dir/sampled-$i.log" || echo "  (no statistics line in run $i)"
done
printf 'CPU time, median of %d runs: unsampled %d ms, sampled every 10 ms %d ms, extra %d ms (%s%%)\n' \
    "$runs" "$plain_ms" "$sampled_ms" "$((sampled_ms - plain_ms))" \
    "$(awk -v p="$plain_ms" -v s="$sampled_ms" 'BEGIN {printf "%.1f", (s - p) * 100 / p}')"
