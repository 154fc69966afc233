#!/usr/bin/env bash
# Builds the tree with coverage instrumentation, runs the suite (the slow
# timing tests left out) and prints line and branch coverage of sdk/,
# service/ and tools/.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
bash scripts/install-deps.sh "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" gcovr

cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage -LE slow >/dev/null || echo "(some tests failed; coverage is still reported)"
for part in sdk service tools; do
  echo "=== $part ==="
  gcovr --root . --filter "$part/" --exclude-throw-branches --exclude-unreachable-branches \
    --gcov-ignore-parse-errors --print-summary -o /dev/null build/coverage 2>/dev/null | grep -E '^(lines|branches):' || true
done
