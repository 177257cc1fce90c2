#!/usr/bin/env bash
# The layers, lowest first, as the top-level CMakeLists.txt links them. A
# source file may include headers of its own layer and of layers below it;
# an include of a layer above is a back edge and fails this check. Then a
# probe shows that the link check of the build catches a call upwards: an
# object that calls into the engine links with the engine's library, and
# fails to link against the layers below the engine alone.
# Usage: check.sh SOURCE_DIR BUILD_DIR CXX
set -uo pipefail
src=$1 build=$2 cxx=$3
layers=(foundation diag ir runtime semantic backend frontend codebuild grammar engine host tools)
status=0

rank() {
  local i
  for i in "${!layers[@]}"; do [ "${layers[$i]}" = "$1" ] && { echo "$i"; return; }; done
  echo -1
}

for layer in "${layers[@]}"; do
  mine=$(rank "$layer")
  while IFS=: read -r file included; do
    target=${included%%/*}
    theirs=$(rank "$target")
    if [ "$theirs" -gt "$mine" ]; then
      echo "back edge: $file includes $included ($layer below $target)"
      status=1
    fi
  done < <(cd "$src" && grep -Ho '^#include "[a-z]*/[^"]*"' "$layer"/* 2>/dev/null |
           sed -E 's/:#include "(.*)"$/:\1/')
done

probe=$(mktemp -d)
trap 'rm -rf "$probe"' EXIT
cat > "$probe/probe.cpp" <<'CPP'
#include "engine/Compiler.h"
int main() { delete new Compiler; return 0; }
CPP
below=()
for layer in grammar codebuild frontend backend semantic runtime ir diag foundation; do
  below+=("$build/libkv$layer.a")
done
flags=(-m32 -I"$src")
if "$cxx" "${flags[@]}" "$probe/probe.cpp" "${below[@]}" -o "$probe/a" >"$probe/log" 2>&1; then
  echo "a call into the engine linked without the engine's library"
  status=1
fi
if ! "$cxx" "${flags[@]}" "$probe/probe.cpp" "$build/libkvengine.a" "${below[@]}" -o "$probe/b" >"$probe/log" 2>&1; then
  echo "the probe does not link even with the engine's library:"
  tail -5 "$probe/log"
  status=1
fi
[ $status -eq 0 ] && echo "layers: no back edge"
exit $status
