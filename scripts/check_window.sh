#!/usr/bin/env bash
# check_window.sh PROGRAM HAND: the player with a window under a private X server; window_hand presses its keys.
set -euo pipefail
trap 'echo "$0: line $LINENO failed" >&2' ERR
play=$(realpath "$1")
hand=$(realpath "$2")
. "$(dirname "$0")/display.sh"
work=$(mktemp -d)
trap 'stopDisplay; rm -rf "$work"' EXIT
cd "$work"

ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=640x360:rate=25 -t 3 -c:v libx264 -preset ultrafast -g 25 -pix_fmt yuv420p short.mp4
ffmpeg -nostdin -v error -f lavfi -i "color=red:size=320x240:rate=5,drawbox=x=80:y=60:w=160:h=120:color=green:t=fill" -t 120 \
    -c:v libx264 -preset ultrafast -g 5 -pix_fmt yuv420p long.mp4

field() { sed -n "s/^ *\"$2\": \"\{0,1\}\([^\",]*\)\"\{0,1\},\{0,1\}$/\1/p" "$1"; }
# picture FILE EXPRESSION: the expression holds. It may use w, h, p(x, y) -> (red, green, blue) and colours (their number).
picture() {
    ffmpeg -nostdin -v error -y -i "$1" -f rawvideo -pix_fmt rgb24 "$1.rgb"
    python3 - "$1" "$2" <<'PY'
import struct, sys
w, h = struct.unpack(">II", open(sys.argv[1], "rb").read(24)[16:])
data = open(sys.argv[1] + ".rgb", "rb").read()
p = lambda x, y: tuple(data[3 * (y * w + x):][:3])
colours = len(set(zip(data[0::3], data[1::3], data[2::3])))
red = lambda x, y: p(x, y)[0] > 150 and p(x, y)[1] < 90
green = lambda x, y: p(x, y)[0] < 90 and 80 < p(x, y)[1]
if not eval(sys.argv[2]):
    sys.exit(f"{sys.argv[1]}: not {sys.argv[2]}: {w}x{h}, {colours} colours, middle {p(w // 2, h // 2)}, corner {p(w - 3, h - 3)}")
PY
}
# within COMMAND...: the command succeeds within 20 s.
within() {
    for _ in $(seq 100); do
        "$@" 2>/dev/null && return
        sleep 0.2
    done
    "$@"
}
shows() { grabDisplay screen.png && picture screen.png "$1"; }
is() { [ "$("$hand" "$1" size)" = "$2" ]; }

startDisplay 800x600
# Plays to the end, in a window of the stream's size.
for renderer in default plain gdi compose stretch; do
    rm -f shot.png
    "$play" --quiet --renderer $renderer --stats stats.json --screenshot shot.png short.mp4
    picture shot.png 'w == 640 and h == 360 and colours > 50'
    sum=$(($(field stats.json shown) + $(field stats.json lost) + $(field stats.json waiting_at_end)))
    [ "$(field stats.json fed)" = 75 ] && [ "$sum" = 75 ] && [ "$(field stats.json shown)" -gt 0 ]
    [ "$(field stats.json window_width)" = 640 ]
done

# Keys and mouse. The picture is red, and its middle, of half its size, is green.
"$play" --size 400x300 --stats stats.json long.mp4 2>status & player=$!
said() { [ "$(tail -1 status)" = "$1" ]; }
within shows 'red(50, 50) and green(200, 150) and p(500, 400) == (0, 0, 0)'
"$hand" long.mp4 key:7a # z: the green part fills the window
within shows 'green(20, 20) and green(200, 150)'
"$hand" long.mp4 key:6f # o: an overview with a frame, and in it a frame round the middle
within shows 'green(50, 50) and green(343, 243) and p(293, 250) == (160, 160, 160) and p(320, 250) == (255, 208, 64)'
"$hand" long.mp4 key:7a
within shows 'red(50, 50) and green(343, 243) and p(293, 250) == (160, 160, 160)'
"$hand" long.mp4 key:6f drag:100,75,200,150 # to the upper left quarter of the green part
within said "zoom 4.0"
within shows 'green(3, 3) and green(396, 296)'
"$hand" long.mp4 click:4@0,0 click:4@0,0 click:5@0,0 # the wheel
within said "zoom 5.0"
"$hand" long.mp4 click:3@9,9 # the right button
within said "whole picture"
"$hand" long.mp4 drag:10,20,390,290 drag:20,20,380,280 click:1@9,9 click:1@9,9 # a double click
within said "whole picture"
within shows 'red(50, 50) and green(200, 150)'
"$hand" long.mp4 key:64 # d
within said "deinterlacing on"
"$hand" long.mp4 key:6b key:6b # k
within said "scaling Lanczos"
"$hand" long.mp4 key:6d # m: margins, black with the default renderer
within shows 'p(2, 200) == (0, 0, 0) and red(60, 60) and colours > 4'
"$hand" long.mp4 key:6d size:600x200
within shows 'p(150, 100) == (0, 0, 0) and red(180, 10) and green(300, 100) and red(420, 190) and p(450, 100) == (0, 0, 0)'
"$hand" long.mp4 key:70 # p: the picture fills the window
within shows 'red(10, 10) and red(590, 190) and green(300, 100)'
"$hand" long.mp4 drag:150,50,300,100 # within the picture
within shows 'green(10, 10) and green(590, 190)'
"$hand" long.mp4 key:62 key:66 # b, f
within is long.mp4 800x600+0+0
within shows 'red(790, 590) and green(400, 300)'
"$hand" long.mp4 key:66
within is long.mp4 600x200+0+0
"$hand" long.mp4 key:20 key:77 # pause, w
within [ -s corvane-001.png ]
picture corvane-001.png 'w == 600 and h == 200 and green(300, 100)'
"$hand" long.mp4 key:71
wait $player
[ "$(field stats.json window_width)x$(field stats.json window_height)" = 600x200 ]

# Sound: what is heard is counted, and not played while it is off.
ffmpeg -nostdin -v error -f lavfi -i "color=red:size=320x240:rate=5" -f lavfi -i sine -t 60 -c:v libx264 -preset ultrafast -g 5 \
    -pix_fmt yuv420p -c:a aac sound.mp4
SDL_AUDIODRIVER=dummy "$play" --mute --stats stats.json sound.mp4 2>status & player=$!
within shows 'red(50, 50)'
for step in "30 volume 100" "2d volume 90" "2d volume 80" "2b volume 90" "30 sound off"; do # 0 - - + 0
    "$hand" sound.mp4 "key:${step%% *}"
    within said "${step#* }"
    sleep 0.5
done
"$hand" sound.mp4 key:71
wait $player
[ "$(field stats.json sound_heard)" -gt 0 ] && [ "$(field stats.json sound_not_played)" -gt 0 ]

# Two fields that differ: their lines alternate until the picture is smoothed.
ffmpeg -nostdin -v error -f lavfi -i "color=gray:size=320x240:rate=5,geq=lum='if(mod(Y,2),220,30)':cb=128:cr=128" -t 60 \
    -flags +ildct+ilme -c:v libx264 -x264opts tff=1 -preset ultrafast -g 5 -pix_fmt yuv420p fields.mp4
"$play" --quiet --fill --stats stats.json fields.mp4 & player=$!
comb='sum(abs(p(160, y)[0] - p(160, y + 1)[0]) for y in range(100, 140)) / 40'
within shows "$comb > 100"
"$hand" fields.mp4 key:64 # d
within shows "$comb < 20 and p(160, 120)[0] > 60"
"$hand" fields.mp4 key:71
wait $player
[ "$(field stats.json smoothed)" -gt 0 ] && [ "$(field stats.json refused_smoothing)" = 0 ]

# A wall: cells have the shape of the picture and follow the size of the window; one channel alone, and back.
"$play" --wall 3 --channels 4 --size 404x304 --stats stats.json --screenshot wall.png long.mp4 2>status & player=$!
within shows 'red(5, 20) and green(100, 75) and green(300, 75) and green(100, 225) and p(300, 225) == (0, 0, 0)'
within shows 'p(100, 1) == (80, 176, 255)' # keys go to the first channel
"$hand" long.mp4 key:7a@300,75
within shows 'p(300, 1) == (80, 176, 255) and p(100, 1) != (80, 176, 255)'
"$hand" long.mp4 size:800x600
within said "channel 2: zoom 2.0"
within shows 'red(10, 40) and green(410, 20) and green(200, 450)'
"$hand" long.mp4 key:ff0d@200,450
within shows 'red(20, 300) and green(400, 300) and red(780, 300)'
"$hand" long.mp4 key:ff0d
within shows 'green(410, 20) and green(200, 450)'
kill -TERM $player
wait $player
picture wall.png 'w == 800 and h == 600 and green(410, 20) and green(200, 450) and p(600, 450) == (0, 0, 0)'
[ "$(field stats.json channels)" = 4 ] && [ "$(grep -c '{"fed"' stats.json)" = 4 ]
committed=$(field stats.json committed)
[ "$(field stats.json presented)" -gt 12 ] && [ $(($(field stats.json presented) + $(field stats.json not_presented))) = "$committed" ]

# The window is closed from outside; a window is larger than the screen.
"$play" --quiet --size 4000x1000 long.mp4 & player=$!
within is long.mp4 800x200+0+0
"$hand" long.mp4 close
wait $player

# In a window of another program, until that is destroyed.
mkfifo life
"$hand" owner new:300x200 <life >id & owner=$!
exec 9>life
within [ -s id ]
"$play" --quiet --stats stats.json --window "$(cat id)" long.mp4 9>&- & player=$!
within shows 'p(5, 10) == (0, 0, 0) and red(20, 10) and green(150, 100)'
exec 9>&-
wait $owner
wait $player
[ "$(field stats.json fed)" -lt 600 ] # fewer than the stream has

# Wrong arguments, and a server that ends.
! "$play" --window 1 short.mp4 2>error && grep -q 'no such window' error
! "$play" --contact-sheet x.png short.mp4 2>error && grep -q 'add --headless' error
"$play" --quiet long.mp4 2>error & player=$!
within is long.mp4 320x240+0+0
kill -KILL "$displayProcess"
wait "$displayProcess" 2>/dev/null || status=0
timeout 20 tail --pid=$player -f /dev/null || { echo "the player goes on without a server"; kill -KILL $player; exit 1; }
wait $player || status=$?
[ "$status" = 1 ] && grep -q 'X server went away' error
status=0
DISPLAY=:4711 "$play" --quiet short.mp4 2>error || status=$?
[ "$status" = 1 ] && grep -q 'no X server answers' error
echo "the player shows, obeys and ends as it should"
