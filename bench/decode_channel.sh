#!/usr/bin/env bash
# decode_channel.sh BUILD [ROUNDS]: decoder channels beside libavcodec by hand and beside the program ffmpeg.
set -euo pipefail
build=$(realpath "$1")
rounds=${2:-7}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=1920x1080:rate=25 -vf noise=alls=12:allf=t -t 8 -c:v libx264 -preset veryfast \
    -bf 0 -g 50 -b:v 6M -pix_fmt yuv420p -f h264 "$work/large.h264"
ffmpeg -nostdin -v error -i "$work/large.h264" -t 4 -vf scale=640:360 -c:v libx264 -preset veryfast -bf 0 -g 50 -b:v 1M -f h264 \
    "$work/small.h264"
"$build/bench/decode_channel" "$work/large.h264" "$rounds"
# The same file to the end of a pipe that keeps nothing; processor seconds of each in turn.
python3 - "$build/apps/play/corvane-play" "$work/large.h264" "$rounds" <<'PY'
import os, resource, statistics, subprocess, sys
play, stream, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3])
def seconds(*command):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
ours, theirs = [], []
for _ in range(rounds):
    ours.append(seconds(play, "--decode-only", "--quiet", "--threads", "1", "--raw", "i420", "/dev/null", stream))
    theirs.append(seconds("ffmpeg", "-nostdin", "-v", "error", "-threads", "1", "-i", stream, "-threads", "1",
                          "-f", "rawvideo", "-y", "/dev/null"))
print(f"the player to /dev/null {statistics.median(ours):.3f} s, ffmpeg {statistics.median(theirs):.3f} s, "
      f"ratio {statistics.median(a / b for a, b in zip(ours, theirs)):.3f}")
PY
"$build/bench/decode_channel" "$work/small.h264" 3 64 8
