// Compile time per megabyte of source, by shape of source and by size. The
// compiler should take time in proportion to the source whatever it holds,
// so each row should stay flat from 1 to 16 MB.
//
// Shapes: ordinary code (classes, Subs and Functions with calls, If/For/While
// blocks, string and number literals), and three inputs built to defeat
// hashing: integer literals that are all multiples of 1,024, string literals
// made of "Aa"/"BB" pairs and names made of "B0"/"AO" pairs (pairs that a
// multiply-by-31 hash cannot tell apart).
//
// Each compile runs in a child process, so that memory starts clean and a
// run that takes more CPU time than the cap is stopped (CPU time, so that a
// busy machine doesn't stop it early); a stopped run prints ">60s" and the
// larger sizes of its shape are skipped.
// Usage: CompileBench [largest MB] [cap seconds] [shape]
// (defaults 16, 60 and every shape; a shape is named by the start of its name)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "engine/KVScriptInterface.h"

namespace {

double CpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec / 1e9;
}

// Appends formatted text; every piece below is far shorter than the buffer.
void Append(std::string& out, char const* format, ...) __attribute__((format(printf, 2, 3)));
void Append(std::string& out, char const* format, ...) {
  char buf[2048];
  va_list args;
  va_start(args, format);
  vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  out += buf;
}

// Declarations must all come before the main program's statements, so the
// ordinary shape is written as three runs of pieces: classes and methods,
// then the globals, then the statements that use them. Numbers and strings
// vary from piece to piece, as the literals of real code do.
std::string OrdinaryCode(size_t bytes) {
  std::string decls, dims, body;
  for (int i = 0; decls.size() + dims.size() + body.size() < bytes; ++i) {
    Append(decls,
           "Class Shape%d\n"
           "  Dim width As Integer\n"
           "  Dim label As String\n"
           "  Function Area(scale As Integer) As Integer\n"
           "    Return width * scale\n"
           "  End Function\n"
           "  Sub Rename(n As String)\n"
           "    label = n + \"-%d\"\n"
           "  End Sub\n"
           "End Class\n\n",
           i, i);
    Append(decls,
           "Function Compute%d(n As Integer) As Integer\n"
           "  Dim total As Integer = %d\n"
           "  Dim k As Integer\n"
           "  For k = 1 To n\n"
           "    If total > 1000 Then\n"
           "      total = total - %d\n"
           "    ElseIf total < 0 Then\n"
           "      total = 0\n"
           "    Else\n"
           "      total = total + k * 3\n"
           "    End If\n"
           "  Next\n"
           "  While total > 10\n"
           "    total = total \\ 2\n"
           "  Wend\n"
           "  Return total\n"
           "End Function\n\n",
           i, i % 1000, i * 7 % 5000);
    Append(decls,
           "Sub Report%d(label As String)\n"
           "  Dim s As String = \"item %d: \" + label\n"
           "  Dim v As Integer = Compute%d(10)\n"
           "  Dim sh As New Shape%d\n"
           "  sh.width = v\n"
           "  sh.Rename \"r%d\"\n"
           "  Print s + Str(sh.Area(2)) + \" of %d\"\n"
           "End Sub\n\n",
           i, i, i, i, i, i * 3);
    Append(dims, "Dim g%d As Integer\n", i);
    Append(body,
           "g%d = Compute%d(%d)\n"
           "Report%d \"run %d\"\n"
           "If g%d > %d Then\n"
           "  g%d = g%d - %d\n"
           "  note = \"high %d\"\n"
           "ElseIf g%d = 0 Then\n"
           "  note = note + \"zero\"\n"
           "End If\n"
           "For k = 1 To %d\n"
           "  ratio = ratio * 1.5 + %d.25\n"
           "Next\n"
           "While k > %d\n"
           "  k = k - 1\n"
           "Wend\n",
           i, i, i, i, i, i, i * 5 + 3, i, i, i * 11 + 1, i, i, i % 97 + 1, i, i * 3 + 2);
  }
  dims = "Dim k As Integer\nDim ratio As Double\nDim note As String\n" + dims;
  return decls + dims + body;
}

// `a = 0`, `a = 1024`, `a = 2048`, ...: distinct literals sharing their low bits.
std::string IntegerMultiples(size_t bytes) {
  std::string out = "Dim a As Integer\n";
  for (long i = 0; out.size() < bytes; ++i) Append(out, "a = %ld\n", i * 1024);
  return out;
}

// The bits of `i` spelt with one of two pairs per bit, 20 pairs in all:
// enough distinct spellings for 16 MB of lines.
std::string PairSpelling(long i, char const* zero, char const* one) {
  std::string out;
  for (int bit = 19; bit >= 0; --bit) out += (i >> bit) & 1 ? one : zero;
  return out;
}

std::string CollidingStrings(size_t bytes) {
  std::string out = "Dim s As String\n";
  for (long i = 0; out.size() < bytes; ++i)
    out += "s = \"" + PairSpelling(i, "Aa", "BB") + "\"\n";
  return out;
}

std::string CollidingNames(size_t bytes) {
  std::string out;
  for (long i = 0; out.size() < bytes; ++i)
    out += "Dim " + PairSpelling(i, "B0", "AO") + " As Integer\n";
  return out;
}

struct Shape {
  char const* name;
  std::string (*generate)(size_t bytes);
};

Shape const kShapes[] = {
    {"ordinary", OrdinaryCode},
    {"int x1024", IntegerMultiples},
    {"Aa/BB strings", CollidingStrings},
    {"B0/AO names", CollidingNames},
};

class CountingEngine : public KVScriptInterface {
public:
  using KVScriptInterface::CompilerError;
  void CompilerError(CompileErrorCode, unsigned long) override { ++errors; }
  long errors = 0;
};

struct Result {
  double seconds;
  long errors;
};

// In the child: generate, then time one Precompile. The CPU seconds and the
// error count go back through the pipe.
void CompileInChild(Shape const& shape, size_t bytes, int pipeOut) {
  std::string source = shape.generate(bytes);
  CountingEngine engine;
  engine.SetSource(source.data(), source.size());
  double start = CpuSeconds();
  engine.Precompile();
  Result r{CpuSeconds() - start, engine.errors};
  ssize_t written = write(pipeOut, &r, sizeof r);
  _exit(written == (ssize_t)sizeof r ? 0 : 1);
}

// False when the run was stopped at the cap or failed.
bool Measure(Shape const& shape, size_t bytes, int capSeconds, Result* out) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  fflush(stdout);
  pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    rlimit cpu{(rlim_t)capSeconds, (rlim_t)capSeconds + 5};
    setrlimit(RLIMIT_CPU, &cpu);
    CompileInChild(shape, bytes, fds[1]);
  }
  close(fds[1]);
  bool ok = child > 0 && read(fds[0], out, sizeof *out) == (ssize_t)sizeof *out;
  close(fds[0]);
  int status = 0;
  if (child > 0) waitpid(child, &status, 0);
  return ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  int largest = argc > 1 ? atoi(argv[1]) : 16;
  int cap = argc > 2 ? atoi(argv[2]) : 60;
  char const* only = argc > 3 ? argv[3] : "";
  printf("CPU seconds per MB of source (errors reported, if any, in brackets)\n");
  printf("%-14s", "shape");
  for (int mb = 1; mb <= largest; mb *= 2) printf("%10d MB", mb);
  printf("%10s\n", "max/min");
  for (Shape const& shape : kShapes) {
    if (strncmp(shape.name, only, strlen(only)) != 0) continue;
    printf("%-14s", shape.name);
    double lo = 1e30, hi = 0;
    bool stopped = false;
    for (int mb = 1; mb <= largest; mb *= 2) {
      Result r;
      if (stopped) {
        printf("%13s", "-");
        continue;
      }
      char cell[32];
      if (!Measure(shape, (size_t)mb << 20, cap, &r)) {
        snprintf(cell, sizeof cell, ">%ds", cap);
        printf("%13s", cell);
        stopped = true;
        continue;
      }
      double perMB = r.seconds / mb;
      if (perMB < lo) lo = perMB;
      if (perMB > hi) hi = perMB;
      if (r.errors)
        snprintf(cell, sizeof cell, "%.3f[%ld]", perMB, r.errors);
      else
        snprintf(cell, sizeof cell, "%.3f", perMB);
      printf("%13s", cell);
    }
    if (stopped)
      printf("%10s\n", "-");
    else
      printf("%10.2f\n", hi / lo);
  }
  return 0;
}
