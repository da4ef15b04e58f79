#!/usr/bin/env bash
# profile.sh BUILD [SECONDS] [SIZE] [RENDERER]: where the processor time of a picture goes on the paced path: a 1920x1080 H.264
# stream at 25 pictures/s in a window of SIZE under a private X server, one decoder thread. Milliseconds a picture by thread
# and by library or function, sampled every 0.1 ms of processor time, from two seconds after the start on, so that what
# starting costs is not in them. Needs perf (linux-perf) and the right to sample one's own processes.
set -euo pipefail
build=$(realpath "$1")
seconds=${2:-20}
size=${3:-1920x1080}
renderer=${4:-default}
work=$(mktemp -d)
trap 'kill "$server" 2>/dev/null; rm -rf "$work"' EXIT
cd "$work"
ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=1920x1080:rate=25,noise=alls=12:allf=t" -t $((seconds + 2)) -c:v libx264 -preset veryfast \
    -b:v 4M -g 50 -bf 0 -refs 1 -pix_fmt yuv420p large.mp4
mkfifo display
Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp -noreset 3>display 2>/dev/null &
server=$!
DISPLAY=:$(head -n 1 display)
export DISPLAY
options=(--quiet --threads 1 --size "$size")
[[ $renderer == default ]] || options+=(--renderer "$renderer")
perf record -q -e task-clock -c 100000 -D 2000 -o samples "$build/apps/play/corvane-play" "${options[@]}" large.mp4
perf script -i samples -F comm,ip,sym,dso 2>/dev/null | python3 -c '
import collections, re, sys
pictures = 25 * int(sys.argv[1])
by = collections.Counter()
for line in sys.stdin:
    found = re.match(r"\s*(.+?)\s+[0-9a-f]+ (.*) \((.*)\)\s*$", line)
    if not found:
        continue
    thread, symbol, library = found.groups()
    library = library.rsplit("/", 1)[-1].split(".so")[0]
    if "kernel" in library or library == "[unknown]":
        what = "the system"
    elif library == "libcorvane" and "corvane::kernels::" in symbol:
        what = "libcorvane, " + re.sub(r".*::", "", symbol.split("+")[0].split("(")[0]) + " (kernel)"
    else:
        what = library
    by[thread, what] += 1
threads = collections.Counter()
for (thread, _), count in by.items():
    threads[thread] += count
ms = lambda count: 0.1 * count / pictures
print(f"ms a picture of {pictures}; {sys.argv[2]}, renderer {sys.argv[3]}")
for thread, total in threads.most_common():
    print(f"{thread:16}{ms(total):8.3f}")
    for (owner, what), count in by.most_common():
        if owner == thread and ms(count) >= 0.003:
            print(f"    {what:40}{ms(count):8.3f}")
print(f"{str():16}{ms(sum(threads.values())):8.3f}  altogether")
' "$seconds" "$size" "$renderer"
