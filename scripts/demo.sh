#!/usr/bin/env bash
# Builds the vek program and runs its demo on built-in data.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build -DVEK_WERROR=ON >/dev/null
cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target vek_cli
build/vek demo "$@"
