#!/usr/bin/env bash
# Builds and runs the demo host app against its embedded local service.
# --qml runs the same app written in QML (vistrel-demo-qml) instead of the Qt Widgets one.
# Extra arguments go to the demo (e.g. --server HOST:PORT --scheme https).
#
# Video calls open the service's stand-in meeting over HTTPS. The test authority
# (tests/tls/make-test-authority.sh) is made into build/release/tests/tls, and the demo alone runs
# with HOME pointing at its home directory, whose NSS database trusts the authority: Qt WebEngine
# accepts the meeting's certificate without ignoring any error. VISTREL_TEST_TLS_DIR tells the
# embedded service where the certificate and key are. Your own HOME is not touched.
set -euo pipefail
cd "$(dirname "$0")/.."

demo=demo
args=()
for arg in "$@"; do
    if [ "$arg" = --qml ]; then
        demo=demo-qml
    else
        args+=("$arg")
    fi
done

scripts/install-deps.sh
cmake --preset release -DVISTREL_BUILD_BENCH=OFF >/dev/null
cmake --build --preset release -j "$(nproc)" --target "vistrel-$demo"
tls=$PWD/build/release/tests/tls
tests/tls/make-test-authority.sh "$tls"
# The demo's settings and caches follow HOME too; keep them with the test authority.
# X clients find their cookie under HOME unless told.
exec env HOME="$tls/home" XAUTHORITY="${XAUTHORITY:-$HOME/.Xauthority}" VISTREL_TEST_TLS_DIR="$tls" "build/release/examples/$demo/vistrel-$demo" "${args[@]}"
