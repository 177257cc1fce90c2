#!/usr/bin/env python3
"""Times kvscript against its peer engines on the shared workloads.

Every workload exists four ways (.kvs, .lua, .c). Each one runs through
kvscript, lua5.4, luajit, `luajit -joff`, and the C version built with
`gcc -m32 -O0` and `-O2`. Every run's output is checked against
expected.txt; a wrong or failed run is shown as such and never timed. The
times are those of whole processes (start-up included), median of N runs,
with all programs of a workload taking turns within each round so that a
drifting machine weighs on all of them alike.

A second table gives compile speed in lines per second on generated
programs of ordinary functions.

Never run by the tests: a benchmark wants a quiet machine.
"""

import argparse
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORKLOADS = ["fib", "loop", "sieve", "mandel", "strings", "objects", "exceptions"]
ENGINES = ["kvscript", "gcc -O2", "gcc -O0", "luajit", "luajit -joff", "lua5.4"]

# A cell is either a list of times or one of these words.
NOT_YET = "not yet"
WRONG = "WRONG"
FAILED = "failed"
TIMEOUT = "timeout"
MISSING = "missing"


def say(text):
    print(text, file=sys.stderr, flush=True)


def sudo_prefix():
    return [] if os.geteuid() == 0 else ["sudo"]


def ensure_peers():
    """Installs lua5.4 and luajit with apt when a command is missing."""
    wanted = {"lua5.4": "lua5.4", "luac5.4": "lua5.4", "luajit": "luajit"}
    missing = sorted({pkg for cmd, pkg in wanted.items() if not shutil.which(cmd)})
    if not missing:
        return
    say("harness: installing " + " ".join(missing))
    env = dict(os.environ, DEBIAN_FRONTEND="noninteractive")
    subprocess.run(sudo_prefix() + ["apt-get", "update", "-qq"], env=env, check=True)
    subprocess.run(sudo_prefix() + ["apt-get", "install", "-y", "-qq", "--no-install-recommends"] + missing,
                   env=env, check=True, stdout=subprocess.DEVNULL)


def ensure_kvscript(path):
    """Builds kvscript the way scripts/run.sh does when the binary is absent."""
    if os.path.exists(path):
        return path
    if path != os.path.join(TOP, "build", "kvscript"):
        sys.exit("harness: no kvscript at " + path)
    say("harness: building kvscript")
    subprocess.run([os.path.join(TOP, "scripts", "setup.sh")], check=True)
    build = os.path.join(TOP, "build")
    subprocess.run(["cmake", "-S", TOP, "-B", build, "-G", "Ninja"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build, "-j", str(os.cpu_count() or 1), "--target", "kvscript"],
                   check=True, stdout=subprocess.DEVNULL)
    return path


def find_bench_dir(given):
    """The folder holding workloads/ and expected.txt.

    Without a path, looks for shared/bench beside the repository, then beside
    each folder above it (a worktree may sit one level further down)."""
    if given:
        given = os.path.abspath(given)
        if os.path.basename(given) == "workloads":
            given = os.path.dirname(given)
        return given
    here = TOP
    while True:
        parent = os.path.dirname(here)
        candidate = os.path.join(parent, "shared", "bench")
        if os.path.isdir(os.path.join(candidate, "workloads")):
            return candidate
        if parent == here:
            sys.exit("harness: no shared/bench/workloads beside the repository; give --bench DIR")
        here = parent


def read_expected(bench_dir):
    expected = {}
    with open(os.path.join(bench_dir, "expected.txt")) as f:
        for line in f:
            line = line.strip()
            if line:
                expected[line.split()[0]] = line
    return expected


def emulated():
    script = os.path.join(TOP, "scripts", "emulated.sh")
    return os.path.exists(script) and subprocess.run([script]).returncode == 0


def child_cpu():
    # getrusage counts in microseconds; os.times only in clock ticks.
    r = resource.getrusage(resource.RUSAGE_CHILDREN)
    return r.ru_utime + r.ru_stime


def run_timed(argv, timeout, stdout=subprocess.PIPE):
    """Runs argv once; gives (exit status or None on timeout, output, first
    line of its errors, wall seconds, CPU seconds of user + system)."""
    cpu = child_cpu()
    start = time.perf_counter()
    proc = subprocess.Popen(argv, stdout=stdout, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL)
    try:
        out, err = proc.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.communicate()
        return None, "", "", timeout, timeout
    wall = time.perf_counter() - start
    # The child is reaped by now, so its CPU time has joined the children's.
    used = child_cpu() - cpu
    err = (err or b"").decode(errors="replace").strip()
    return proc.returncode, (out or b"").decode(errors="replace"), err.split("\n")[0], wall, used


def build_c(source, work, opt):
    exe = os.path.join(work, os.path.basename(source)[:-2] + opt.replace("-", "_"))
    r = subprocess.run(["gcc", "-m32", opt, source, "-o", exe, "-lm"], capture_output=True, text=True)
    if r.returncode != 0:
        say(f"harness: gcc {opt} {source} failed; its cell says missing:\n{r.stderr.strip()}")
        return None
    return exe


def commands(workload, wdir, work, kvscript):
    """Each engine's command line for a workload, or None when it cannot run."""
    kvs, lua, c = (os.path.join(wdir, workload + ext) for ext in (".kvs", ".lua", ".c"))
    o0 = build_c(c, work, "-O0") if os.path.exists(c) else None
    o2 = build_c(c, work, "-O2") if os.path.exists(c) else None
    has_lua = os.path.exists(lua)
    return {
        "kvscript": [kvscript, kvs] if os.path.exists(kvs) else None,
        "gcc -O2": [o2] if o2 else None,
        "gcc -O0": [o0] if o0 else None,
        "luajit": ["luajit", lua] if has_lua else None,
        "luajit -joff": ["luajit", "-joff", lua] if has_lua else None,
        "lua5.4": ["lua5.4", lua] if has_lua else None,
    }


def judge(engine, status, out, expected):
    """None when the run is good, else the word its cell shows."""
    if status is None:
        return TIMEOUT
    if engine == "kvscript" and status == 1:
        return NOT_YET
    if status != 0:
        return FAILED
    if out.strip() != expected:
        return WRONG
    return None


def run_workloads(args, bench_dir, kvscript, use_cpu):
    expected = read_expected(bench_dir)
    wdir = os.path.join(bench_dir, "workloads")
    results, untimed = {}, []
    with tempfile.TemporaryDirectory(prefix="kvbench") as work:
        cmds = {w: commands(w, wdir, work, kvscript) for w in args.workloads}
        for w in args.workloads:
            results[w] = {e: (list() if cmds[w][e] else MISSING) for e in ENGINES}
        for rnd in range(args.runs):
            say(f"harness: round {rnd + 1} of {args.runs}")
            for w in args.workloads:
                # Rotate who goes first so that no engine always runs cold.
                order = ENGINES[rnd % len(ENGINES):] + ENGINES[:rnd % len(ENGINES)]
                for e in order:
                    cell = results[w][e]
                    if not isinstance(cell, list):
                        continue
                    status, out, err, wall, used = run_timed(cmds[w][e], args.timeout)
                    verdict = judge(e, status, out, expected.get(w, ""))
                    if verdict:
                        results[w][e] = verdict
                        got = out.strip().split("\n")[0] if out.strip() else err
                        untimed.append(f"{w} / {e}: {verdict} (exit {status}): {got[:100]}")
                    else:
                        cell.append(used if use_cpu else wall)
    return results, untimed


def median_or_word(cell):
    return statistics.median(cell) if isinstance(cell, list) and cell else cell


def fmt_seconds(v):
    return f"{v:.3f}" if isinstance(v, float) else v


def fmt_ratio(v, ref):
    if isinstance(v, float) and isinstance(ref, float) and ref > 0:
        return f"{v / ref:.2f}"
    return v if not isinstance(v, float) else "-"


def print_table(title, header, rows):
    widths = [max(len(str(r[i])) for r in [header] + rows) for i in range(len(header))]
    print()
    print(title)
    print("| " + " | ".join(str(h).ljust(wd) for h, wd in zip(header, widths)) + " |")
    print("|" + "|".join("-" * (wd + 1) + ":" if i else "-" * (wd + 2) for i, wd in enumerate(widths)) + "|")
    for r in rows:
        print("| " + " | ".join(str(c).rjust(wd) if i else str(c).ljust(wd)
                                for i, (c, wd) in enumerate(zip(r, widths))) + " |")


def print_workloads(results, args, use_cpu):
    medians = {w: {e: median_or_word(results[w][e]) for e in ENGINES} for w in args.workloads}
    what = "CPU (user + system)" if use_cpu else "wall-clock"
    print_table(f"Median {what} seconds of the whole process (runs: {args.runs})",
                ["workload"] + ENGINES,
                [[w] + [fmt_seconds(medians[w][e]) for e in ENGINES] for w in args.workloads])
    for ref in ("gcc -O0", "lua5.4"):
        print_table(f"Time relative to {ref} (lower is faster)",
                    ["workload"] + ENGINES,
                    [[w] + [fmt_ratio(medians[w][e], medians[w][ref]) for e in ENGINES] for w in args.workloads])


# ---------------------------------------------------------------------------
# Compile speed: generated programs of ordinary functions, the same shape in
# each language. Each function does integer arithmetic and string work and
# calls the one before it behind a guard, so the program runs only a few
# calls deep whatever its length.

def gen_kvs(count):
    out = ["Dim gOk As Boolean", "",
           "Function Keep(v As String) As Boolean", "  Return Len(v) > 0", "End Function", "",
           "Function F0(a As Integer, s As String) As String", "  Return s", "End Function", ""]
    for i in range(1, count + 1):
        out += [f"Function F{i}(a As Integer, s As String) As String",
                "  Dim n As Integer",
                "  Dim t As String",
                f"  n = a * {i % 97 + 2} + Len(s) Mod 5 - a \\ 3",
                f"  t = Mid(s + \"x{i % 1000}\" + Chr(65 + n Mod 26), 1, 12)",
                f"  gOk = a <= 0 Or Keep(F{i - 1}(a - 1, t))",
                "  Return t + Str(n)",
                "End Function",
                ""]
    out += [f"Print Str(Len(F{count}(3, \"seed\")))"]
    return out


def gen_lua(count):
    out = ["local ok", "",
           "function keep(v)", "  return #v > 0", "end", "",
           "function f0(a, s)", "  return s", "end", ""]
    for i in range(1, count + 1):
        out += [f"function f{i}(a, s)",
                "  local n",
                "  local t",
                f"  n = a * {i % 97 + 2} + #s % 5 - math.floor(a / 3)",
                f"  t = string.sub(s .. \"x{i % 1000}\" .. string.char(65 + n % 26), 1, 12)",
                f"  ok = a <= 0 or keep(f{i - 1}(a - 1, t))",
                "  return t .. tostring(n)",
                "end",
                ""]
    out += [f"print(#f{count}(3, \"seed\"))"]
    return out


def gen_c(count):
    out = ["#include <stdio.h>", "#include <string.h>", "", "static int ok;", "",
           "static int keep(const char* v)", "{", "    return strlen(v) > 0;", "}", "",
           "static char* f0(int a, const char* s, char* out)", "{",
           "    snprintf(out, 64, \"%s\", s);", "    return out;", "}", ""]
    for i in range(1, count + 1):
        out += [f"static char* f{i}(int a, const char* s, char* out)",
                "{",
                "    int n;",
                "    char t[32], inner[64];",
                f"    n = a * {i % 97 + 2} + (int)strlen(s) % 5 - a / 3;",
                f"    snprintf(t, 13, \"%sx{i % 1000}%c\", s, 65 + n % 26);",
                f"    ok = a <= 0 || keep(f{i - 1}(a - 1, t, inner));",
                "    snprintf(out, 64, \"%s%d\", t, n);",
                "    return out;",
                "}",
                ""]
    out += ["int main(void)", "{", "    char out[64];",
            f"    printf(\"%d\\n\", (int)strlen(f{count}(3, \"seed\", out)));", "    return 0;", "}"]
    return out


def generate(lines_wanted, gen, per_function):
    """A program of about lines_wanted lines; gives its lines."""
    return gen(max(1, lines_wanted // per_function))


def compile_speed(args, kvscript, use_cpu):
    sizes = args.compile_lines
    # The one row that runs its program must print what Lua prints for the same program.
    tools = [
        ("kvscript FILE (compile to native code, run a 3-call main)", ".kvs",
         lambda f: [kvscript, f], "compare"),
        ("kvscript --tac FILE > /dev/null (compile to TAC and list it)", ".kvs",
         lambda f: [kvscript, "--tac", f], subprocess.DEVNULL),
        ("luac5.4 -p (parse and compile to bytecode)", ".lua",
         lambda f: ["luac5.4", "-p", f], None),
        ("luajit -b FILE /dev/null (compile to bytecode)", ".lua",
         lambda f: ["luajit", "-b", f, "/dev/null"], None),
        ("gcc -m32 -O0 -c", ".c",
         lambda f: ["gcc", "-m32", "-O0", "-c", f, "-o", "/dev/null"], None),
    ]
    gens = {".kvs": (gen_kvs, 9), ".lua": (gen_lua, 9), ".c": (gen_c, 11)}
    rows, untimed = [], []
    with tempfile.TemporaryDirectory(prefix="kvcompile") as work:
        files = {}
        for size in sizes:
            for ext, (gen, per) in gens.items():
                lines = generate(size, gen, per)
                path = os.path.join(work, f"gen{size}{ext}")
                with open(path, "w") as f:
                    f.write("\n".join(lines) + "\n")
                files[size, ext] = (path, len(lines))
            files[size, "want"] = subprocess.run(["lua5.4", files[size, ".lua"][0]], capture_output=True,
                                                 text=True).stdout.strip()
        times = {(t[0], s): [] for t in tools for s in sizes}
        for rnd in range(args.compile_runs):
            say(f"harness: compile round {rnd + 1} of {args.compile_runs}")
            for size in sizes:
                for name, ext, argv, stdout in tools:
                    cell = times[name, size]
                    if not isinstance(cell, list):
                        continue
                    path, _ = files[size, ext]
                    sink = subprocess.DEVNULL if stdout == subprocess.DEVNULL else subprocess.PIPE
                    status, out, err, wall, used = run_timed(argv(path), args.timeout, sink)
                    verdict = TIMEOUT if status is None else FAILED if status != 0 else None
                    if not verdict and stdout == "compare" and out.strip() != files[size, "want"]:
                        verdict, err = WRONG, out.strip()[:100]
                    if verdict:
                        times[name, size] = verdict
                        untimed.append(f"compile {name}, {size} lines: {verdict} (exit {status}): {err[:100]}")
                        continue
                    cell.append(used if use_cpu else wall)
        for name, ext, _, _ in tools:
            row = [name]
            for size in sizes:
                m = median_or_word(times[name, size])
                row.append(f"{files[size, ext][1] / m:,.0f}" if isinstance(m, float) and m > 0 else m)
            rows.append(row)
    what = "CPU" if use_cpu else "wall-clock"
    print_table(f"Compile speed: lines per second ({what}, whole process, start-up included, "
                f"median of {args.compile_runs})",
                ["tool"] + [f"{s:,} lines" for s in sizes], rows)
    return untimed


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--bench", help="folder with workloads/ and expected.txt (default: shared/bench beside the repository)")
    p.add_argument("--kvscript", default=os.path.join(TOP, "build", "kvscript"),
                   help="the engine to time (default build/kvscript, built when absent)")
    p.add_argument("-n", "--runs", type=int, default=5, help="runs of each program (default 5)")
    p.add_argument("--compile-runs", type=int, help="runs of each compile (default: --runs)")
    p.add_argument("--timeout", type=float, default=300, help="seconds before a run counts as hung")
    p.add_argument("--cpu", action="store_true", help="time user + system CPU instead of wall-clock")
    p.add_argument("--workloads", nargs="+", default=WORKLOADS, metavar="NAME")
    p.add_argument("--no-compile", action="store_true", help="skip the compile-speed table")
    p.add_argument("--compile-lines", type=int, nargs="+", default=[10000, 100000], metavar="LINES",
                   help="sizes of the generated programs (default 10000 100000)")
    args = p.parse_args()
    if args.compile_runs is None:
        args.compile_runs = args.runs

    ensure_peers()
    kvscript = ensure_kvscript(os.path.abspath(args.kvscript))
    bench_dir = find_bench_dir(args.bench)
    say(f"harness: workloads from {bench_dir}")
    warn = emulated()

    results, untimed = run_workloads(args, bench_dir, kvscript, args.cpu)
    if warn:
        print()
        print("WARNING: 32-bit programs (kvscript, gcc -m32) run under qemu emulation here while lua5.4 "
              "and luajit run natively: the ratios say nothing about the engines.")
    print_workloads(results, args, args.cpu)
    if not args.no_compile:
        untimed += compile_speed(args, kvscript, args.cpu)
    if untimed:
        print()
        print("Cells not timed:")
        for line in untimed:
            print("  " + line)


if __name__ == "__main__":
    main()
