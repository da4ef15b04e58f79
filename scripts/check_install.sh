#!/usr/bin/env bash
# check_install.sh BUILD: installs that build into a temporary folder, moves the folder, builds the examples with it by CMake
# and by pkg-config, and runs them on a key frame; one on sound, those with windows on a stream, on a private X server.
set -euo pipefail
trap 'echo "$0: line $LINENO failed" >&2' ERR
build=$(realpath "$1")
source=$(realpath "$(dirname "$0")/..")
. "$source/scripts/display.sh"
work=$(mktemp -d)
trap 'stopDisplay; rm -rf "$work"' EXIT

DESTDIR= cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240 -frames:v 1 -c:v libx264 -tune zerolatency -pix_fmt yuv420p \
    -f h264 "$work/key.h264"
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 120 -c:v libx264 -preset ultrafast -bf 0 -g 25 -slices 2 \
    -aud 1 -pix_fmt yuv420p -f h264 "$work/stream.h264"

cmake -S "$source/examples" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/first" "$work/key.h264" | grep -qx 'picture 320 x 240, 307200 bytes'

# Installed files name no folder of this machine.
! find "$work/prefix" -type f -exec grep -lF "$source" {} + || { echo "a path of the builder is in what was installed"; exit 1; }

config=$(dirname "$(find "$work/prefix" -name corvane.pc)")
export PKG_CONFIG_PATH=$config
options=(-std=c99 -D_DEFAULT_SOURCE -Wall -Wextra -Werror)
# compile NAME PACKAGE...: builds an example with pkg-config alone.
compile() {
    # shellcheck disable=SC2046
    cc "${options[@]}" "$source/examples/$1.c" -o "$work/$1" $(pkg-config --cflags --libs corvane "${@:2}")
}
compile first
compile sound_to_wav
compile decode_to_file
compile record
compile xcb_window xcb
compile sdl_window sdl2
compile gtk_embed gtk+-3.0
LD_LIBRARY_PATH=$(pkg-config --variable=libdir corvane)
export LD_LIBRARY_PATH
"$work/first" "$work/key.h264" | grep -q '^picture 320 x 240'

# The example of a plug-in, built by CMake and by hand, is loaded by the installed library, and unloaded with the instance.
mkdir "$work/plugins"
# shellcheck disable=SC2046
cc "${options[@]}" -shared -fPIC "$source/examples/decoder_plugin.c" -o "$work/plugins/DecoderIsolated_QuickSync.so" \
    $(pkg-config --cflags --libs libavcodec libavutil)
for folder in "$work/plugins" "$work/cmake"; do
    python3 - "$folder" <<'PY'
import ctypes, sys
library = ctypes.CDLL("libcorvane.so.5")
instance = ctypes.c_void_p()
mapped = lambda: open("/proc/self/maps").read().count(sys.argv[1] + "/DecoderIsolated_QuickSync.so") > 0
assert library.Corvane_Initial(ctypes.byref(instance), None, None, None, 0, 0, 0x0505, 0) == 0
assert library.Corvane_LoadDecoders(instance, sys.argv[1].encode()) == 0 and mapped()
assert library.Corvane_Release(ctypes.byref(instance)) == 0 and not mapped()
PY
done

# What the example of raw sound writes is what another decoder gives.
ffmpeg -nostdin -v error -f lavfi -i sine=440 -t 1 -ar 8000 -ac 1 -f alaw "$work/sine.alaw"
ffmpeg -nostdin -v error -f alaw -ar 8000 -ac 1 -i "$work/sine.alaw" -f s16le "$work/sine.pcm"
SDL_AUDIODRIVER=dummy "$work/sound_to_wav" "$work/sine.alaw" "$work/sine.wav" >/dev/null
tail -c +45 "$work/sine.wav" | cmp - "$work/sine.pcm"
[ "$(ffprobe -v error -show_entries stream=sample_rate,channels,duration_ts -of csv=p=0 "$work/sine.wav")" = 8000,1,8000 ]

# What a decoder channel gives is what the program ffmpeg gives, and what is recorded is what was fed.
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 2 -c:v libx264 -bf 0 -g 25 -aud 1 -pix_fmt yuv420p \
    -f h264 "$work/short.h264"
"$work/decode_to_file" "$work/short.h264" "$work/short.i420" >/dev/null
ffmpeg -nostdin -v error -i "$work/short.h264" -f rawvideo -pix_fmt yuv420p "$work/short.yuv"
cmp "$work/short.i420" "$work/short.yuv"
"$work/record" "$work/short.h264" "$work/short.avi" >/dev/null
[ "$(ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 "$work/short.avi")" = h264,50 ]

# Each example shows the stream: at least a third of its pixels have strong colours, which no toolkit draws by itself.
export GDK_BACKEND=x11 NO_AT_BRIDGE=1 HOME="$work"
startDisplay 800x600
for name in xcb_window sdl_window gtk_embed; do
    "$work/$name" "$work/stream.h264" >"$work/$name.log" 2>&1 &
    example=$!
    shown=0
    for _ in $(seq 40); do
        kill -0 "$example" || { cat "$work/$name.log"; exit 1; }
        grabDisplay "$work/grab.rgb"
        shown=$(python3 -c 'import sys
pixels = open(sys.argv[1], "rb").read()
print(sum(max(p) - min(p) > 100 for p in zip(pixels[0::3], pixels[1::3], pixels[2::3])))' "$work/grab.rgb")
        [ "$shown" -gt 100000 ] && break
        sleep 0.5
    done
    [ "$shown" -gt 100000 ] || { echo "$name shows no picture: $shown coloured pixels"; cat "$work/$name.log"; exit 1; }
    kill "$example" && wait "$example" || true
done

# The host and the library both use SDL: the host ends cleanly, and its sound was heard.
SDL_AUDIODRIVER=disk SDL_DISKAUDIOFILE=$work/heard.pcm timeout 60 "$work/sdl_window" "$work/short.h264" "$work/sine.alaw" \
    >"$work/sdl_window.log" 2>&1 || { echo "sdl_window with sound: status $?"; cat "$work/sdl_window.log"; exit 1; }
python3 - "$work/heard.pcm" "$work/sine.pcm" <<'EOF'
import sys
heard, sent = (open(name, "rb").read() for name in sys.argv[1:])
# Any frame will do: on a busy machine those that came before the device was open may be late.
assert any(sent[at:at + 640] in heard for at in range(0, len(sent), 640)), len(heard)
EOF
stopDisplay

"$work/prefix/bin/corvane-play" --help >/dev/null
echo "installed package works by CMake and by pkg-config"
