#!/usr/bin/env bash
# Non-blank lines of the product's C++ and of the tests' C++ (tests/), and their ratio.
set -euo pipefail
cd "$(dirname "$0")/.."
count() { cat "$@" 2>/dev/null | grep -cv '^[[:space:]]*$' || true; }
product=$(count $(git ls-files '*.cpp' '*.h' | grep -v -E '^(tests|bench)/'))
tests=$(count $(git ls-files 'tests/*.cpp' 'tests/*.h'))
echo "non-blank C++ lines: product $product, tests $tests ($((100 * tests / product)) % of the product)"
