#!/usr/bin/env bash
# check_install.sh BUILD: installs that build into a folder of its own, moves it, builds the examples against it by
# CMake and by pkg-config, and runs them on a real key frame.
set -euo pipefail
trap 'echo "$0: line $LINENO failed" >&2' ERR
build=$(realpath "$1")
source=$(realpath "$(dirname "$0")/..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

DESTDIR= cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240 -frames:v 1 -c:v libx264 -tune zerolatency -pix_fmt yuv420p \
    -f h264 "$work/key.h264"

cmake -S "$source/examples" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/first" "$work/key.h264" | grep -qx 'picture 320 x 240, 307200 bytes'

config=$(dirname "$(find "$work/prefix" -name corvane.pc)")
export PKG_CONFIG_PATH=$config
# shellcheck disable=SC2046
cc -std=c99 -D_DEFAULT_SOURCE -Wall -Wextra -Werror "$source/examples/first.c" -o "$work/first" $(pkg-config --cflags --libs corvane)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir corvane) "$work/first" "$work/key.h264" | grep -q '^picture 320 x 240'

"$work/prefix/bin/corvane-play" --help >/dev/null
echo "installed package works by CMake and by pkg-config"
