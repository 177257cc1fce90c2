// One compilation's hold on the compiler's process-wide state.
//
// The grammar's actions, the lexer and the compile routines find the
// compilation they serve through globals: gContext, the lexer's run and its
// token value, the temporary-name counter. A CompileScope makes a fresh
// SrcContext, which it owns, the current compilation for as long as it
// lives; on leaving, by whatever path, it deletes the context and gives
// every one of those globals back as it found it. So no global points into
// a compilation that is over, and a compile started inside another one
// (from a handler of the outer compile's error event) leaves the outer one
// as it was. yyparse keeps the parser's own globals the same way.
//
// Invariants:
// - Scopes nest strictly; the innermost one is the current compilation.
// - With no scope open, gContext is null.
#pragma once

#include <cstdint>

#include "frontend/Lexer.h"

class SrcContext;

class CompileScope {
public:
  // The new context is current, the lexer has an empty text and temporary
  // names count from 0.
  CompileScope();
  ~CompileScope();
  CompileScope(CompileScope const&) = delete;
  CompileScope& operator=(CompileScope const&) = delete;

  SrcContext* Context() const { return mContext; }

private:
  SrcContext* mContext;
  SrcContext* mOuterContext;
  LexerRun mOuterLexer;
  uint32_t mOuterTemporaries;
};
