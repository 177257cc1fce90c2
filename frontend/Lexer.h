// The lexer: turns a NUL-terminated UTF-8 source into tokens for the
// declaration miner and the grammar's parser, each of which restarts it with
// InitLexer. Token numbers are in frontend/tokens.h.
//
// Invariants:
// - All lexer state is process-global: one run at a time, and a run set
//   aside (SaveLexerRun) goes on where it stopped once given back. The
//   source is never copied, so the caller's buffer must outlive the run.
// - The state record is a plain value; saving and restoring it gives back a
//   token (a look at the next token costs nothing else).
// - A token's value is in yylval: kNullSemBase for tokens without one, so a
//   reader never meets a null handle for the token just read.
// - Line numbers count line breaks from 0; CR, LF and CRLF are one break each.
#pragma once

#include <cstdint>

#include "foundation/Ref.h"
#include "foundation/String.h"
#include "frontend/Tokens.h"
#include "diag/SourceLocation.h"

class SemBase;
class TacLiteralPool;

// Room for a name or a number's text plus its NUL. A longer name is cut at
// the last whole UTF-8 character that fits, and the rest of it is dropped.
constexpr int kTokenBufferSize = 2048;

struct LexerState {
  uint32_t position;       // index of the next byte of the source
  bool afterNewline;       // last token handed out was a line break, or none yet
  int32_t lineCounter;     // line breaks passed
  int32_t tokenLine;       // lineCounter at the start of the latest token
  uint32_t lineStart;      // position just behind the latest line break
  bool assignPossible;     // the statement may still be an assignment's left side
  int32_t parenDepth;      // open parentheses in this statement; may go below 0
  int32_t designatorParts; // dotted-chain names at depth 0 not yet followed by a dot
};

// The value of the token in hand. The grammar's parser owns this global once
// it exists; until then the lexer defines it.
extern Ref<SemBase> yylval;

// Starts a run over `source` (may be null: an empty text). A UTF-8
// byte-order mark at its very start is skipped.
void InitLexer(char const* source);
// The next token for a reader: a byte value, a number of tokens.h, or -1 at
// the end (and again on every later call).
int GetToken();
// Line of the latest token (from 0), and the count of LF bytes in the source.
int current_line();
int total_lines();

// Skips the lines of a conditional branch that is not taken; see the
// conditional-compilation routines of the compilation context.
void SkipConditionallyCompiledLines(bool stopAtEndifOnly);

// Backslash escapes of an escaped string (\n, \t, \xHH and the like).
string DecodeBackslashEscape(string s);
// -1, 0 or 1; folds ASCII and the Mac Roman accented letters to capitals.
int lexer_strcmpi(char const* a, char const* b);

// For readers that look ahead: the place of the lexer, to give tokens back.
LexerState SaveLexerState();
void RestoreLexerState(LexerState const& state);

// Everything the lexer holds of one run: the text, the place in it and the
// latest token's value and location. A compile set aside for another one
// (see CompileScope) gets its run back whole.
struct LexerRun {
  char const* source;
  LexerState state;
  int totalLines;
  SourceLocation location;
  Ref<SemBase> value;
};
LexerRun SaveLexerRun();
void RestoreLexerRun(LexerRun const& run);
// Where the latest token stands.
SourceLocation CurrentTokenLocation();
