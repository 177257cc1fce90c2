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

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
if [ ${#missing[@]} -ne 0 ]; then
  echo "setup: installing ${missing[*]}" >&2
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# Some virtual machines run a 64-bit kernel that executes no 32-bit code
# (execve answers "Exec format error"). There the 32-bit programs run under
# qemu's user-mode emulator, registered for i386 binaries: slower, but the
# same programs and the same results.
probe=$(mktemp -d)
trap 'rm -rf "$probe"' EXIT
echo 'int main(void) { return 0; }' > "$probe/p.c"
gcc -m32 "$probe/p.c" -o "$probe/p"
if ! "$probe/p" 2>/dev/null; then
  echo "setup: this kernel runs no 32-bit code; registering qemu-i386" >&2
  if ! command -v qemu-i386 >/dev/null; then
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends qemu-user >/dev/null
  fi
  [ -e /proc/sys/fs/binfmt_misc/register ] ||
    $sudo mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
  if [ ! -e /proc/sys/fs/binfmt_misc/qemu-i386 ]; then
    magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
    mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    echo ":qemu-i386:M::$magic:$mask:$(command -v qemu-i386):F" | $sudo tee /proc/sys/fs/binfmt_misc/register >/dev/null
  fi
  "$probe/p" || { echo "setup: 32-bit programs cannot run on this machine" >&2; exit 1; }
fi

