#!/usr/bin/env bash
# The main job: lays out an agent installation (profile, directives, the test
# agent), runs a sample program with and without the profiler, and shows what was
# instrumented, what the agent received, and that the program's output is unchanged.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(pwd)/build
program=$build/e2e/Traced/Traced.dll
demo=$build/demo
export DOTNET_CLI_TELEMETRY_OPTOUT=1

rm -rf "$demo"
mkdir -p "$demo/agent/bin/netcore"
cp "$build"/e2e/agent/* "$demo/agent/bin/netcore/"
cat > "$demo/agent/default.properties" <<PROPERTIES
harrowlite.fieldmark.enable=true
harrowlite.nativeprofiler.logfile=native.log
harrowlite.fieldmark.directivesFile=demo.fmd
PROPERTIES
# Every method of the sample assembly is selected.
cat > "$demo/agent/demo.fmd" <<DIRECTIVES
IdentifyAssemblyAs: Traced Everything
TraceAllMethodsIfFlagged: Everything
TurnOn: Everything
DIRECTIVES

echo "== the sample program without the profiler"
plain=$(cd "$demo" && dotnet "$program")
echo "$plain"

echo "== the same program under the profiler"
profiled=$(cd "$demo" && CORECLR_ENABLE_PROFILING=1 \
    CORECLR_PROFILER='{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}' \
    CORECLR_PROFILER_PATH="$build/tarn.NativeProfiler.so" \
    TMSENV_AGENT_PROFILE="$demo/agent/default.properties" \
    TARN_AGENT_RECORD="$demo/record.txt" \
    dotnet "$program")
echo "$profiled"

log=$(ls "$demo"/agent/native_*.log)
echo "== native log: $log"
echo "-- start-up and shim"
grep -E '^(Runtime Info|Application|Defined Synthetic Shim|Looking for agent|Loaded )' "$log" || true
echo "-- methods rewritten ($(grep -c '^Instrumented' "$log"))"
grep '^Instrumented' "$log" | head -20
echo "== what the agent received: $demo/record.txt ($(wc -l < "$demo/record.txt") calls), the first 25"
head -25 "$demo/record.txt"

if [ "$profiled" = "$plain" ]; then
    echo "== the program's output is unchanged under the profiler"
else
    echo "== the program's output differs under the profiler" >&2
    exit 1
fi
