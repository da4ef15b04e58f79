#!/usr/bin/env bash
# Installs what is missing, builds, makes a stream and plays it in a window, then again into memory. Writes out/screenshot.png,
# out/contact-sheet.png and out/summary.json. Without a display it starts a private X server.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset release -DCORVANE_BUILD_TESTS=OFF -DCORVANE_BUILD_FUZZ=OFF -DCORVANE_BUILD_BENCH=OFF -B build/demo >/dev/null
cmake --build build/demo

mkdir -p out
ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=1280x720:rate=25 -t 8 \
    -c:v libx264 -preset veryfast -tune zerolatency -g 50 -pix_fmt yuv420p out/demo.mp4

. scripts/display.sh
trap stopDisplay EXIT
[ -n "${DISPLAY:-}" ] || startDisplay 1280x720
build/demo/apps/play/corvane-play --buffer 200 --screenshot out/screenshot.png@4 out/demo.mp4
build/demo/apps/play/corvane-play --headless --buffer 200 --contact-sheet out/contact-sheet.png --stats out/summary.json out/demo.mp4
cat out/summary.json
echo "pictures: out/screenshot.png out/contact-sheet.png"
