#!/usr/bin/env bash
# Builds and runs the demo host app against its embedded local service.
# Extra arguments go to the demo (e.g. --server HOST:PORT --scheme https).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release -DVISTREL_BUILD_BENCH=OFF >/dev/null
cmake --build --preset release -j "$(nproc)" --target vistrel-demo
exec build/release/examples/demo/vistrel-demo "$@"
