#!/usr/bin/env bash
# Sets up, builds, and runs the sample .NET program under the profiler, then shows
# what the profiler did.
set -euo pipefail
cd "$(dirname "$0")"
scripts/setup.sh
scripts/build.sh
scripts/demo.sh
