#!/usr/bin/env bash
# Builds and runs every test: the default build runs the whole suite; the
# AddressSanitizer + UndefinedBehaviorSanitizer build runs it again except the
# slow timing tests; the ThreadSanitizer build runs the tests labelled
# `threads` (concurrent callers, cross-thread closing, concurrent sessions).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
bash scripts/install-deps.sh "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"

echo "=== default build: every test ==="
cmake --preset default >/dev/null
cmake --build --preset default
ctest --preset default

echo "=== asan build: every test but the slow timing ones ==="
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan -LE slow

echo "=== tsan build: the concurrency tests ==="
cmake --preset tsan >/dev/null
cmake --build --preset tsan --target pam_thread_tests
ctest --preset tsan -L threads
