#!/usr/bin/env bash
# headless.sh BUILD [SECONDS] [ROUNDS]: the player beside decoding alone, in turn, with the same file, flags and threads: whole-process
# processor seconds and peak memory; then what each further channel costs. Prints medians and ratios.
set -euo pipefail
build=$(realpath "$1")
seconds=${2:-20}
rounds=${3:-3}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=1920x1080:rate=25,noise=alls=12:allf=t" -t "$seconds" -c:v libx264 -preset veryfast \
    -b:v 4M -g 50 -bf 0 -refs 1 -pix_fmt yuv420p large.mp4
ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=320x240:rate=25,noise=alls=12:allf=t" -t 10 -c:v libx264 -preset veryfast \
    -b:v 300k -g 50 -bf 0 -refs 1 -pix_fmt yuv420p small.mp4

python3 - "$build" "$seconds" "$rounds" <<'PY'
import json, statistics, subprocess, sys, time
build, seconds, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3])

def alone(file, threads, limit, decoders=1):
    out = subprocess.run([f"{build}/bench/decode_only", file, str(threads), str(limit), str(decoders)], check=True,
                         capture_output=True, text=True).stdout.split()
    return float(out[1]), float(out[2]), int(out[0])

def play(file, threads, limit, *options):
    subprocess.run([f"{build}/apps/play/corvane-play", "--headless", "--quiet", "--threads", str(threads), "--seconds", str(limit),
                    "--stats", "stats.json", *options, file], check=True)
    stats = json.load(open("stats.json"))
    return stats["processor_seconds"], stats["resident_mb_peak"], stats["shown"]

def table(title, file, limit, rows, base):
    results = {name: [] for name, _ in [base, *rows]}
    for _ in range(rounds):
        for name, run in [base, *rows]:
            results[name].append(run())
    reference = [r[0] for r in results[base[0]]]
    print(f"\n{title}")
    for name, _ in [base, *rows]:
        cpu = [r[0] for r in results[name]]
        ratio = statistics.median(c / r for c, r in zip(cpu, reference))
        print(f"  {name:44} cpu {statistics.median(cpu):7.3f} s  ratio {ratio:5.3f}  best/best {min(cpu) / min(reference):5.3f}"
              f"  peak {statistics.median(r[1] for r in results[name]):6.1f} MB  pictures {results[name][-1][2]}")

for threads in (1, 2):
    table(f"1920x1080, 25/s, paced, {seconds} s, {threads} decoder thread(s)", "large.mp4", seconds,
          [("player, planar (format 1)", lambda: play("large.mp4", threads, seconds, "--format", "i420")),
           ("player, 32 bits (format 9)", lambda: play("large.mp4", threads, seconds, "--format", "bgra")),
           ("player, 24 bits (format 7)", lambda: play("large.mp4", threads, seconds, "--format", "bgr"))],
          ("decode only", lambda: alone("large.mp4", threads, seconds)))

print("\nchannels of 1920x1080 in one process, 1 decoder thread, format 9: peak memory, beside as many decoders alone")
before = None
for channels in (1, 2, 4):
    _, memory, _ = play("large.mp4", 1, 4, "--channels", str(channels))
    _, bare, _ = alone("large.mp4", 1, 4, channels)
    print(f"  {channels:2} channels {memory:6.1f} MB, decoders alone {bare:6.1f} MB, above them {(memory - bare) / channels:5.1f} MB a channel")

print("\nchannels of 320x240 in one process, 1 decoder thread: processor time a channel")
first = None
for channels in (1, 4, 16, 64):
    cpu = statistics.median(play("small.mp4", 1, 10, "--channels", str(channels))[0] / channels for _ in range(rounds))
    first = first or cpu
    print(f"  {channels:2} channels {cpu:.3f} s each, {cpu / first:.2f} of one alone")

player = subprocess.Popen([f"{build}/apps/play/corvane-play", "--headless", "--quiet", "--threads", "1", "--channels", "16", "small.mp4"])
time.sleep(3)
tasks = subprocess.run(["ls", f"/proc/{player.pid}/task"], capture_output=True, text=True).stdout.split()
print(f"\nthreads of a process with 16 channels: {len(tasks)}, {(len(tasks) - 1) / 16:.2f} a channel")
player.kill()
PY
