#!/usr/bin/env bash
# Installs every Debian package Taskrack needs to build, run and test. Safe to run again.
set -euo pipefail
SUDO=
[ "$(id -u)" -eq 0 ] || SUDO=sudo

packages=(
    build-essential cmake ninja-build ccache git python3
    qt6-base-dev qt6-declarative-dev qt6-websockets-dev qcoro-qt6-dev
    qml6-module-qtquick qml6-module-qtquick-window qml6-module-qtqml-workerscript
    libsqlite3-dev libssl-dev libx11-dev libxi-dev libxtst-dev libgl1-mesa-dri
    libgtest-dev libgmock-dev libbenchmark-dev
    xvfb xauth xdotool x11-xkb-utils dbus dbus-x11 procps libdbus-1-dev
    fonts-dejavu-core fonts-wqy-microhei
    clang libclang-rt-14-dev clang-format
    trayer dunst desktop-file-utils python3-dbus python3-gi
    # dictation: microphone, recogniser and its English model
    qt6-multimedia-dev libpocketsphinx-dev pocketsphinx-en-us
    # dictation tests: spoken sentences, recordings and a private sound server
    espeak-ng sox pocketsphinx-testdata pulseaudio pulseaudio-utils
    # Codex hook tests drive the real Codex TUI in a terminal multiplexer
    tmux
    # the Quick Task panel's folder chooser
    qml6-module-qtquick-dialogs qml6-module-qtquick-controls qml6-module-qtquick-layouts
    qml6-module-qtquick-templates qml6-module-qt-labs-folderlistmodel
)
command -v node >/dev/null 2>&1 || packages+=(nodejs)
command -v npm >/dev/null 2>&1 || packages+=(npm)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}" >&2
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
fi
