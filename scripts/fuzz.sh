#!/usr/bin/env bash
# Builds the fuzz targets with clang in their own build directory and runs
# each for a fixed number of inputs, so that CI can afford it.
# Usage: scripts/fuzz.sh [runs] [target...]
#   runs     inputs per target (default 20000); FUZZ_SECONDS=N runs each
#            target for N seconds instead
#   target   LexerFuzz, MinerFuzz, ParseFuzz, CompileFuzz (the default),
#            ExceptionFuzz
# FUZZ_BUILD_DIR overrides the build directory.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${FUZZ_BUILD_DIR:-$root/build-fuzz}"
runs="${1:-20000}"
shift || true
targets=("$@")
# ExceptionFuzz runs whole scripts, a few dozen a second under emulation:
# it is run on demand (scripts/fuzz.sh 2000 ExceptionFuzz), not by default.
[ ${#targets[@]} -gt 0 ] || targets=(LexerFuzz MinerFuzz ParseFuzz CompileFuzz)

mkdir -p "$build"
cmake -S "$root" -B "$build" -G Ninja \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=Fuzz -DCMAKE_CXX_FLAGS="-O1 -g1" -DKV_FUZZ=ON -DKV_DIRECT_ALLOC=ON > "$build/configure.log"
cmake --build "$build" --target "${targets[@]}"

for target in "${targets[@]}"; do
  # Seeds are copied so the fuzzer's additions stay out of the source tree.
  # Each run starts from the seeds alone: a corpus kept from earlier runs
  # grows without end, and under the emulator the sanitizer's allocator
  # runs out of address space loading a few thousand of them.
  corpus="$build/$target-corpus"
  rm -rf "$corpus"
  mkdir -p "$corpus"
  fuzzer="$build/tests/fuzz/$target"
  limit=(-runs="$runs")
  # ExceptionFuzz reads its input as choices, not as text: script seeds and
  # the dictionary of words mean nothing to it.
  dict=(-dict="$root/tests/fuzz/lexer.dict")
  if [ "$target" = ExceptionFuzz ]; then
    dict=()
    cp "$root/tests/fuzz/exception-corpus/"* "$corpus/"
  else
    cp "$root/tests/fuzz/corpus/"* "$corpus/"
    [ "$target" = LexerFuzz ] || cp "$root/tests/grammar/corpus/"*.kvs "$corpus/"
    # Whole programs that compile and link, so that the code building and
    # the back end behind them are reached from the start.
    [ "$target" = CompileFuzz ] && find "$root/tests/e2e" "$root/examples" -name '*.kvs' -exec cp {} "$corpus/" \;
  fi
  # Under qemu's user-mode emulator LeakSanitizer hangs (see test.sh); the
  # target's own count of blocks still catches a compile that keeps any.
  # The emulated 32-bit address space is also tighter, so the sanitizer
  # keeps fewer freed blocks aside.
  # No memory-watching thread either: the emulator gives all threads of a
  # process one descriptor table, so the second thread's start takes over
  # the thread-pointer entry of the first. The first keeps its own until
  # its segment register is reloaded, which the return from the fuzzer's
  # periodic alarm (after ten minutes) does; from then on the fuzzing
  # thread reads the other's thread block as its own.
  if "$root/scripts/emulated.sh"; then
    export ASAN_OPTIONS=detect_leaks=0:quarantine_size_mb=16
    limit+=(-detect_leaks=0 -rss_limit_mb=0)
  fi
  # Only the count gives way to the time: the emulator's options stay.
  [ -n "${FUZZ_SECONDS:-}" ] && limit[0]=-max_total_time="$FUZZ_SECONDS"
  # Under the emulator libFuzzer lists no file of a corpus directory, so the
  # seeds are also named one by one, through a list in a file.
  seeds="$build/$target-seeds"
  find "$corpus" -type f | paste -sd, - > "$seeds"
  # A failing input is written beside the logs, not into the source tree.
  "$fuzzer" "${limit[@]}" -max_len=4096 -seed=1 "${dict[@]}" -artifact_prefix="$build/" \
    -seed_inputs=@"$seeds" "$corpus" \
    2> "$build/$target.log" || { tail -40 "$build/$target.log"; exit 1; }
  echo "$target: $(grep -o 'Done [0-9]* runs' "$build/$target.log" | tail -1 | cut -d' ' -f2) inputs, no failure"
done
