#!/usr/bin/env bash
# Builds the kappar tool and runs it on the bundled examples.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs" --target kappar_tool
tool=build/release/tools/kappar/kappar
"$tool" --version
