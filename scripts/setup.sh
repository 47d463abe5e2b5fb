#!/usr/bin/env bash
# Installs what building and testing need, where a machine lacks it.
set -euo pipefail

missing=()
command -v g++ >/dev/null || missing+=(g++)
command -v cmake >/dev/null || missing+=(cmake)
command -v nm >/dev/null || missing+=(binutils)
[ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
[ -f /usr/include/gmock/gmock.h ] || missing+=(libgmock-dev)
[ -f /usr/include/benchmark/benchmark.h ] || missing+=(libbenchmark-dev)
command -v valgrind >/dev/null || missing+=(valgrind)

"$(dirname "$0")"/install-missing.sh ${missing[@]+"${missing[@]}"}
"$(dirname "$0")"/fetch-re2.sh

if ! command -v dotnet >/dev/null; then
    echo "The .NET SDK (dotnet) is required and is not on PATH." >&2
    exit 1
fi
export DOTNET_CLI_TELEMETRY_OPTOUT=1 DOTNET_NOLOGO=1
