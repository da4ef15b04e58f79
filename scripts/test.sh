#!/usr/bin/env bash
# Installs what is missing, builds and runs the tests. The last lines are ctest's summary.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset release -DCORVANE_WERROR=ON >/dev/null
cmake --build --preset release
ctest --test-dir build/release --output-on-failure -j2
