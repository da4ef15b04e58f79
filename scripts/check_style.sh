#!/usr/bin/env bash
# Fails on code that clang-format would change, and on findings of clang-tidy in src/ (.clang-format, .clang-tidy). A file that
# passed is not checked again until its preprocessed text changes: their hashes are kept in CORVANE_TIDY_CACHE or build/tidy.
set -euo pipefail
cd "$(dirname "$0")/.."
failed=0

# The comments of include/ hold tables, which clang-format would break up.
git ls-files -z 'src/*.h' 'src/*.cpp' 'apps/*.h' 'apps/*.cpp' 'tests/*.h' 'tests/*.c' 'tests/*.cpp' 'bench/*.h' 'bench/*.c' \
    'bench/*.cpp' 'fuzz/*.h' 'fuzz/*.cpp' 'tools/*.cpp' 'sidelibs/*.h' 'sidelibs/*.cpp' | xargs -0 clang-format-14 --dry-run -Werror || failed=1

cmake -S . -B build/tidy -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCORVANE_BUILD_TESTS=OFF \
    -DCORVANE_BUILD_FUZZ=OFF -DCORVANE_BUILD_BENCH=OFF -DCORVANE_BUILD_PLAYER=OFF >/dev/null
python3 - "${CORVANE_TIDY_CACHE:-build/tidy/passed}" <<'PY' || failed=1
import concurrent.futures, hashlib, json, os, pathlib, shlex, subprocess, sys, time

TOOL, KEEP_DAYS = "clang-tidy-14", 30
cache = pathlib.Path(sys.argv[1])
cache.mkdir(parents=True, exist_ok=True)
for old in cache.iterdir():
    if old.stat().st_mtime < time.time() - KEEP_DAYS * 86400:
        old.unlink()
common = pathlib.Path(".clang-tidy").read_bytes() + subprocess.check_output([TOOL, "--version"])

def check(entry):
    command = shlex.split(entry["command"])
    command[command.index("-o"):command.index("-o") + 2] = []
    text = subprocess.run([*command, "-E", "-P"], cwd=entry["directory"], capture_output=True, check=True).stdout
    passed = cache / hashlib.sha256(common + text).hexdigest()
    if passed.exists():
        passed.touch()
        return "", True
    run = subprocess.run([TOOL, "-p", "build/tidy", "--quiet", entry["file"]], stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL, text=True)
    if run.returncode == 0:
        passed.touch()
    return run.stdout if run.returncode != 0 else "", False

entries = [entry for entry in json.load(open("build/tidy/compile_commands.json")) if "/src/" in entry["file"]]
with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
    results = list(pool.map(check, entries))
findings = [output for output, _ in results if output]
print("".join(findings), end="")
print(f"{len(entries)} files, {sum(known for _, known in results)} of them known to pass, {len(findings)} with findings")
sys.exit(bool(findings or not entries))
PY
exit $failed
