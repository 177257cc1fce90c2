// The state of one compilation, shared by the grammar's actions from one
// reduction to the next and reached through the global gContext. The context
// is also the literal pool of its compilation, so literals die with it, its
// error sink and its name scope: the layers below the front end reach those
// slices of it through gLiteralPool, gErrorSink and gNameScope, which
// SetCurrentContext sets together with gContext.
//
// Invariants:
// - gContext, the lexer and yylval are plain globals: one compilation is
//   current at a time. A CompileScope (frontend/CompileScope.h) owns the
//   context of each compilation, makes it current and, when it ends, gives
//   back the one it found: null between compilations, never a deleted one.
// - hadError, once set by an Error routine, stays set until the context dies.
// - The shared values of the process (the type identifiers of BasicType, the
//   pragma table, the constant addresses of the three-address code and the
//   intrinsic operands) are all made by the first InitParserGlobals and live
//   until the process ends, so a compilation after the first allocates
//   nothing that outlives it.
#pragma once

#include <cstdint>

#include "diag/CompileError.h"
#include "foundation/SimpleVector.h"
#include "foundation/StringMap.h"
#include "frontend/LanguageOptions.h"
#include "ir/Intrinsics.h"
#include "ir/ThreeAddressCode.h"
#include "semantic/NameScope.h"
#include "semantic/SemBase.h"
#include "semantic/SymbolTable.h"

class DebuggerSymbols;
class ModuleDeclaration;
class ClassDeclaration;
class FunctionDeclaration;
class PropertyDeclaration;

class SrcContext : public TacLiteralPool, public CompileErrorSink, public NameScope {
public:
  // Opens the globals' table, storage class 0, as the first of `tables`.
  SrcContext();
  ~SrcContext() override;

  // The line of the token just read.
  int CurrentLine() const override;
  // The label literal of a GoTo label, made at first use so that a label can
  // be jumped to before it is placed. Names match ignoring case; labels have
  // no scope, so one name is one label in the whole compilation.
  TacAddr* NamedLabel(string name);
  // One ObjectStorage address per link name, owned by the pool; the type and
  // offset of the first request stand for every later one.
  TacAddr* GetObjectSymbolAddr(IRDataType const& type, string const& name, unsigned offset);
  // One StaticStorage address at offset 0 per link name, owned by the pool.
  TacAddr* GetStaticSymbolAddr(IRDataType const& type, string const& name);

  // All the code of the compilation, a SemCode with the null type.
  Ref<SemBase> program;
  // The value of each open `Select Case`, and its state.
  SimpleVector<Ref<SemBase>> selectStack;
  // The exit label of each open loop.
  SimpleVector<TacAddr const*> exitTargets;
  PropertyDeclaration* currentProperty = nullptr;
  // The variables of exception handlers, in the order declared. A handler
  // may name the variable of an earlier one: it gets a fresh one of its
  // own type, and the earlier is retired from lookup. In the main program
  // they are statics, which name lookup finds through this list.
  SimpleVector<SymbolID> catchVariables;
  // Their names as written (a static's own name is made unique).
  SimpleVector<string> catchNames;
  // The module current outside each open `Module` (null: none), innermost
  // last, so that `End Module` gives the enclosing one back.
  SimpleVector<ModuleDeclaration*> moduleStack;
  // The flags in force, and those saved at the start of each open method.
  LanguageOptions options;
  SimpleVector<LanguageOptions> optionStack;
  // Symbols to fill for a debugger, or null.
  Ref<DebuggerSymbols> debugSymbols;
  // Open `#if` blocks, per block whether one of its branches was taken, and
  // the line of each block's `#if`, innermost last.
  int32_t conditionalDepth = 0;
  SimpleVector<bool> conditionalTaken;
  // The line of each open `#if`, to report one left open at the end.
  SimpleVector<int32_t> conditionalLines;
  // GoTo labels by name.
  StringMap<TacAddr*> labels;
  // Where each label was placed: the labelScope of its method. A method's
  // start and end each open a new scope (the main program's statements come
  // after every method), so one label placed twice in a scope is found.
  StringMap<int32_t> placedLabels;
  int32_t labelScope = 0;
  StringMap<TacAddr*> objectSymbols;
  StringMap<TacAddr*> staticSymbols;
};

extern SrcContext* gContext;

// Makes `context` (or none, with null) the current compilation: gContext
// and the slices of it that the lower layers see.
void SetCurrentContext(SrcContext* context);

// The words of `#pragma`, numbered in this order; the effect of each on the
// context's options is CompilePragma's.
#define KV_PRAGMAS(X)                                          \
  X(kPragmaDisableBoundsChecking, "disableBoundsChecking")     \
  X(kPragmaDisableBackgroundTasks, "disableBackgroundTasks")   \
  X(kPragmaDisableAutoWaitCursor, "disableAutoWaitCursor")     \
  X(kPragmaBoundsChecking, "BoundsChecking")                   \
  X(kPragmaBackgroundTasks, "BackgroundTasks")                 \
  X(kPragmaStackOverflowChecking, "StackOverflowChecking")     \
  X(kPragmaNilObjectChecking, "NilObjectChecking")             \
  X(kPragmaDebug, "Debug")                                     \
  X(kPragmaReset, "Reset")                                     \
  X(kPragmaBindingPart, "BindingPart")                         \
  X(kPragmaBindingSpecification, "BindingSpecification")

enum pragmas : int32_t {
#define KV_PRAGMA_ENUM(value, word) value,
  KV_PRAGMAS(KV_PRAGMA_ENUM)
#undef KV_PRAGMA_ENUM
};

#define KV_PRAGMA_COUNT(value, word) +1
constexpr int kPragmaCount = 0 KV_PRAGMAS(KV_PRAGMA_COUNT);
#undef KV_PRAGMA_COUNT
static_assert(kPragmaCount == 11 && kPragmaBindingSpecification == 10, "the pragma numbering is fixed");

// The table of pragma words, which match without regard to ASCII case. Made
// by the first InitParserGlobals; never null after it.
StringMap<pragmas> const* PragmaTable();

// The method routines push the options at a method's start and pop them at
// its end, so a pragma inside a method lasts to its end. ResetPragmas copies
// the top back without popping; with nothing pushed (the main program) the
// options stay as they are, as does PopPragmas on an empty stack.
void PushPragmas();
void PopPragmas();
void ResetPragmas();

// Makes `context` the current compilation; the first call of the process
// also makes the shared values (see the invariants above). CompileScope's
// business: elsewhere nothing would give the previous context back.
void InitParserGlobals(SrcContext* context);

// The type nonterminals: each yields a SemIdentifier carrying the type.
// `token` is the keyword's token number (Integer, String, ... Class).
Ref<SemBase> BasicType(int token);
Ref<SemBase> ClassType(Ref<SemBase> name);
// `commas` holds one element per comma, or is null: the rank is one more.
Ref<SemBase> ArrayRank(Ref<SemBase> commas);
Ref<SemBase> ArrayType(Ref<SemBase> element, Ref<SemBase> rank);
