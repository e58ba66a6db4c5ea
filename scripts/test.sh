#!/usr/bin/env bash
# Builds and runs every test: the suites, again under AddressSanitizer and
# UndefinedBehaviorSanitizer, the fuzz harnesses briefly (clang), and a consumer of
# the installed package. Installs what is missing first.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc 2>/dev/null || echo 2)
scripts/deps.sh

echo "== build and test (release, warnings as errors, benchmarks compiled)"
cmake -S . -B build -DVEK_WERROR=ON -DVEK_BENCH=ON >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")
echo "== the same suites on the portable kernels only (SIMD hidden from dispatch)"
(cd build && VEK_TEST_CPU_MASK=3 ctest --output-on-failure -j"$jobs" -E '^(cli|header_c|replay_)')

echo "== sanitizers (ASan + UBSan)"
cmake -S . -B build-asan -DVEK_WERROR=ON -DVEK_SANITIZE=ON -DVEK_TOOLS=OFF -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
  ctest --output-on-failure -j"$jobs")

if command -v clang++ >/dev/null 2>&1; then
  echo "== fuzz harnesses (a few seconds each)"
  CC=clang CXX=clang++ cmake -S . -B build-fuzz -DVEK_FUZZ=ON -DVEK_SANITIZE=ON -DVEK_TESTS=OFF \
    -DVEK_TOOLS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build-fuzz -j"$jobs"
  for dir in fuzz/*/; do
    name=$(basename "$dir")
    bin=build-fuzz/fuzz_$name
    [ -x "$bin" ] || continue
    corpus=$(mktemp -d)
    cp -r "$dir"seeds/. "$corpus"/ 2>/dev/null || true
    "$bin" -max_total_time="${VEK_FUZZ_SECONDS:-4}" -rss_limit_mb=2048 -print_final_stats=0 "$corpus" >/dev/null 2>"$corpus.log" \
      || { cat "$corpus.log"; echo "fuzz_$name found a fault"; exit 1; }
    echo "fuzz_$name: ok"
    rm -rf "$corpus" "$corpus.log"
  done
fi

echo "== installed package (CMake and pkg-config consumers)"
prefix=$(mktemp -d)
cmake --install build --prefix "$prefix" >/dev/null
cmake -S tests/consumer -B build-consumer -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build-consumer -j"$jobs" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" build-consumer/consumer
build-consumer/consumer_static
PKG_CONFIG_PATH="$prefix/lib/pkgconfig" cc tests/consumer/consumer.c -o build-consumer/consumer_pc \
  $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs vek)
LD_LIBRARY_PATH="$prefix/lib" build-consumer/consumer_pc
# Only the API leaves the shared library.
if nm -D --defined-only "$prefix/lib/libvek.so" | awk '{print $3}' | grep -v '^VEK_' | grep -q .; then
  echo "libvek.so exports symbols outside the VEK_ API:"
  nm -D --defined-only "$prefix/lib/libvek.so" | awk '{print $3}' | grep -v '^VEK_' | head
  exit 1
fi
rm -rf "$prefix"
echo "== all tests passed"
