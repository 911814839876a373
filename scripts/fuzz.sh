#!/usr/bin/env bash
# Builds the fuzz preset and runs every fuzz target for the given number of seconds each
# (default 30). A target fuzz/fuzz_<name>.cpp starts from a copy of fuzz/corpus/<name>/ (the
# seeds in the repository are never modified) and uses fuzz/fuzz_<name>.dict when there is one.
# Crash inputs are kept in build/fuzz/artifacts/<target>/; the script fails if any target fails.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"
jobs=$(nproc 2>/dev/null || echo 2)
bash scripts/deps.sh --fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
found=0
for target in build/fuzz/fuzz/fuzz_*; do
    [ -f "$target" ] && [ -x "$target" ] || continue
    found=1
    name=$(basename "$target")
    short=${name#fuzz_}
    corpus="$work/$short"
    mkdir -p "$corpus"
    if [ -d "fuzz/corpus/$short" ]; then
        cp -r "fuzz/corpus/$short/." "$corpus/"
    fi
    artifacts="build/fuzz/artifacts/$name"
    mkdir -p "$artifacts"
    args=(-max_total_time="$seconds" -artifact_prefix="$artifacts/" -print_final_stats=1)
    [ -f "fuzz/$name.dict" ] && args+=(-dict="fuzz/$name.dict")
    echo "== $name: ${seconds}s from $(ls "$corpus" | wc -l) seeds =="
    if "$target" "${args[@]}" "$corpus" >"$work/$name.log" 2>&1; then
        grep -E '^(Done|stat::number_of_executed_units|stat::new_units_added)' "$work/$name.log" || true
    else
        status=1
        echo "$name FAILED; last lines of its log:"
        tail -40 "$work/$name.log"
        echo "inputs kept in $artifacts/"
    fi
done
if [ "$found" -eq 0 ]; then
    echo "no fuzz targets in build/fuzz/fuzz/"
    exit 1
fi
exit "$status"
