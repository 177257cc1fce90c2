// Where the compilation in progress stands among its names: the open symbol
// tables and the module, class and method being compiled. The compilation
// context is the one scope; it is current, through gNameScope, from the
// start of its compile to its end, and none is current between compiles.
// The semantic model reads it to declare and check names; the compile
// routines above it set it.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SymbolTable.h"

class ModuleDeclaration;
class ClassDeclaration;
class FunctionDeclaration;

class NameScope {
public:
  // The module that declarations are looked up in: the open `Module`, or
  // the root of the mined declarations.
  ModuleDeclaration* CurrentModule() const { return inModule ? currentModule : rootModule; }

  // The innermost open symbol table.
  Ref<SymbolTable> currentTable;
  // Every table of the compilation, so that tables outlive their scopes.
  Ref<SymbolTableList> tables;
  ModuleDeclaration* rootModule = nullptr;
  FunctionDeclaration* currentFunction = nullptr;
  bool inClass = false;
  ClassDeclaration* currentClass = nullptr;
  bool inModule = false;
  ModuleDeclaration* currentModule = nullptr;

protected:
  ~NameScope() = default;
};

extern NameScope* gNameScope;
