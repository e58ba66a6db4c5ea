#!/usr/bin/env bash
# Builds the benchmarks (Release) and runs each beside its rival engines.
# Arguments are passed to every benchmark program (e.g. --benchmark_filter=1080).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build-bench -DVEK_BENCH=ON -DVEK_TESTS=OFF -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build-bench -j"$(nproc 2>/dev/null || echo 2)"
for b in build-bench/bench_*; do
  echo "== $(basename "$b")"
  "$b" "$@"
done
