#!/usr/bin/env bash
# Builds the SDK and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
bash scripts/install-deps.sh "${BUILD_PACKAGES[@]}"
cmake --preset default -DPAM_BUILD_TESTS=OFF -DPAM_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build --preset default
exec build/default/examples/pam_message_roundtrip
