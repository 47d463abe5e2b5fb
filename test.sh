#!/usr/bin/env bash
# Sets up, builds, and runs every test: unit suites, exports check, end-to-end runs.
set -euo pipefail
cd "$(dirname "$0")"
scripts/setup.sh
scripts/build.sh
scripts/line-counts.sh
cd build
ctest --output-on-failure "$@"
