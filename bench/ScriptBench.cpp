// Script calls and string building per second, measured on whole scripts
// that a host compiles and runs through the engine's public faces, as
// tools/kvscript does. Each script recurses down a binary tree of small
// functions whose leaves are cut off by a short-circuit Or:
//
//   calls    Tree(n) adds 1 to a global and calls Tree(n - 1) twice:
//            2^(n+1) - 1 calls of a script function.
//   strings  Words(n, name) makes "<" + name + ">" in a helper and joins
//            the name to it again: three concatenations and two calls per
//            node, and each node's local string is released on return.
//
// The script prints its own count at the end (in hex, which keeps every
// digit), and the bench checks it, so a run that went wrong is not timed. Times are process CPU seconds of
// Run alone; the compile is timed apart.
// Usage: ScriptBench [depth] [repeats]   (defaults 20 and 3)
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "engine/EngineAPI.h"
#include "engine/PluginMain.h"
#include "host/StandInHost.h"

namespace {

constexpr int kDefaultDepth = 20;
constexpr int kDefaultRepeats = 3;
// 2^(n+1) - 1 must fit the script's 32-bit Integer, three times over.
constexpr int kMaxDepth = 28;

double CpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec / 1e9;
}

char const kCallsScript[] =
    "Dim calls As Integer\n"
    "Dim done As Boolean\n"
    "Function Tree(n As Integer) As Boolean\n"
    "  calls = calls + 1\n"
    "  Return n <= 0 Or (Tree(n - 1) And Tree(n - 1))\n"
    "End Function\n"
    "done = Tree(DEPTH)\n"
    "Print Hex(calls)\n";

char const kStringsScript[] =
    "Dim joins As Integer\n"
    "Dim done As Boolean\n"
    "Function Tag(name As String) As String\n"
    "  Return \"<\" + name + \">\"\n"
    "End Function\n"
    "Function Words(n As Integer, name As String) As Boolean\n"
    "  Dim t As String\n"
    "  t = Tag(name) + name\n"
    "  joins = joins + 3\n"
    "  Return n <= 0 Or (Words(n - 1, name) And Words(n - 1, name))\n"
    "End Function\n"
    "done = Words(DEPTH, \"word\")\n"
    "Print Hex(joins)\n";

std::string sPrinted;
bool sCompileFailed = false;

void OnPrint(VELDobjectStruct*, VELDstringStruct* msg) {
  sPrinted.assign(VELDstringStruct::CString(msg), (size_t)VELDstringStruct::Length(msg));
}

void OnCompilerError(VELDobjectStruct*, long line, long errorNumber, VELDstringStruct*) {
  char const* name = CompileErrorNameOf(errorNumber);
  fprintf(stderr, "line %ld: error %ld: %s\n", line + 1, errorNumber, name ? name : "?");
  sCompileFailed = true;
}

std::string WithDepth(char const* script, int depth) {
  std::string text(script);
  text.replace(text.find("DEPTH"), 5, std::to_string(depth));
  return text;
}

struct Timing {
  double compileSeconds = 0;
  double runSeconds = 0;
  bool ok = false;
};

// Compiles and runs `source` once; ok when the script printed `expected`.
Timing CompileAndRun(std::string const& source, long expected) {
  Timing timing;
  VELDobjectStruct* script = VELDnewInstance("KvScript");
  if (!script) return timing;
  StandInSetEventHandler(script, "Print", reinterpret_cast<void*>(&OnPrint));
  StandInSetEventHandler(script, "CompilerError", reinterpret_cast<void*>(&OnCompilerError));
  VELDstringStruct* text = StandInString(source.data(), (long)source.size(), kEncodingUTF8);
  StandInSetStringProperty(script, "Source", text);
  VELDUnlockString(text);
  sPrinted.clear();
  sCompileFailed = false;
  double start = CpuSeconds();
  StandInCallMethod(script, "Precompile");
  timing.compileSeconds = CpuSeconds() - start;
  if (!sCompileFailed && KvScriptHasLinkedCode(script)) {
    start = CpuSeconds();
    StandInCallMethod(script, "Run");
    timing.runSeconds = CpuSeconds() - start;
    long state = 0;
    StandInGetIntegerProperty(script, "State", &state);
    char hex[16];
    snprintf(hex, sizeof hex, "%lX", expected);
    timing.ok = state == ScriptStateComplete && sPrinted == hex;
    if (!timing.ok) fprintf(stderr, "the script printed \"%s\", not %s\n", sPrinted.c_str(), hex);
  }
  VELDUnlockObject(script);
  return timing;
}

// The best of `repeats` runs; false if any run failed or kept memory.
bool Measure(char const* what, char const* script, int depth, int repeats, long expected, Timing* best) {
  std::string source = WithDepth(script, depth);
  for (int r = 0; r < repeats; ++r) {
    long before = CountedBytes();
    Timing t = CompileAndRun(source, expected);
    if (!t.ok) {
      fprintf(stderr, "%s: the script did not compile and run\n", what);
      return false;
    }
    if (long kept = CountedBytes() - before) {
      fprintf(stderr, "%s: the run kept %ld counted bytes\n", what, kept);
      return false;
    }
    if (r == 0 || t.runSeconds < best->runSeconds) best->runSeconds = t.runSeconds;
    if (r == 0 || t.compileSeconds < best->compileSeconds) best->compileSeconds = t.compileSeconds;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int depth = argc > 1 ? atoi(argv[1]) : kDefaultDepth;
  int repeats = argc > 2 ? atoi(argv[2]) : kDefaultRepeats;
  if (depth < 1 || depth > kMaxDepth || repeats < 1) {
    fprintf(stderr, "usage: ScriptBench [depth 1..%d] [repeats]\n", kMaxDepth);
    return 64;
  }
  StandInHostReset();
  VELDPluginMain(StandInResolve);
  WarmUpSharedValues();
  long nodes = (1L << (depth + 1)) - 1;

  Timing calls, strings;
  if (!Measure("calls", kCallsScript, depth, repeats, nodes, &calls)) return 1;
  if (!Measure("strings", kStringsScript, depth, repeats, 3 * nodes, &strings)) return 1;

  printf("tree depth %d: %ld nodes; best of %d runs, process CPU time\n", depth, nodes, repeats);
  printf("calls:   %.0f script calls per second (%.1f ns each), compile %.2f ms\n",
         nodes / calls.runSeconds, 1e9 * calls.runSeconds / nodes, 1e3 * calls.compileSeconds);
  printf("strings: %.0f concatenations per second, %.0f calls per second, compile %.2f ms\n",
         3 * nodes / strings.runSeconds, 2 * nodes / strings.runSeconds, 1e3 * strings.compileSeconds);
  return 0;
}
