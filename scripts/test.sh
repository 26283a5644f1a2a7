#!/usr/bin/env bash
# Builds the kit, the local service and the tests, then runs every test (offscreen), once in the
# developer build and once under AddressSanitizer + UndefinedBehaviorSanitizer; then replays the
# fuzz targets' corpora in the fuzz build.
#   scripts/test.sh            the three presets, the layer check and a plain CMake build
#   scripts/test.sh dev        one preset (dev, asan or fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
python3 scripts/check-layers.py
if [ $# -eq 0 ]; then
    # The package as a Qt developer builds it: CMake's default generator, no preset, the kit
    # alone; it must export its public classes and nothing else.
    echo "=== plain cmake build (default generator)"
    cmake -S . -B build/plain -DVISTREL_BUILD_TESTS=OFF -DVISTREL_BUILD_SERVICE=OFF \
        -DVISTREL_BUILD_BENCH=OFF
    cmake --build build/plain -j "$(nproc)"
    # Besides the public classes, the kit exports only the private API its conference library
    # links (which it links with --no-undefined, so a missing export fails that build).
    symbols=$(nm -DC --defined-only build/plain/src/Vistrel/libVistrel.so)
    grep -q "VistrelKit::OrvaneVistrel::start()" <<<"$symbols"
    if grep -E "VistrelKit::(Vistrel|ViewMonitor|XhrMessageSender|ChatView)::" <<<"$symbols"; then
        echo "The package exports private classes" >&2
        exit 1
    fi
    conference=$(nm -DC --defined-only build/plain/src/VistrelConference/libVistrelConference.so)
    grep -q "VistrelKit::OrvaneConference::join" <<<"$conference"

fi
presets=("${@:-dev asan fuzz}")
for preset in ${presets[@]}; do
    echo "=== preset $preset"
    cmake --preset "$preset"
    cmake --build --preset "$preset" -j "$(nproc)"
    ctest --preset "$preset" -j 2
done
