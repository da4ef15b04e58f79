#!/usr/bin/env bash
# Installs what is missing, builds, makes a stream with sound and plays it in a window, then again into memory, where SDL writes
# the sound that is played to a file. Writes out/screenshot.png, out/contact-sheet.png, out/summary.json, out/sound.wav and its
# wave form, out/sound.png, and out/recorded.avi, recorded while it played. Without a display it starts a private X server.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset release -DCORVANE_BUILD_TESTS=OFF -DCORVANE_BUILD_FUZZ=OFF -DCORVANE_BUILD_BENCH=OFF -B build/demo >/dev/null
cmake --build build/demo

mkdir -p out
ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=1280x720:rate=25 \
    -f lavfi -i "aevalsrc=0.6*sin(2*PI*(200+150*t)*t)*lt(mod(t\,1)\,0.7):s=8000" -t 8 \
    -c:v libx264 -preset veryfast -tune zerolatency -g 50 -pix_fmt yuv420p -c:a pcm_alaw out/demo.mkv

. scripts/display.sh
trap stopDisplay EXIT
[ -n "${DISPLAY:-}" ] || startDisplay 1280x720
build/demo/apps/play/corvane-play --buffer 200 --screenshot out/screenshot.png@4 out/demo.mkv
SDL_AUDIODRIVER=disk SDL_DISKAUDIOFILE=out/sound.pcm \
    build/demo/apps/play/corvane-play --headless --buffer 200 --contact-sheet out/contact-sheet.png --stats out/summary.json \
    --record out/recorded.avi out/demo.mkv
ffmpeg -nostdin -v error -y -f s16le -ar 8000 -ac 1 -i out/sound.pcm out/sound.wav
ffmpeg -nostdin -v error -y -i out/sound.wav -filter_complex showwavespic=size=1000x240 -frames:v 1 out/sound.png
cat out/summary.json
echo "pictures: out/screenshot.png out/contact-sheet.png"
echo "sound: out/sound.wav out/sound.png; recorded while it played: out/recorded.avi"
