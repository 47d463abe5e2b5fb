#!/usr/bin/env bash
# Start-up cost of the profiler on three programs: a console hello, a
# Newtonsoft.Json round trip, and an ASP.NET Core service that serves a few
# requests to itself. Each runs without the profiler, without it but with
# precompiled code switched off (what the event mask costs by itself), with it
# and only the hidden directives, and with it and the program's own classes
# selected. Runs are interleaved so that drift of the machine spreads over all.
#
# Usage: bench/startup.sh <build directory> [runs per configuration] [other library] [large]
# With another build of the library (an earlier one, say), its runs with the
# program's own classes selected are interleaved too: a before and after.
# With "large", only hello runs, with generated directive files of 5 and 50 MB
# of one-method lines beside its own small one (and the other library's runs
# take the large files). As a fifth of the generated lines name classes of the
# core library, the small file is also run with one such line: what the core
# library's selection costs by itself, whatever the file's size.
# Prints the median, minimum and maximum wall time, and the median's ratio to
# the run without the profiler, the profiler's account of its last run with
# the program's own classes selected, and the medians of that account's
# rewrite and compile per method over all such runs (of each library).
set -euo pipefail

build=${1:?usage: $0 <build directory> [runs] [other library] [large]}
runs=${2:-9}
other=${3:-}
large=${4:-}
build=$(cd "$build" && pwd)
profiler=$build/tarn.NativeProfiler.so
agent=$build/e2e/agent
programs=(Hello JsonRoundTrip Service)
for needed in "$profiler" "$agent/tarn.Agent.dll" "${programs[@]/#/$build/e2e/}"; do
    [[ -e $needed ]] || { echo "missing $needed: build the tarn_e2e_tests target first" >&2; exit 1; }
done

work=$(mktemp -d /tmp/tarn-startup-XXXXXX)
trap 'rm -rf "$work"' EXIT

# One agent installation per profiled configuration and program.
install() {
    local dir=$work/$1
    mkdir -p "$dir/bin/netcore"
    cp "$agent"/* "$dir/bin/netcore/"
    printf 'harrowlite.fieldmark.enable=true\nharrowlite.nativeprofiler.logfile=native.log\n' >"$dir/default.properties"
    if [[ $# -gt 1 ]]; then
        printf '%s' "$2" >"$dir/program.fmd"
        echo "harrowlite.fieldmark.directivesFile=program.fmd" >>"$dir/default.properties"
    fi
}

# Milliseconds of one run of a program under the given environment.
timed() {
    local program=$1 start end
    shift
    start=$(date +%s%N)
    env -i PATH="$PATH" HOME="${HOME:-/tmp}" DOTNET_CLI_TELEMETRY_OPTOUT=1 "$@" \
        dotnet "$build/e2e/$program/$program.dll" >/dev/null 2>&1 || true
    end=$(date +%s%N)
    echo $(((end - start) / 1000000))
}

profiled() {  # installation [library]
    echo CORECLR_ENABLE_PROFILING=1 "CORECLR_PROFILER={7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}" \
        CORECLR_PROFILER_PATH="${2:-$profiler}" TMSENV_AGENT_PROFILE="$work/$1/default.properties"
}

# A directive file of about the given megabytes of one-method lines, as large
# users generate them: a fifth on classes of the core library, the rest on
# classes that no program has.
generated() {
    awk -v limit=$(($1 << 20)) 'BEGIN {
        n = split("System.String System.Console System.Object System.Array System.Enum System.Math System.Buffer " \
                  "System.Convert System.DateTime System.Guid System.Int32 System.Text.StringBuilder " \
                  "System.Collections.Generic.List`1 System.Collections.Generic.Dictionary`2 " \
                  "System.Threading.Tasks.Task System.Threading.Monitor System.IO.File System.IO.Path " \
                  "System.IO.Stream System.Runtime.CompilerServices.RuntimeHelpers System.Type System.Delegate", core, " ")
        split("Invoke Execute Send Receive Read Write", names, " ")
        for (i = 0; size < limit; i++) {
            class = i % 5 == 0 ? core[(i * 7919) % n + 1] : sprintf("Company%d.Service%d.Endpoint%d", i % 97, i % 1013, i)
            line = "TraceOneMethodOfClass: " class " " names[i % 6 + 1]
            print line
            size += length(line) + 1
        }
    }'
}

# The median, minimum and maximum of numbers apart by blanks or lines.
median_of() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)], v[1], v[NR]}'; }

# Each run's account of the rewrite and compile per method, kept beside the
# installation, whose log the next run writes anew.
keep_account() {  # installation
    grep -hE '^  per method:' "$work/$1"/native_*.log >>"$work/$1.account" 2>/dev/null || true
}

# The account over every run of an installation: medians of the rewrite and
# of the runtime's own compile per method, and of their ratio, which one run
# alone gives too noisily to compare two libraries by.
account() {  # installation label
    local pairs
    pairs=$(sed -E 's/.*rewrite ([0-9.]+) us.*own compile ([0-9.]+) us.*/\1 \2/' "$work/$1.account" 2>/dev/null || true)
    [[ -n $pairs ]] || return 0
    median() { median_of "$(awk "{print $1}" <<<"$pairs")" | cut -d' ' -f1; }
    printf '%-14s rewrite %s us, runtime compile %s us a method, rewrite / compile %.3f (medians of %d runs)\n' "$2" \
        "$(median '$1')" "$(median '$2')" "$(median '$1 / $2')" "$(wc -l <<<"$pairs")"
}

configurations=("1 no profiler" "2 no profiler, DOTNET_ReadyToRun=0" "3 profiler, hidden directives only"
                "4 profiler, the program's own classes")
[[ -n $other ]] && configurations+=("5 other library, the program's own classes")
if [[ -n $large ]]; then
    programs=(Hello)
    configurations=("1 no profiler" "4 profiler, the program's own classes"
                    "c profiler, own classes + one core line" "6 profiler, 5 MB of one-method lines"
                    "7 profiler, 50 MB of one-method lines")
    [[ -n $other ]] && configurations+=("8 other library, 5 MB of one-method lines"
                                        "9 other library, 50 MB of one-method lines")
    install core $'IdentifyAssemblyAs: Hello Own\nTraceAllMethodsIfFlagged: Own\nTurnOn: Own\nTraceOneMethodOfClass: System.IO.Stream Read\n'
    for megabytes in 5 50; do
        install "large$megabytes" ""
        generated "$megabytes" >"$work/large$megabytes/program.fmd"
    done
fi
environment() {  # configuration program
    case $1 in
    1*) echo "" ;;
    2*) echo "DOTNET_ReadyToRun=0" ;;
    3*) profiled hidden ;;
    4*) profiled "own-$2" ;;
    5*) profiled "other-$2" "$other" ;;
    6*) profiled large5 ;;
    7*) profiled large50 ;;
    8*) profiled large5 "$other" ;;
    9*) profiled large50 "$other" ;;
    c*) profiled core ;;
    esac
}

install hidden
declare -A samples
for program in "${programs[@]}"; do
    install "own-$program" $'IdentifyAssemblyAs: '"$program"$' Own\nTraceAllMethodsIfFlagged: Own\nTurnOn: Own\n'
    [[ -n $other ]] && install "other-$program" $'IdentifyAssemblyAs: '"$program"$' Own\nTraceAllMethodsIfFlagged: Own\nTurnOn: Own\n'
    for configuration in "${configurations[@]}"; do
        # shellcheck disable=SC2046
        timed "$program" $(environment "$configuration" "$program") >/dev/null
        samples["$program/$configuration"]=""
    done
done
for ((i = 0; i < runs; i++)); do
    for program in "${programs[@]}"; do
        for configuration in "${configurations[@]}"; do
            # shellcheck disable=SC2046
            samples["$program/$configuration"]+="$(timed "$program" $(environment "$configuration" "$program")) "
            case $configuration in
            4*) keep_account "own-$program" ;;
            5*) keep_account "other-$program" ;;
            esac
        done
    done
done

for program in "${programs[@]}"; do
    read -r baseline _ _ <<<"$(median_of "${samples["$program/1 no profiler"]}")"
    printf '\n%s (%d runs)\n%-40s %8s %8s %8s %7s\n' "$program" "$runs" configuration median min max ratio
    for configuration in "${configurations[@]}"; do
        read -r median low high <<<"$(median_of "${samples["$program/$configuration"]}")"
        printf '%-40s %5d ms %5d ms %5d ms %6.2fx\n' "${configuration#* }" "$median" "$low" "$high" \
            "$(awk -v m="$median" -v b="$baseline" 'BEGIN {print m / b}')"
    done
    echo "methods rewritten with the program's own classes selected:" \
        "$(cat "$work/own-$program"/native_*.log 2>/dev/null | grep -c '^Instrumented \[' || true)"
    # The profiler's own account of its last run: time by phase, and the
    # rewrite per method beside the runtime's own compile per method.
    cat "$work/own-$program"/native_*.log 2>/dev/null | grep -E '^  (time in callbacks|per method):' | tail -2 || true
    account "own-$program" "this library"
    [[ -n $other ]] && account "other-$program" "other library"
done
