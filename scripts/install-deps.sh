#!/usr/bin/env bash
# Installs the Debian 12 packages the kit, the local service, the demos, the tests and the fuzz
# targets need.
set -euo pipefail

packages=(
    cmake ninja-build make g++ pkg-config python3
    qt6-base-dev qt6-base-dev-tools qt6-base-private-dev qt6-websockets-dev qt6-httpserver-dev
    qt6-webengine-dev qt6-webengine-dev-tools qt6-webchannel-dev qt6-pdf-dev
    # The QML demo: Qt Quick to build it, and the QML modules it imports at run time.
    qt6-declarative-dev qml6-module-qtquick qml6-module-qtquick-controls
    qml6-module-qtquick-templates qml6-module-qtquick-layouts qml6-module-qtqml-workerscript
    libgl-dev libxkbcommon-dev
    libprotobuf-dev protobuf-compiler nlohmann-json3-dev libbenchmark-dev
    chromium libnss3-tools
    # The fuzz preset (llvm-15 for its symbolizer): clang 14 lacks the builtin that libstdc++ 12's
    # std::source_location needs.
    clang-15 libfuzzer-15-dev llvm-15
)
# The browser test runs on Node.js; a Node.js from elsewhere (with its own npm) is kept.
command -v npm >/dev/null 2>&1 || packages+=(nodejs npm)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done

if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    SUDO=""
    [ "$(id -u)" -ne 0 ] && SUDO="sudo"
    $SUDO apt-get update -q
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
