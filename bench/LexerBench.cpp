// Tokens per second of the lexer over a generated script of typical code:
// declarations, assignments, calls, loops, strings, numbers and comments.
// Each token's value is built as in a real compile (names, literals in the
// pool), since that is most of the cost a parser sees.
// Usage: LexerBench [lines] [repeats]   (defaults 100000 and 5)
#include <chrono>
#include <cstdio>
#include <ctime>
#include <cstdlib>
#include <string>

#include "frontend/CompileScope.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "semantic/SemBase.h"

namespace {

// Process CPU time: the machine is shared with builds, and wall time would
// count their turns as the lexer's.
double CpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec / 1e9;
}

// One block of a method body; `i` varies names and numbers from block to block.
void AppendBlock(std::string& out, int i) {
  char buf[1024];
  snprintf(buf, sizeof buf,
           "  Dim count%d As Integer = %d\n"
           "  Dim name%d As String = \"item \"\"%d\"\"\"\n"
           "  For k = 1 To count%d Step 2\n"
           "    total = total + values(k) * 3.5e2 ' running sum\n"
           "    If total >= &HFF And Not done Then total = total \\ 2 Else done = True\n"
           "  Next\n"
           "  shape.pos(k - 1).x = shape.Width / 2 + .25\n"
           "  Print(\"value: \" + Str(total) + name%d)\n"
           "  background = &cFF8040 // colour\n"
           "  While Self.ready <> False And (a <= b Or c Mod 3 = 0)\n"
           "    Call Refresh(a, b, _\n"
           "      c)\n"
           "  Wend\n",
           i, i % 1000, i, i, i, i);
  out += buf;
}

std::string GenerateScript(int lines) {
  std::string out;
  out.reserve((size_t)lines * 48);
  int written = 0;
  for (int block = 0; written < lines; ++block) {
    char header[64];
    snprintf(header, sizeof header, "Sub Method%d(ByVal n As Integer)\n", block);
    out += header;
    AppendBlock(out, block);
    out += "End Sub\n\n";
    written += 16;
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  int lines = argc > 1 ? atoi(argv[1]) : 100000;
  int repeats = argc > 2 ? atoi(argv[2]) : 5;
  std::string script = GenerateScript(lines);

  double best = 0, bestWall = 0;
  long tokens = 0;
  int lexedLines = 0;
  for (int r = 0; r < repeats; ++r) {
    // A fresh context per run, as each compilation has one: the pool of
    // literals starts empty every time.
    CompileScope scope;
    InitLexer(script.c_str());
    auto start = std::chrono::steady_clock::now();
    double cpuStart = CpuSeconds();
    tokens = 0;
    while (GetToken() != kEndOfText) ++tokens;
    double cpu = CpuSeconds() - cpuStart;
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (tokens / cpu > best) best = tokens / cpu;
    if (tokens / wall > bestWall) bestWall = tokens / wall;
    lexedLines = total_lines();
  }
  printf("lexer: %d lines, %zu bytes, %ld tokens per run\n", lexedLines, script.size(), tokens);
  printf("lexer: best of %d runs: %.1f million tokens per CPU second (%.1f per wall-clock second)\n",
         repeats, best / 1e6, bestWall / 1e6);
  return 0;
}
