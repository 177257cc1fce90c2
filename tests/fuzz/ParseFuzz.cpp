// Parses arbitrary bytes as a whole program. Beside the sanitizers' findings
// it checks what must hold for any input: the parse ends, its result is one
// of its three, and the reports agree with it: a syntax error or an overflow
// is the last report and the result says so; an accepted text has neither.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "codebuild/Placeholders.h"
#include "diag/CompileError.h"
#include "diag/CompilerDelegate.h"
#include "frontend/CompileScope.h"
#include "grammar/Parser.h"
#include "frontend/SrcContext.h"
#include "frontend/Lexer.h"
#include "semantic/SymbolTable.h"
#include "semantic/SemBase.h"

namespace {

void Check(bool ok, char const* what) {
  if (ok) return;
  fprintf(stderr, "parser invariant broken: %s\n", what);
  abort();
}

class CountingDelegate : public CompilerDelegate {
public:
  bool CompilerError(CompileError error) override {
    codes.push_back(error.Type());
    Check(error.Location().startLine >= -1, "an error before the first line");
    return false;
  }
  std::vector<CompileErrorCode> codes;
};

int Count(std::vector<CompileErrorCode> const& codes, CompileErrorCode code) {
  int n = 0;
  for (CompileErrorCode c : codes) n += c == code;
  return n;
}

void ParseToEnd(char const* text) {
  CountingDelegate delegate;
  CompileScope scope;
  scope.Context()->delegate = &delegate;
  ResetSymbolTables();
  InitLexer(text);
  int result = yyparse();
  Check(result == 0 || result == 1 || result == 2, "a result that is not 0, 1 or 2");
  int syntax = Count(delegate.codes, SyntaxError);
  int overflow = Count(delegate.codes, ParserStackOverflow);
  if (result == 0) Check(syntax == 0 && overflow == 0, "an accepted text with a syntax error");
  if (result == 1) Check(syntax == 1 && overflow == 0 && delegate.codes.back() == SyntaxError,
                         "a rejected text without exactly one syntax error, last");
  if (result == 2) Check(overflow == 1 && syntax == 0 && delegate.codes.back() == ParserStackOverflow,
                         "an overflow without exactly one overflow report, last");
  Check(yynerrs == (result == 1 ? 1 : 0), "yynerrs does not count the syntax error");
}

// Nesting on both sides of the stacks' limit, once per process.
void RunFixedCases() {
  for (int depth : {199, 200, 201, 4999, 5000, 9990, 10001, 20000}) {
    std::string text = "x = " + std::string(depth, '(') + "1" + std::string(depth, ')') + "\n";
    ParseToEnd(text.c_str());
    std::string blocks;
    for (int i = 0; i < depth / 4; ++i) blocks += "While a\n";
    for (int i = 0; i < depth / 4; ++i) blocks += "Wend\n";
    ParseToEnd(blocks.c_str());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static bool fixedDone = false;
  if (!fixedDone) {
    fixedDone = true;
    RunFixedCases();
  }
  // The engine reads a NUL-terminated text: a NUL in the input ends it there.
  std::string text(reinterpret_cast<char const*>(data), size);
  ParseToEnd(text.c_str());
  return 0;
}
