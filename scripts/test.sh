#!/usr/bin/env bash
# Builds the kit, the local service and the tests, then runs every test (offscreen), once in the
# developer build and once under AddressSanitizer + UndefinedBehaviorSanitizer.
#   scripts/test.sh            both presets
#   scripts/test.sh dev        one preset (dev or asan)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
presets=("${@:-dev asan}")
for preset in ${presets[@]}; do
    echo "=== preset $preset"
    cmake --preset "$preset"
    cmake --build --preset "$preset" -j "$(nproc)"
    ctest --preset "$preset" -j 2
done
