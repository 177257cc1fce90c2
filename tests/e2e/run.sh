#!/usr/bin/env bash
# End-to-end checks of the kvscript command: every *.kvs below this folder is
# run, and what it printed, what it reported and how it exited are compared
# with what the script itself says it expects:
#   ' expect: TEXT                 this line prints TEXT (in order, one per marker)
#   ' expect error NAME [NAME...]  these compile errors are reported on this line, in order
#   ' expect runtime error CLASS   the run ends in an unhandled CLASS exception raised on this line
# A script with error markers must exit 1 and print nothing; one with a
# runtime error marker must print what it expects, then exit 2 and name the
# class on standard error; any other must exit 0. A case.expect file beside a
# script replaces its expect: lines. probes.sh then checks the command's
# contract beyond single scripts.
# Usage: run.sh KVSCRIPT
set -uo pipefail
kvscript=$(realpath "$1")
here="$(cd "$(dirname "$0")" && pwd)"
failures=0
# Every run must also give back every counted block it took.
export KVSCRIPT_LEAK_CHECK=1

fail() { echo "FAIL $1: $2"; failures=$((failures + 1)); }

check_script() {
  local file=$1 rel=${1#$here/}
  local out err status
  out=$(mktemp) err=$(mktemp)
  (cd "$here" && "$kvscript" "$rel" > "$out" 2> "$err" < /dev/null)
  status=$?
  local expected_out expected_err
  if [ -f "${file%.kvs}.expect" ]; then
    expected_out=$(cat "${file%.kvs}.expect")
  else
    expected_out=$(grep -o "' expect: .*" "$file" | sed "s/^' expect: //")
  fi
  expected_err=$(awk -v f="$rel" '
    match($0, /'"'"' expect error [A-Za-z]+( [A-Za-z]+)*/) {
      n = split(substr($0, RSTART + 15, RLENGTH - 15), names, " ")
      for (i = 1; i <= n; ++i) print f ":" NR ": " names[i] }' "$file")
  local expected_raise
  expected_raise=$(awk -v f="$rel" '
    match($0, /'"'"' expect runtime error [A-Za-z]+/) {
      print f ":" NR ": runtime error: unhandled " substr($0, RSTART + 23, RLENGTH - 23) }' "$file")
  local actual_err
  actual_err=$(sed -E 's/^([^:]+:[0-9]+): error [0-9]+: (.*)$/\1: \2/' "$err" | grep -v '^kvscript: ')
  if [ -n "$expected_raise" ]; then
    [ "$status" -eq 2 ] || fail "$rel" "exit status $status, expected 2: $(cat "$err")"
    [ "$actual_err" = "$expected_raise" ] || fail "$rel" "reported '$actual_err', expected '$expected_raise'"
    [ "$(cat "$out")" = "$expected_out" ] || fail "$rel" "output differs:
--- expected
$expected_out
--- printed
$(cat "$out")"
  elif [ -n "$expected_err" ]; then
    [ "$status" -eq 1 ] || fail "$rel" "exit status $status, expected 1"
    [ "$actual_err" = "$expected_err" ] || fail "$rel" "errors differ:
--- expected
$expected_err
--- reported
$actual_err"
    [ -s "$out" ] && fail "$rel" "printed output although it did not compile"
  else
    [ "$status" -eq 0 ] || fail "$rel" "exit status $status, expected 0: $(cat "$err")"
    [ "$(cat "$out")" = "$expected_out" ] || fail "$rel" "output differs:
--- expected
$expected_out
--- printed
$(cat "$out")"
  fi
  # Every error line has the contract's form.
  if grep -v '^kvscript: ' "$err" |
      grep -qvE '^[^:]+:[0-9]+: (error [0-9]+:|runtime error: unhandled) [A-Za-z]+$'; then
    fail "$rel" "an error line out of format: $(cat "$err")"
  fi
  rm -f "$out" "$err"
}

while IFS= read -r -d '' file; do
  check_script "$file"
done < <(find "$here" -name '*.kvs' -print0 | sort -z)

"$here/probes.sh" "$kvscript" || failures=$((failures + $?))

if [ "$failures" -gt 0 ]; then
  echo "$failures end-to-end check(s) failed"
  exit 1
fi
echo "end-to-end: all checks passed"
