#!/usr/bin/env bash
# Sets up, builds, and runs every test: unit suites, exports check, end-to-end runs.
set -euo pipefail
cd "$(dirname "$0")"
scripts/setup.sh
scripts/build.sh
scripts/line-counts.sh
cd build
ctest --output-on-failure "$@" || {
    status=$?
    # Each failed check's first lines again, last, where a reader of the tail sees them.
    grep -h -A8 -E ': Failure$' Testing/Temporary/LastTest.log | cut -c1-300 | head -60 || true
    exit $status
}
