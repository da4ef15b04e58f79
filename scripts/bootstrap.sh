#!/usr/bin/env bash
# Installs what is missing to build, run and test on Debian 12. As root, or with sudo.
set -euo pipefail

packages=(
    build-essential cmake ninja-build ccache pkg-config git python3 binutils
    clang-14 clang libclang-rt-14-dev clang-format-14 clang-tidy-14
    libavcodec-dev libavformat-dev libavutil-dev libswscale-dev libswresample-dev
    libhwy-dev libcairo2-dev libxcb1-dev libxcb-shm0-dev libxcb-randr0-dev libxcb-present-dev libxcb-res0-dev
    xvfb fonts-dejavu-core libsdl2-dev libgtk-3-dev
    libgtest-dev libyuv-dev libjpeg62-turbo-dev ffmpeg
    libspandsp-dev libbcg729-dev espeak-ng
    googletest g++-aarch64-linux-gnu qemu-user
    locales strace util-linux
    mpv gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-libav
)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "installed: ${missing[*]}"
