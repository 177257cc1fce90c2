#!/usr/bin/env bash
# Exits 0 when 32-bit programs run here under qemu's user-mode emulator
# (see setup.sh), 1 when the processor runs them itself. The emulator shows
# its own processor to the program, so a 32-bit probe asks for the name.
set -u
probe=$(mktemp -d)
trap 'rm -rf "$probe"' EXIT
cat > "$probe/p.c" <<'C'
#include <cpuid.h>
#include <string.h>
int main(void) {
  unsigned name[13] = {0};
  for (unsigned i = 0; i < 3; ++i)
    if (!__get_cpuid(0x80000002 + i, &name[4 * i], &name[4 * i + 1], &name[4 * i + 2], &name[4 * i + 3]))
      return 1;
  return strstr((char const*)name, "QEMU") ? 0 : 1;
}
C
gcc -m32 "$probe/p.c" -o "$probe/p" 2>/dev/null && "$probe/p"
