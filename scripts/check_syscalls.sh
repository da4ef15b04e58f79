#!/usr/bin/env bash
# check_syscalls.sh PROGRAM: the player under strace. No timed wait uses the wall clock, and a thread that the system refuses
# costs a sentence or a picture and is no crash.
set -euo pipefail
trap 'echo "$0: line $LINENO failed" >&2' ERR
play=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 1 -c:v libx264 -tune zerolatency -pix_fmt yuv420p h264.mp4

strace -f -qq -e trace=futex -o waits "$play" --headless --quiet --threads 1 h264.mp4
if grep 'FUTEX_CLOCK_REALTIME' waits | grep 'tv_sec' >/dev/null; then
    grep 'FUTEX_CLOCK_REALTIME' waits | grep 'tv_sec' | head -3
    echo "a wait depends on the wall clock"
    exit 1
fi
grep -q 'tv_sec' waits # there were timed waits

for n in 1 2 3 4 5; do
    status=0
    strace -f -qq -o trace -e trace=clone3 -e "inject=clone3:error=EAGAIN:when=$n+" \
        timeout 20 "$play" --headless --quiet --threads 2 h264.mp4 2>error || status=$?
    [ "$status" -lt 124 ] || { echo "threads refused from the ${n}th on: status $status"; cat error; exit 1; }
done
echo "waits and refused threads are as they should be"
