#!/usr/bin/env bash
# Builds the tests of the kernels for ARM and runs them in an emulator: kernels_arm.sh [arguments of GoogleTest].
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S cmake/arm -B build/arm -G Ninja >/dev/null
cmake --build build/arm
qemu-aarch64 -L /usr/aarch64-linux-gnu build/arm/test_kernels "$@"
