#!/usr/bin/env bash
# locks.sh BUILD [PLACES]: how often the library locks a mutex for each picture that is shown: 640x360 at 25/s, one decoder
# thread, no text; on a window, and headless. From two runs of different length, so that beginning and end do not count. With
# PLACES, also that many places of each that lock most often (the build must have debug information for names).
set -euo pipefail
build=$(realpath "$1")
places=${2:-0}
source "$(dirname "$0")/../scripts/display.sh"
work=$(mktemp -d)
trap 'stopDisplay; rm -rf "$work"' EXIT
cd "$work"
ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=640x360:rate=25" -t 12 -c:v libx264 -preset veryfast -b:v 1M -g 50 -bf 0 \
    -refs 1 -pix_fmt yuv420p stream.mp4
startDisplay 800x600

run() {    # NAME SECONDS OPTIONS...: counts in NAME.SECONDS.locks, statistics in NAME.SECONDS.json
    local name=$1 seconds=$2
    shift 2
    LD_PRELOAD="$build/bench/lock_count.so" LOCK_COUNT="$name.$seconds.locks" "$build/apps/play/corvane-play" --quiet --threads 1 \
        --seconds "$seconds" --stats "$name.$seconds.json" "$@" stream.mp4
}
for seconds in 3 11; do
    run window "$seconds" --size 640x360
    run headless "$seconds" --headless --format i420
done
python3 - "$build/src/libcorvane.so" "$places" <<'PY'
import collections, json, subprocess, sys
library, places = sys.argv[1], int(sys.argv[2])

def counts(name, seconds):
    table = collections.Counter()
    for line in open(f"{name}.{seconds}.locks"):
        count, place = line.split()
        table[place] += int(count)
    return table, json.load(open(f"{name}.{seconds}.json"))["shown"]

for name in ("window", "headless"):
    short, shown_short = counts(name, 3)
    long, shown_long = counts(name, 11)
    long.subtract(short)
    pictures = shown_long - shown_short
    print(f"{name:9} {sum(long.values()) / pictures:6.1f} locks a shown picture, over {pictures} pictures")
    for place, count in long.most_common(places):
        where = subprocess.run(["addr2line", "-Cfpse", library, hex(int(place, 16) - 1)], capture_output=True, text=True).stdout.strip()
        print(f"  {count / pictures:6.2f}  {where}")
PY
