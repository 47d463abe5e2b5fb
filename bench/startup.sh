#!/usr/bin/env bash
# Start-up cost of the profiler, side by side in one run: a small program
# without the profiler, with it and only the hidden directives, with it and
# every method of the program selected, and without it but with precompiled
# code switched off (what the default event mask costs by itself).
#
# Usage: bench/startup.sh <build directory> [runs per configuration]
# Prints the median, minimum and maximum wall time of each configuration.
set -euo pipefail

build=${1:?usage: $0 <build directory> [runs]}
runs=${2:-15}
build=$(cd "$build" && pwd)
program=$build/e2e/Hello/Hello.dll
profiler=$build/tarn.NativeProfiler.so
agent=$build/e2e/agent
for needed in "$program" "$profiler" "$agent/tarn.Agent.dll"; do
    [[ -e $needed ]] || { echo "missing $needed: build the tarn_e2e_tests target first" >&2; exit 1; }
done

work=$(mktemp -d /tmp/tarn-startup-XXXXXX)
trap 'rm -rf "$work"' EXIT

# One agent installation per profiled configuration.
install() {
    local dir=$work/$1
    mkdir -p "$dir/bin/netcore"
    cp "$agent"/* "$dir/bin/netcore/"
    printf 'harrowlite.fieldmark.enable=true\nharrowlite.nativeprofiler.logfile=native.log\n' >"$dir/default.properties"
    if [[ -n ${2:-} ]]; then
        printf '%s' "$2" >"$dir/program.fmd"
        echo "harrowlite.fieldmark.directivesFile=program.fmd" >>"$dir/default.properties"
    fi
}
install hidden
install everything $'IdentifyAssemblyAs: Hello All\nTraceAllMethodsIfFlagged: All\nTurnOn: All\n'

# Milliseconds of one run of the program under the given environment.
timed() {
    local start end
    start=$(date +%s%N)
    env -i PATH="$PATH" HOME="${HOME:-/tmp}" DOTNET_CLI_TELEMETRY_OPTOUT=1 "$@" dotnet "$program" >/dev/null 2>&1
    end=$(date +%s%N)
    echo $(((end - start) / 1000000))
}

profiled() {
    echo CORECLR_ENABLE_PROFILING=1 "CORECLR_PROFILER={7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}" \
        CORECLR_PROFILER_PATH="$profiler" TMSENV_AGENT_PROFILE="$work/$1/default.properties"
}

declare -A configurations=(
    ["1 no profiler"]=""
    ["2 no profiler, DOTNET_ReadyToRun=0"]="DOTNET_ReadyToRun=0"
    ["3 profiler, hidden directives only"]="$(profiled hidden)"
    ["4 profiler, every method selected"]="$(profiled everything)"
)

# Warm the file cache once per configuration, then interleave the runs so that
# drift of the machine spreads over all of them.
declare -A samples
for name in "${!configurations[@]}"; do
    # shellcheck disable=SC2086
    timed ${configurations[$name]} >/dev/null
    samples[$name]=""
done
for ((i = 0; i < runs; i++)); do
    for name in "${!configurations[@]}"; do
        # shellcheck disable=SC2086
        samples[$name]+="$(timed ${configurations[$name]}) "
    done
done

printf '%-40s %8s %8s %8s   (%d runs, %s)\n' configuration median min max "$runs" "$(basename "$program")"
for name in $(printf '%s\n' "${!configurations[@]}" | sort | tr ' ' '\001'); do
    name=${name//$'\001'/ }
    read -r -a values <<<"$(tr ' ' '\n' <<<"${samples[$name]}" | sed '/^$/d' | sort -n | tr '\n' ' ')"
    count=${#values[@]}
    printf '%-40s %6d ms %5d ms %5d ms\n' "${name#* }" "${values[$((count / 2))]}" "${values[0]}" "${values[$((count - 1))]}"
done
echo "methods compiled through the rewriting with every method selected:" \
    "$(cat "$work"/everything/native_*.log 2>/dev/null | grep -c '^Instrumented \[Hello\]' || true)"
