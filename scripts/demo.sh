#!/usr/bin/env bash
# Runs the sample program without and with the profiler and compares the two runs.
set -euo pipefail
cd "$(dirname "$0")/.."
program=build/e2e/Hello/Hello.dll
profiler=$(pwd)/build/tarn.NativeProfiler.so
export DOTNET_CLI_TELEMETRY_OPTOUT=1

echo "== without the profiler"
plain=$(dotnet "$program")
echo "$plain"
echo "== with the profiler ($profiler)"
profiled=$(CORECLR_ENABLE_PROFILING=1 \
    CORECLR_PROFILER='{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}' \
    CORECLR_PROFILER_PATH="$profiler" \
    TARN_E2E_REPORT_MAPS=1 \
    dotnet "$program" 2>&1)
echo "$profiled"
if [ "$(echo "$profiled" | grep -v '^mapped: ')" = "$plain" ]; then
    echo "== the program's output is unchanged under the profiler"
else
    echo "== the program's output differs under the profiler" >&2
    exit 1
fi
