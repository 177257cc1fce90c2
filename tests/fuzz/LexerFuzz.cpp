// Lexes arbitrary bytes to the end of the text. Beside the sanitizers'
// findings it checks what must hold for any input: the lexer ends (every
// token but the last takes at least one byte), lines never run backwards,
// and a token's place lies inside the text read so far.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frontend/CompileScope.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "semantic/SemBase.h"

namespace {

void Check(bool ok, char const* what) {
  if (ok) return;
  fprintf(stderr, "lexer invariant broken: %s\n", what);
  abort();
}

// Runs the lexer over `text` (NUL-terminated, `length` bytes before the
// first NUL or fewer). `mode` picks a conditional skip before the plain run.
void LexToEnd(char const* text, size_t length, int mode) {
  CompileScope scope;
  InitLexer(text);
  if (mode == 1) SkipConditionallyCompiledLines(false);
  if (mode == 2) SkipConditionallyCompiledLines(true);
  size_t tokens = 0;
  int lastLine = 0;
  for (;;) {
    int token = GetToken();
    Check(!!yylval, "a token without a value handle");
    if (token == kEndOfText) break;
    Check(++tokens <= length + 1, "more tokens than bytes: the lexer does not advance");
    Check(current_line() >= lastLine, "lines ran backwards");
    lastLine = current_line();
    LexerState s = SaveLexerState();
    Check(s.position <= length, "read past the end of the text");
    Check(s.lineStart <= s.position, "line start ahead of the position");
    SourceLocation loc = CurrentTokenLocation();
    Check(loc.startLine == current_line(), "a token's line is not the current line");
    // An escaped string may end on a later line, at any offset of it.
    Check(loc.endLine > loc.startLine || (loc.endLine == loc.startLine && loc.endOffset >= loc.startOffset),
          "a token ends before it starts");
  }
  Check(GetToken() == kEndOfText, "the end of the text does not repeat");
}

void LexString(std::string const& text) { LexToEnd(text.c_str(), strlen(text.c_str()), 0); }

// Inputs too big for the mutator's usual lengths, run once per process.
void RunFixedCases() {
  const size_t kLong = 1 << 20;
  LexString(std::string(kLong, 'a'));
  LexString(std::string(kLong, '9'));
  LexString("x = \"" + std::string(kLong, 's'));
  LexString("\\\"" + std::string(kLong, '\\'));
  LexString(std::string(kLong / 2, '_') + "\n" + std::string(kLong / 2, '.'));
  std::string pairs;
  for (size_t i = 0; i < kLong / 4; ++i) pairs += "_ \n(";
  LexString(pairs);
  std::string withNul = "a = 1\nb = 2";
  withNul[5] = '\0';
  LexToEnd(withNul.data(), strlen(withNul.data()), 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static bool fixedDone = false;
  if (!fixedDone) {
    fixedDone = true;
    RunFixedCases();
  }
  // The engine reads a NUL-terminated text: a NUL in the input ends it
  // there, as it would for a host's source.
  std::string text(reinterpret_cast<char const*>(data), size);
  int mode = size ? data[0] % 3 : 0;
  LexToEnd(text.c_str(), strlen(text.c_str()), mode);

  string s;
  s.ConstructFromBuffer(text.data(), (int)size);
  string decoded = DecodeBackslashEscape(s);
  Check(decoded.Length() <= s.Length(), "an escape made the text longer");
  size_t half = size / 2;
  std::string a(text.c_str(), strnlen(text.c_str(), half)), b(text.c_str() + half);
  int cmp = lexer_strcmpi(a.c_str(), b.c_str());
  Check(cmp == -lexer_strcmpi(b.c_str(), a.c_str()), "lexer_strcmpi is not antisymmetric");
  return 0;
}
