#!/usr/bin/env bash
# Builds the engine and runs kvscript with the given arguments.
set -euo pipefail
top="$(cd "$(dirname "$0")/.." && pwd)"
"$top/scripts/setup.sh"
cmake -S "$top" -B "$top/build" -G Ninja >/dev/null
cmake --build "$top/build" -j "$(nproc)" --target kvscript >/dev/null
exec "$top/build/kvscript" "$@"
