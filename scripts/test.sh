#!/usr/bin/env bash
# Builds and runs every test. The whole suite runs in the AddressSanitizer +
# UndefinedBehaviorSanitizer build (the slow timing test included); the
# ThreadSanitizer build runs the tests labelled `threads` (concurrent callers,
# closing from another thread, concurrent sessions).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
bash scripts/install-deps.sh "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"

echo "=== asan build: every test ==="
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan

echo "=== tsan build: the concurrency tests ==="
cmake --preset tsan >/dev/null
cmake --build --preset tsan --target pam_thread_tests
ctest --preset tsan -L threads
