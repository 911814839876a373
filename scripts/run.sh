#!/usr/bin/env bash
# Builds the kappar tool (release) and runs it on the bundled examples: the kinds it knows, a
# schema, an old boundary brought to the current version, an expression, an upgrade of every
# example into a temporary folder (and a second one that must change nothing), and a check of
# every example. examples/broken.kap is expected to fail; the script fails only when a command
# exits otherwise than docs/tool.md says it does.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs" --target kappar_tool
tool=build/release/tools/kappar/kappar
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# expect STATUS ARGS...: shows and runs `kappar ARGS...`; fails unless it exits with STATUS.
expect() {
    local want=$1
    shift
    echo
    echo "\$ kappar $*"
    local got=0
    "$tool" "$@" || got=$?
    if [ "$got" -ne "$want" ]; then
        echo "run.sh: 'kappar $*' exited with status $got; expected $want" >&2
        exit 1
    fi
    [ "$want" -eq 0 ] || echo "(exit status $got, as expected)"
}

expect 0 --version
expect 0 kinds
expect 0 schema level
expect 0 show examples/boundary_v1_contact_conv.kap --active-only
expect 0 eval examples/boundary_v1_contact_conv.kap "Block.Diameter"
expect 0 eval examples/level_v0_set.kap "active(IsClamp)"

# Every example at the current version; the broken one cannot be read (status 3).
expect 3 upgrade examples/*.kap -o "$work/upgraded"
expect 0 show "$work/upgraded/workplane_v0.kap"
expect 0 upgrade "$work"/upgraded/*.kap -o "$work/again"
diff -r "$work/upgraded" "$work/again"
echo "a second upgrade changed nothing"

# Problems in three examples (status 1), and the broken file (status 3, which wins).
expect 1 check examples/stockmodel_v1_problems.kap
expect 3 check examples/*.kap
expect 3 show examples/broken.kap
echo
echo "run.sh: every command behaved as documented"
