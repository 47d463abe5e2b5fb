#!/usr/bin/env bash
# Cost of one exception thrown through 100 instrumented frames (every method of
# the program selected, the agent called but recording nothing), against the
# same program without the profiler. Runs are interleaved; with a second
# library given, it is measured in the same rounds (a before and after).
#
# Usage: bench/exceptions.sh <build directory> [rounds] [other profiler library]
set -euo pipefail

build=${1:?usage: $0 <build directory> [rounds] [other library]}
rounds=${2:-5}
other=${3:-}
build=$(cd "$build" && pwd)
program=$build/e2e/Deep/Deep.dll
[[ -e $program && -e $build/e2e/agent/tarn.Agent.dll ]] || { echo "build the tarn_e2e_tests target first" >&2; exit 1; }

work=$(mktemp -d /tmp/tarn-exceptions-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/bin/netcore"
cp "$build"/e2e/agent/* "$work/bin/netcore/"
printf 'IdentifyAssemblyAs: Deep Everything\nTraceAllMethodsIfFlagged: Everything\nTurnOn: Everything\n' >"$work/deep.fmd"
printf 'harrowlite.fieldmark.enable=true\nharrowlite.fieldmark.directivesFile=deep.fmd\n' >"$work/default.properties"

# Microseconds per exception of one run; the library as the argument, none for a plain run.
measure() {
    local library=${1:-}
    local profiled=()
    [[ -n $library ]] && profiled=(CORECLR_ENABLE_PROFILING=1 CORECLR_PROFILER='{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}'
                                   CORECLR_PROFILER_PATH="$library" TMSENV_AGENT_PROFILE="$work/default.properties")
    env -i PATH="$PATH" HOME="${HOME:-/tmp}" DOTNET_CLI_TELEMETRY_OPTOUT=1 "${profiled[@]}" \
        dotnet "$program" bench 100 | sed -n 's/.*: \([0-9.]*\) us$/\1/p'
}

median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }

declare -A figures
labels=(plain profiled)
[[ -n $other ]] && labels+=(other)
for ((round = 0; round < rounds; ++round)); do
    figures[plain]+="$(measure) "
    figures[profiled]+="$(measure "$build/tarn.NativeProfiler.so") "
    [[ -n $other ]] && figures[other]+="$(measure "$other") "
done
plain=$(tr ' ' '\n' <<<"${figures[plain]}" | grep . | median)
for label in "${labels[@]}"; do
    value=$(tr ' ' '\n' <<<"${figures[$label]}" | grep . | median)
    printf '%-9s one exception through 100 frames: %8.1f us (median of %d), %5.1fx plain\n' \
        "$label" "$value" "$rounds" "$(awk -v a="$value" -v b="$plain" 'BEGIN {print a / b}')"
done
