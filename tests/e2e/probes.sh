#!/usr/bin/env bash
# The kvscript command's contract beyond single scripts: options, inputs that
# are no script at all, and outputs that can't be written. One probe a line:
#   probe STATUS STDERR COMMAND
# COMMAND runs in bash in a scratch folder that holds the inputs made below,
# with $K the command under test. STATUS is the exit status it must end
# with (!0: any but 0); STDERR a glob pattern that its whole standard error
# must match. Every probe ends within a minute or fails.
# Usage: probes.sh KVSCRIPT; the exit status is the number of failures.
set -uo pipefail
K=$(realpath "$1")
export K
emulated=false
"$(dirname "$0")/../../scripts/emulated.sh" && emulated=true
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
failures=0

probe() {
  local want=$1 pattern=$2 command=$3
  local err got
  err=$(timeout 60 bash -c "$command" 2>&1 >/dev/null </dev/null)
  got=$?
  if [ "$want" = '!0' ] && [ "$got" -ne 0 ] || [ "$got" = "$want" ]; then
    # shellcheck disable=SC2053  # the pattern is a glob on purpose
    [[ $err == $pattern ]] && return
  fi
  echo "FAIL probe: $command
  exit status $got, expected $want; standard error:
$err"
  failures=$((failures + 1))
}

cap=$((64 * 1024 * 1024))
printf 'Dim a As Integer\r\n\r\n\0\nx = (\n' > nul.kvs
truncate -s $((cap + 1)) over-cap.kvs
printf 'x = (\n' > $'x\nforged.kvs:9: error 1: SyntaxError\ny'
printf 'Dim a As Integer\n' > clean.kvs
# The shape of the code where no output shows it: a string assigned to
# itself swaps no locks, a constant converts at compile time and a variable
# at run time, a ByRef Boolean is written as one byte.
printf 'Dim s As String\ns = s\n' > self.kvs
printf 'Dim d As Double\nDim i As Integer\nd = 1\nd = i\n' > widen.kvs
printf 'Sub B(ByRef b As Boolean)\n  b = True\nEnd Sub\n' > byref.kvs
# A loop's back edge yields to the host unless the script asks it not to.
printf 'Dim i As Integer\nWhile i < 3\n  i = i + 1\nWend\n' > yields.kvs
printf 'Dim i As Integer\n#pragma BackgroundTasks False\nWhile i < 3\n  i = i + 1\nWend\n' > quiet.kvs
# Input writes its prompt, then hands back one line without its ending, and
# "" once standard input is over.
printf 'Dim a As String = Input("name? ")\nPrint "[" + a + "]"\nPrint "[" + Input("") + "]"\nPrint "[" + Input("more? ") + "]"\n' > input.kvs
# The words after the script reach it through its context, whatever they
# look like; a completed run exits with the status the script chose.
printf 'Dim i As Integer\nPrint Str(ArgCount)\nFor i = 1 To ArgCount\n  Print "[" + Arg(i) + "]"\nNext\nExitStatus = 40 + ArgCount\n' > args.kvs
printf 'Print "x"\nExitStatus = 5\n' > status.kvs
# kvscript needs some 11 MB to take this script in, and 75 MB to compile it.
awk 'BEGIN { for (i = 0; i < 20000; ++i) printf "Class C%d\n  Dim x As String\n  Sub M(a As String)\n    x = a + \"l%d\"\n  End Sub\nEnd Class\n", i, i }' > many-classes.kvs

probe 0  '*'                                   '"$K" --help'
probe 0  ''                                    '"$K" --version'
probe 64 'usage: *'                            '"$K"'
probe 64 'usage: *'                            '"$K" --bogus clean.kvs'
probe 64 'kvscript: cannot open missing.kvs: *' '"$K" missing.kvs'
probe 64 'kvscript: cannot read .: Is a directory' '"$K" .'
probe 64 'kvscript: /dev/zero: longer than 64 MiB, the most a script may hold' '"$K" /dev/zero'
probe 64 'kvscript: over-cap.kvs: longer than 64 MiB*' '"$K" over-cap.kvs'
probe 64 'kvscript: standard input: longer than 64 MiB*' 'head -c $((64 * 1024 * 1024 + 1)) /dev/zero | "$K" -'
probe 0  ''                                    '"$K" -e "Dim a As Integer"'
probe 1  '-e:1: error 1: SyntaxError'          '"$K" -e "x = (1 +"'
probe 0  ''                                    'printf "Dim a As Integer\n" | "$K" -'
probe 1  '-:3: error 1: SyntaxError'           'printf "Dim a As Integer\n\nx = (\n" | "$K" -'
probe 1  'nul.kvs:3: error 99: NulInSource'    '"$K" nul.kvs'
probe 1  'x\\nforged.kvs:9: error 1: SyntaxError\\ny:1: error 1: SyntaxError' '"$K" x*'
probe 0  ''                                    '"$K" --tac clean.kvs | grep -q "Stop "'
probe 1  ''                                    '"$K" --tac self.kvs | grep -q SwpLx'
probe 0  ''                                    'test "$("$K" --tac widen.kvs | grep -c ItoD)" = 1'
probe 0  ''                                    '"$K" --tac byref.kvs | grep -q PokeB'
probe 0  ''                                    '"$K" --tac yields.kvs | grep -q "Intrn  42"'
probe 1  ''                                    '"$K" --tac quiet.kvs | grep -q "Intrn  42"'
probe 0  ''                                    'test "$(printf "abc\\r\\ndef\\n" | "$K" input.kvs)" = "$(printf "name? [abc]\\n[def]\\nmore? []")"'
probe 1  '*SyntaxError'                        '"$K" --tac -e "x = ("'
probe 0  ''                                    'out=$("$K" args.kvs -e "b c" ""); test "$?:$out" = "$(printf "43:3\\n[-e]\\n[b c]\\n[]")"'
probe 0  ''                                    'test "$(printf "Print ScriptName + Arg(2)\\n" | "$K" - x y)" = "-y"'
probe 0  ''                                    'test "$("$K" -e "Print ScriptName + Str(ArgCount)" a b)" = "-e2"'
probe 5  ''                                    '"$K" -e "ExitStatus = Len(Arg(1))" hello'
probe 5  ''                                    '"$K" status.kvs'
probe 0  ''                                    '"$K" --tac status.kvs a b'
probe 1  '-e:1: error 70: ReadOnlyMember'         '"$K" -e "ArgCount = 2" a'
probe !0 'kvscript: cannot write standard output' '"$K" --tac clean.kvs > /dev/full'
probe !0 'kvscript: cannot write standard output' '"$K" --help > /dev/full'
probe 64 'kvscript: cannot write standard output' '"$K" status.kvs > /dev/full'
# The sanitizers reserve far more address space than any limit below allows,
# and so does a user-mode emulator that runs the 32-bit binary on a machine
# whose kernel executes no 32-bit code.
if ! grep -qa __asan_init "$K" && ! $emulated; then
  probe 1 'many-classes.kvs:1: error 98: OutOfMemory' 'unset KVSCRIPT_LEAK_CHECK; ulimit -v 40000; "$K" many-classes.kvs'
fi
exit "$failures"
