#!/usr/bin/env bash
# wall.sh BUILD [SECONDS] [COUNTS]: how many cameras of 1280x720 at 25 pictures/s the player's wall shows, beside as many
# branches of GStreamer in one process, in turn, on the same two cores, under a private X server of 1920x1080. For each
# count: processor seconds of the program and of the server, peak memory, and the share of pictures not presented (of the
# committed ones in the wall; of those that reached the sink in the pipeline). Goal: below 0.1 %.
#
# For this bench only, where missing: gstreamer1.0-tools and the plug-ins base, good, bad, libav and x.
#
# Both scale to the cell of the grid: the wall to an average, the pipeline by the nearest pixel, which is cheaper. Both
# spread their cameras over a picture's 40 ms. The windows of the pipeline lie upon each other, which spares its server.
# What starting costs counts for both. The sink of the pipeline tells its counts from time to time, so its last half second is
# not in them.
set -euo pipefail
build=$(realpath "$1")
seconds=${2:-20}
counts=${3:-1 4 8 16}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=1280x720:rate=25,noise=alls=8:allf=t" -t "$seconds" -c:v libx264 -preset veryfast \
    -b:v 2M -g 50 -bf 0 -refs 1 -pix_fmt yuv420p camera.mp4

python3 - "$build" "$seconds" $counts <<'PY'
import glob, json, math, os, re, subprocess, sys
build, seconds, counts = sys.argv[1], sys.argv[2], [int(n) for n in sys.argv[3:]]
cores = sorted(os.sched_getaffinity(0))[:2]
os.sched_setaffinity(0, cores)

def spent(pid):
    return sum(int(open(f"{task}/schedstat").read().split()[0]) for task in glob.glob(f"/proc/{pid}/task/*")) / 1e9

def run(command):
    """Processor seconds of the command and of its server, peak MB, what it printed."""
    read, write = os.pipe()
    display = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "1920x1080x24", "-nolisten", "tcp", "-noreset"],
                               pass_fds=[write], stderr=subprocess.DEVNULL)
    os.close(write)
    with os.fdopen(read) as answer:
        os.environ["DISPLAY"] = ":" + answer.readline().strip()
    before = spent(display.pid)
    with open("output", "wb") as output:
        child = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT)
        _, status, usage = os.wait4(child.pid, 0)
    after = spent(display.pid)
    display.terminate()
    display.wait()
    text = open("output", errors="replace").read()
    if status != 0:
        sys.exit(f"{command[0]}: status {status}\n{text[-2000:]}")
    return usage.ru_utime + usage.ru_stime, after - before, usage.ru_maxrss / 1024, text

def wall(count):
    cpu, server, peak, _ = run([f"{build}/apps/play/corvane-play", "--quiet", "--wall", str(count), "--size", "1920x1080", "--threads", "1",
                                "--buffer", "200", "--stats", "stats.json", "camera.mp4"])
    stats = json.load(open("stats.json"))
    return cpu, server, peak, stats["not_presented"], stats["committed"]

def pipeline(count):
    columns = math.ceil(math.sqrt(count))
    width, height = 1920 // columns & ~1, 1080 // math.ceil(count / columns) & ~1
    branch = ("filesrc location=camera.mp4 ! qtdemux ! queue ! h264parse ! avdec_h264 max-threads=1 ! videoscale method=nearest-neighbour ! "
              "video/x-raw,width={w},height={h} ! videoconvert ! fpsdisplaysink name=s{i} text-overlay=false sync=true "
              "video-sink=\"ximagesink sync=true ts-offset={offset}\"")
    words = " ".join(branch.format(i=i, w=width, h=height, offset=200_000_000 + 40_000_000 * i // count) for i in range(count))
    words = words.replace('"ximagesink', 'QUOTEximagesink').split()
    command, quoted = ["gst-launch-1.0", "-v"], None
    for word in words:    # the shell's quotes
        if "QUOTE" in word:
            quoted = [word.replace("QUOTE", "")]
        elif quoted is not None:
            quoted.append(word.rstrip('"'))
            if word.endswith('"'):
                command.append(" ".join(quoted))
                quoted = None
        else:
            command.append(word)
    cpu, server, peak, text = run(command)
    rendered, dropped = {}, {}
    for name, r, d in re.findall(r"GstFPSDisplaySink:(s\d+): last-message = rendered: (\d+), dropped: (\d+)", text):
        rendered[name], dropped[name] = int(r), int(d)
    return cpu, server, peak, sum(dropped.values()), sum(rendered.values()) + sum(dropped.values())

print(f"1280x720, 25/s, {seconds} s, cores {cores}")
print(f"{'':14}{'program s':>10}{'server s':>10}{'peak MB':>9}{'MB more':>9}{'missed':>8}{'of':>8}{'share':>9}")
first = {}
for count in counts:
    for name, measure in (("wall", wall), ("pipeline", pipeline)):
        cpu, server, peak, missed, total = measure(count)
        base = first.setdefault(name, (count, peak))
        more = f"{(peak - base[1]) / (count - base[0]):9.1f}" if count > base[0] else f"{'-':>9}"
        share = f"{100 * missed / total:8.3f}%" if total else f"{'-':>9}"
        print(f"{count:3} {name:10}{cpu:10.2f}{server:10.2f}{peak:9.1f}{more}{missed:8}{total:8}{share}", flush=True)
PY
