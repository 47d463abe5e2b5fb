#!/usr/bin/env bash
# One hot reload of directives in a program with ten thousand compiled
# methods, every one of them selected: how long the reload takes (the walk over
# the compiled methods holds the profiler's lock), and the longest first call of
# a fresh method, which waits for its compile, before and during the reload.
# Then twenty plugins are loaded and unloaded: the account's time in module
# unloads, which hold the same lock.
#
# Usage: bench/hot_reload.sh <build directory>
set -euo pipefail
build=${1:?usage: $0 <build directory>}
build=$(cd "$build" && pwd)
program=$build/e2e/Reload/Reload.dll
agent=$build/e2e/agent
for needed in "$program" "$build/tarn.NativeProfiler.so" "$agent/tarn.Agent.dll"; do
    [[ -e $needed ]] || { echo "missing $needed: build the tarn_e2e_tests target first" >&2; exit 1; }
done
work=$(mktemp -d /tmp/tarn-reload-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/agent/bin/netcore"
cp "$agent"/* "$work/agent/bin/netcore/"
printf 'harrowlite.fieldmark.enable=true\nharrowlite.nativeprofiler.logfile=native.log\nharrowlite.fieldmark.directivesFile=bench.fmd\n' \
    >"$work/agent/default.properties"
printf 'IdentifyAssemblyAs: BenchWarm Everything\nIdentifyAssemblyAs: BenchProbe Everything\nTraceAllMethodsIfFlagged: Everything\nTurnOn: Everything\n' \
    >"$work/agent/bench.fmd"
cd "$work"
CORECLR_ENABLE_PROFILING=1 CORECLR_PROFILER='{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}' \
CORECLR_PROFILER_PATH="$build/tarn.NativeProfiler.so" TMSENV_AGENT_PROFILE="$work/agent/default.properties" \
    DOTNET_CLI_TELEMETRY_OPTOUT=1 dotnet "$program" bench
grep -E '^(PDB reload complete|Hot Reload processing|Hot Reload complete)' "$work"/agent/native_*.log
grep -oE 'module unloads [0-9.]+ ms' "$work"/agent/native_*.log | tail -1
