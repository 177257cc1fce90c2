// The state of one compilation, shared by the grammar's actions from one
// reduction to the next and reached through the global gContext. The context
// is also the literal pool of its compilation, so literals die with it.
//
// Invariants:
// - One compilation at a time per process: gContext, the lexer and yylval
//   are plain globals.
// - gContext stays set after its compilation, dangling once the context is
//   deleted, until the next InitParserGlobals: nothing may reach through it
//   between compilations.
// - hadError, once set by an Error routine, stays set until the context dies.
#pragma once

#include <cstdint>

#include "backend/InterRep.h"
#include "engine/LanguageOptions.h"
#include "foundation/SimpleVector.h"
#include "foundation/stringmap.h"
#include "semantic/InterRep.h"
#include "semantic/SemBase.h"

class CompilerDelegate;
class DebuggerSymbols;
class ModuleDeclaration;
class ClassDeclaration;
class FunctionDeclaration;
class PropertyDeclaration;

class SrcContext : public TacLiteralPool {
public:
  // Opens the globals' table, storage class 0, as the first of `tables`.
  SrcContext();
  ~SrcContext() override;

  // The module that declarations are looked up in: the open `Module`, or
  // the root of the mined declarations.
  ModuleDeclaration* CurrentModule() const { return inModule ? currentModule : rootModule; }
  // Label numbers run from 1 and are never reused within a compilation.
  int32_t NewLabel() { return nextLabel++; }

  // Progress and error sink; null is legal and leaves only hadError.
  CompilerDelegate* delegate = nullptr;
  // The innermost open symbol table.
  Ref<SymbolTable> currentTable;
  // Every table of the compilation, so that tables outlive their scopes.
  Ref<SymbolTableList> tables;
  // All the code of the compilation, a SemCode with the null type.
  Ref<SemBase> program;
  ModuleDeclaration* rootModule = nullptr;
  // The value of each open `Select Case`, and its state.
  SimpleVector<Ref<SemBase>> selectStack;
  // The exit label of each open loop.
  SimpleVector<TacAddr const*> exitTargets;
  FunctionDeclaration* currentFunction = nullptr;
  PropertyDeclaration* currentProperty = nullptr;
  bool inClass = false;
  ClassDeclaration* currentClass = nullptr;
  bool inModule = false;
  ModuleDeclaration* currentModule = nullptr;
  // The flags in force, and those saved at the start of each open method.
  LanguageOptions options;
  SimpleVector<LanguageOptions> optionStack;
  // Symbols to fill for a debugger, or null.
  Ref<DebuggerSymbols> debugSymbols;
  // Open `#if` blocks, and per block whether one of its branches was taken.
  int32_t conditionalDepth = 0;
  SimpleVector<bool> conditionalTaken;
  bool hadError = false;
  int32_t nextLabel = 1;
  // GoTo labels by name, with their label literals in step.
  SimpleVector<string> labelNames;
  SimpleVector<TacAddr*> labelAddrs;
  StringMap<TacAddr*> objectSymbols;
  StringMap<TacAddr*> staticSymbols;
};

extern SrcContext* gContext;

// Makes `context` the current compilation and the shared constants of the
// three-address code, on the first call of the process.
void InitParserGlobals(SrcContext* context);
