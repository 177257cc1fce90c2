// The grammar's parser. yyparse reads the text that InitLexer was given and
// calls a compile routine at every reduction, so that the code of the whole
// program is built by the time it returns; there is no syntax tree.
//
// Invariants:
// - The globals below are shared with the lexer and the compile routines,
//   so one parse runs at a time; a parse started from inside another's
//   action (a compile started by an error event's handler) gives the outer
//   parse back its look-ahead and error count, and CompileScope gives back
//   the rest of its compilation.
// - A syntax error ends the parse (there is no recovery); semantic errors do
//   not, and are counted by the context's error flag, not by yynerrs.
#pragma once

#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "diag/CompileError.h"
#include "semantic/SemBase.h"

// Parses the lexer's text. 0: accepted; 1: rejected by a syntax error, or
// stopped by the delegate's poll; 2: the parser's stacks overflowed
// (ParserStackOverflow has been reported). Needs a current SrcContext and
// InitLexer run before.
int yyparse();

// The look-ahead token; kParserNoToken while none is held.
extern int yychar;
constexpr int kParserNoToken = -2;
// Syntax errors of the latest parse: 0 or 1, since the first one ends it.
extern int yynerrs;
// The look-ahead's semantic value, as GetToken left it.
extern Ref<SemBase> yylval;

// The parser's report: "parser stack overflow" becomes ParserStackOverflow,
// any other text SyntaxError, at the current line.
void yyerror(char const* message);

// The parser's poll: true when it is to stop. With a delegate its progress
// answer, without one the error flag, so a compile without a delegate stops
// at the first poll after an error.
bool CheckDelegate();
