#!/usr/bin/env bash
# Builds and runs every test: a debug build, then the same suites under AddressSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
bash scripts/deps.sh
for preset in debug asan; do
    echo "== $preset =="
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs"
done
