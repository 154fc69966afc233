#!/usr/bin/env bash
# Builds and runs every test: the default build, then the AddressSanitizer
# and ThreadSanitizer builds.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
bash scripts/install-deps.sh "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
for preset in default asan tsan; do
  echo "=== ${preset} build ==="
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}"
  ctest --preset "${preset}"
done
