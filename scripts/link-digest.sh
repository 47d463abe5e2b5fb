#!/usr/bin/env bash
# One digest of what decides how the library is linked and what it needs of a
# machine; tests/minimal-root.stamp holds the digest that scripts/minimal-root.sh
# last passed with (write it with: scripts/link-digest.sh > tests/minimal-root.stamp).
set -euo pipefail
cd "$(dirname "$0")/.."
cat CMakeLists.txt tools/CMakeLists.txt platform/GlibcBaseline.cpp platform/UnwindObjectLookup.cpp \
    scripts/fetch-re2.sh scripts/minimal-root.sh | sha256sum | cut -d' ' -f1
