#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks to build and test the engine.
# Does nothing (and asks for nothing) when every package is already present.
set -euo pipefail

# g++-multilib: the 32-bit compiler and libraries; clang with libclang-rt-dev:
# the fuzz targets (libFuzzer and its 32-bit run-time come with clang, not gcc);
# binutils: objdump, which judges the instruction writer's encodings.
packages=(g++-multilib cmake bison googletest ninja-build clang libclang-rt-dev binutils)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "setup: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
