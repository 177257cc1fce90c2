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
#include "frontend/ParserError.h"
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

// ---------------------------------------------------------------------------
// Routines of the compilation context that the grammar calls, defined with
// the context in frontend/SrcContext.cpp. Every one tolerates null handles,
// which arrive after a reported error.

// One clause of `Dim`: `names` holds each variable's identifier followed by
// its dimension values; `initialiser` may be null.
Ref<SemBase> CompileDeclaration(Ref<SemBase> names, Ref<SemBase> type, Ref<SemBase> initialiser);
// One variable of a clause: `dimensions` are its dimension values (none for
// a plain variable), `initialiser` a value that may be used more than once.
// Returns the lines that initialise it, or a null handle.
Ref<SemBase> DeclareOneVar(Ref<SemBase> name, SimpleVector<Ref<SemBase>>& dimensions, Ref<SemBase> type,
                           Ref<SemBase> initialiser);
// A local `Const`; returns a null handle.
Ref<SemBase> CompileConst(Ref<SemBase> name, Ref<SemBase> value);
// A reserved word used as a name: reports ReservedIdentifier and returns an
// identifier "bogus", so that the parse goes on.
Ref<SemBase> CompileReservedIdentifier();
// `#pragma word value`; returns a null handle.
Ref<SemBase> CompilePragma(Ref<SemBase> word, Ref<SemBase> value);
// Conditional compilation: the lexer skips the branches not taken. Each
// returns a null handle, the value of the directive as a statement.
Ref<SemBase> CompileConditionalIf(Ref<SemBase> condition);
Ref<SemBase> CompileConditionalElseIf(Ref<SemBase> condition);
Ref<SemBase> CompileConditionalElse();
Ref<SemBase> CompileConditionalEndIf();

// The type nonterminals: each yields a SemIdentifier carrying the type.
// `token` is the keyword's token number (Integer, String, ... Class).
Ref<SemBase> BasicType(int token);
Ref<SemBase> ClassType(Ref<SemBase> name);
// `commas` holds one element per comma, or is null: the rank is one more.
Ref<SemBase> ArrayRank(Ref<SemBase> commas);
Ref<SemBase> ArrayType(Ref<SemBase> element, Ref<SemBase> rank);

// In debug mode, puts the debugger's call in front of a statement's code.
Ref<SemBase> CompileDebugEntry(Ref<SemBase> code);
// Releases the temporaries of one simple statement at its end.
Ref<SemBase> FilterTemporaryVariables(Ref<SemBase> code);

// Name lookup: a bare name, and `left.name`. `args` holds the subscripts or
// arguments, `value` the right side of an assignment (null when the name is
// read); `defaultError` is raised for an unknown name (kNoCompileError:
// none). These belong to name lookup, and are defined in
// frontend/ContextRoutines.cpp until it lands.
enum FunctionResultMode : int {
  kResultNeeded = 0,     // an expression: a Sub is NoResultValue
  kResultStatement = 1,  // `foo args` or an assignment: a Function is ResultIgnored
  kResultCall = 2,       // `Call foo args`: both are allowed
};
Ref<SemBase> CompileLookup(Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                           CompileErrorCode defaultError, bool isCallStatement);
Ref<SemBase> CompileScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                FunctionResultMode mode);
