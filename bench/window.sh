#!/usr/bin/env bash
# window.sh BUILD [SECONDS] [ROUNDS] [RENDERER] [THREADS] [SIZES] [PEERS]: the player in a window (RENDERER: default, gdi, compose,
# stretch) beside its peers (of: decode bare pipeline mpv; all), in turn, with the same file and threads (1 and 2, or those given),
# each under a private X server: processor seconds of the program and of the server. Peers: decoding alone; a bare program written
# by hand, at 1920x1080; a pipeline of GStreamer; and, where it is installed, mpv. Prints medians, and the medians of the ratios
# of each round.
#
# Goal: at 1920x1080 at most 1.0 times the bare program with AVX2 and 1.05 with AVX-512, with the server's time 1.02 and 1.06, and
# at most 15 MB more, in ten rounds of 20 s with one decoder thread: window.sh BUILD 20 10 default 1 1920x1080 bare
#
# For this bench only, where missing: mpv gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
# gstreamer1.0-plugins-bad gstreamer1.0-libav gstreamer1.0-x.
#
# The pipeline's sink does not scale by itself, so videoscale makes 1280x720 of planar pictures before they are converted,
# which is the cheaper order: once with its default (bilinear), once with the nearest pixel. qos and lateness are off, so
# that it skips no picture. It decodes with its own defaults; player and decode_only set the fast flag and skip deblocking of
# pictures that no other refers to (this stream has none). bare_window is what a user would write by hand, with the same
# decoder, and does nothing else. What starting costs counts for everybody. mpv runs as
# it is, which is what the ratio is to, and with its profile sw-fast, which is its cheapest scaling.
set -euo pipefail
build=$(realpath "$1")
seconds=${2:-20}
rounds=${3:-3}
renderer=${4:-default}
threads=${5:-1 2}
sizes=${6:-1920x1080 1280x720 960x540}
peers=${7:-decode bare pipeline mpv}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=1920x1080:rate=25,noise=alls=12:allf=t" -t "$seconds" -c:v libx264 -preset veryfast \
    -b:v 4M -g 50 -bf 0 -refs 1 -pix_fmt yuv420p large.mp4

python3 - "$build" "$seconds" "$rounds" "$renderer" "$threads" "$sizes" "$peers" <<'PY'
import glob, json, os, shutil, statistics, subprocess, sys
build, seconds, rounds, renderer = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]

def spent(pid):
    return sum(int(open(f"{task}/schedstat").read().split()[0]) for task in glob.glob(f"/proc/{pid}/task/*")) / 1e9

def server():
    read, write = os.pipe()
    process = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "1920x1080x24", "-nolisten", "tcp", "-noreset"],
                               pass_fds=[write], stderr=subprocess.DEVNULL)
    os.close(write)
    with os.fdopen(read) as answer:
        os.environ["DISPLAY"] = ":" + answer.readline().strip()
    return process

def run(command):
    """Processor seconds of the command and of its server."""
    display = server()
    before = spent(display.pid)
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    if status != 0:
        sys.exit(f"{command}: status {status}")
    after = spent(display.pid)
    display.terminate()
    display.wait()
    return usage.ru_utime + usage.ru_stime, after - before, usage.ru_maxrss / 1024

def player(size, threads):
    result = run([f"{build}/apps/play/corvane-play", "--quiet", *([] if renderer == "default" else ["--renderer", renderer]), "--threads", str(threads), "--size", size,
                  "--stats", "stats.json", "large.mp4"])
    return *result, json.load(open("stats.json"))["shown"]

def pipeline(threads, scale=""):
    return *run(["gst-launch-1.0", "-q", *f"filesrc location=large.mp4 ! qtdemux ! h264parse ! avdec_h264 max-threads={threads} !"
                 f"{scale} videoconvert ! ximagesink sync=true qos=false max-lateness=-1".split()]), "-"

def mpv(size, threads, *profile):
    return *run(["mpv", "--no-config", "--really-quiet", "--vo=x11", *profile, "--framedrop=no", f"--vd-lavc-threads={threads}", f"--geometry={size}+0+0", "large.mp4"]), "-"

def scaled(size, method):
    width, height = size.split("x")
    return f" videoscale method={method} ! video/x-raw,width={width},height={height} !"

sizes = sys.argv[6].split()
peers = sys.argv[7].split()
if "pipeline" in peers:
    pipeline(1)    # its registry is written now
for threads in map(int, sys.argv[5].split()):
    rows = {}
    if "decode" in peers:
        rows["decode only"] = lambda: (*run([f"{build}/bench/decode_only", "large.mp4", str(threads), seconds]), "-")
    for size in sizes:
        rows[f"player {size}"] = lambda size=size: player(size, threads)
        if size == "1920x1080" and "bare" in peers:
            rows[f"bare {size}"] = lambda: (*run([f"{build}/bench/bare_window", "large.mp4", str(threads), seconds]), "-")
        if "pipeline" in peers and size == "1920x1080":
            rows[f"pipeline {size}"] = lambda: pipeline(threads)
        elif "pipeline" in peers:
            rows[f"pipeline {size}, bilinear"] = lambda size=size: pipeline(threads, scaled(size, "bilinear"))
            rows[f"pipeline {size}"] = lambda size=size: pipeline(threads, scaled(size, "nearest-neighbour"))
        if "mpv" in peers and shutil.which("mpv"):
            rows[f"mpv {size}"] = lambda size=size: mpv(size, threads)
            rows[f"mpv {size}, sw-fast"] = lambda size=size: mpv(size, threads, "--profile=sw-fast")
    results = {name: [] for name in rows}
    for _ in range(rounds):
        for name, measure in rows.items():
            results[name].append(measure())
    def ratio(name, base):
        """Of the program alone, and with its server."""
        pairs = list(zip(results[name], results[base]))
        return "  ".join(f"{statistics.median(sum(a[:n]) / sum(b[:n]) for a, b in pairs):.3f}" for n in (1, 2))
    print(f"\n1920x1080, 25/s, paced, {seconds} s, renderer {renderer}, {threads} decoder thread(s), medians of {rounds}; ratios: program alone, with server")
    print(f"  {'':30} program s  server s  peak MB  to decode only  to bare       to pipeline   to mpv        pictures")
    for name in rows:
        program, xserver, peak = (statistics.median(r[i] for r in results[name]) for i in (0, 1, 2))
        kind, _, size = name.partition(" ")
        beside = [ratio(name, peer) if peer in rows and kind in ("player", "bare") else "" for peer in (f"bare {size}", f"pipeline {size}", f"mpv {size}")]
        decoding = ratio(name, "decode only") if "decode" in peers else ""
        print(f"  {name:30} {program:9.3f}  {xserver:8.3f}  {peak:7.1f}  {decoding:14}  {beside[0]:12}  {beside[1]:12}  {beside[2]:12}  {results[name][-1][3]}", flush=True)
PY
