#!/usr/bin/env bash
# Builds the kit, the local service and the tests, then runs every test (offscreen).
#   scripts/test.sh          developer preset
#   scripts/test.sh asan     AddressSanitizer + UndefinedBehaviorSanitizer preset
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-dev}"

scripts/install-deps.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j 2
