#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks to build and test the engine.
# Does nothing (and asks for nothing) when every package is already present.
set -euo pipefail

packages=(g++-multilib cmake bison googletest ninja-build)

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
