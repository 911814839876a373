#!/usr/bin/env bash
# Builds the fuzz preset (clang, libFuzzer with ASan and UBSan, into build/fuzz) and runs the fuzz
# targets for the given number of seconds each (default 30):
#
#   scripts/fuzz.sh                 every target, 30 s each
#   scripts/fuzz.sh 60 expr         fuzz/fuzz_expr.cpp (the expression compiler and evaluator), 60 s
#   scripts/fuzz.sh 120 reader load two targets, 120 s each
#
# A target fuzz/fuzz_<name>.cpp starts from a copy of fuzz/corpus/<name>/ (the seeds in the
# repository are never modified) and uses fuzz/fuzz_<name>.dict when there is one. Crash inputs
# are kept in build/fuzz/artifacts/<target>/; the script fails if any target fails. To replay one:
#   build/fuzz/fuzz/fuzz_expr build/fuzz/artifacts/fuzz_expr/crash-<hash>
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"
shift || true
only=("$@")
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
    name=$(basename "$target")
    short=${name#fuzz_}
    if [ ${#only[@]} -gt 0 ] && [[ ! " ${only[*]} " =~ " ${short} " ]]; then
        continue
    fi
    found=1
    corpus="$work/$short"
    mkdir -p "$corpus"
    if [ -d "fuzz/corpus/$short" ]; then
        cp -r "fuzz/corpus/$short/." "$corpus/"
    fi
    artifacts="build/fuzz/artifacts/$name"
    mkdir -p "$artifacts"
    # -max_len above the reader limits the targets set (32 KiB files, 4 KiB lines, 256 pairs),
    # which libFuzzer's default of 4,096 bytes would never reach.
    args=(-max_total_time="$seconds" -max_len=33000 -artifact_prefix="$artifacts/"
        -print_final_stats=1)
    [ -f "fuzz/$name.dict" ] && args+=(-dict="fuzz/$name.dict")
    echo "== $name: ${seconds}s from $(ls "$corpus" | wc -l) seeds =="
    # A sanitizer report fails the target even if the run went on after it.
    if ASAN_OPTIONS="abort_on_error=1:detect_leaks=1" \
        UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1" \
        "$target" "${args[@]}" "$corpus" >"$work/$name.log" 2>&1 &&
        ! grep -qE 'runtime error:|ERROR: (Address|Leak|UndefinedBehavior)Sanitizer|SUMMARY: [A-Za-z]*Sanitizer' \
            "$work/$name.log"; then
        grep -E '^(Done|stat::number_of_executed_units|stat::new_units_added)' "$work/$name.log" || true
    else
        status=1
        echo "$name FAILED; last lines of its log:"
        tail -40 "$work/$name.log"
        echo "inputs kept in $artifacts/"
    fi
done
if [ "$found" -eq 0 ]; then
    echo "no fuzz targets${only[*]:+ named ${only[*]}} in build/fuzz/fuzz/"
    exit 1
fi
exit "$status"
