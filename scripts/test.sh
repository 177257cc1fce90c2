#!/usr/bin/env bash
# Builds the engine and runs every test twice: in the normal build and in the
# AddressSanitizer/UndefinedBehaviorSanitizer build (whose allocator goes
# straight to malloc so the sanitizers see every block).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
jobs=$(nproc)

run_build() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}

run_build build
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_build build-asan -DKV_SANITIZE=ON

# A short, fixed fuzzing run of each fuzz target (lexer, miner, parser,
# whole compilations) on arbitrary bytes.
./scripts/fuzz.sh 20000
