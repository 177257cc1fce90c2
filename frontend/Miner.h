// The declaration miner: a first pass over the source that reads only
// declarations (method headers, properties, constants, events, classes,
// interfaces, modules) and builds the declaration tree, complete with
// inheritance, overriding, dispatch numbers and storage layout, so that the
// one-pass grammar can call a method or use a class declared further down.
//
// Invariants:
// - A hand-written recursive descent over GetToken(); method bodies and
//   top-level statements are passed token by token without being read.
// - Nothing is reported: what doesn't fit is skipped and left to the
//   grammar. The one output beside the tree is `failed`, set when the block
//   structure is broken (a text that ends inside a method, class, interface
//   or module, or a block closed with the wrong End).
// - The miner keeps no state of its own; it restarts the lexer and leaves
//   it at the end of the text, so the caller restarts it for the parser.
// - Inheritance is worked out once per class, and a chain of Inherits that
//   loops back is connected as written without being followed round: the
//   grammar reports it and cuts it.
#pragma once

#include "foundation/String.h"
#include "semantic/DeclarationTable.h"

// Mines `source` into `prefix` (the script library's declarations), or into
// a new module if `prefix` is null, and returns that module. `failed` is
// set, never cleared, when the block structure is broken.
ModuleDeclaration* ExtractDeclarations(char const* source, bool& failed, ModuleDeclaration* prefix);

// One method header from a text, as the script library and the host declare
// their functions: an optional Public, Protected or Private, then Sub or
// Function. Anything else gives null. With an `owner` the method gets the
// class's `self` and a qualified name. The caller owns the result (it is
// not locked). Restarts the lexer.
FunctionDeclaration* ExtractMethodDeclaration(string text, ClassDeclaration* owner);

// The first property of a text such as "Private Dim a(3) As Integer", with
// its scope; null if the text declares none. The caller owns the result.
// Restarts the lexer.
PropertyDeclaration* ExtractPropertyDeclaration(string text);

// Connects each class of `module` and of its inner modules to its parent,
// copies what it inherits and numbers its method and event slots.
void ConnectClassesToParents(ModuleDeclaration* module);

// Depth first, adds the public methods, classes, properties and constants
// of each inner module to the module that encloses it, so that they can be
// named without the module's name.
void ExportPublicModuleDeclarations(ModuleDeclaration* module);

// The private function "<class>.__Lookup" that returns the class's run-time
// record; null for a null class. The caller adds it to the class.
FunctionDeclaration* MakeClassLookupFunction(ClassDeclaration* cls);

// Same presence of a result, same parameter count, and from the second
// parameter on (the first is `self`) the same types and designators; two
// "Operator_Convert" methods must also agree on the result.
bool SignaturesMatchExactly(FunctionDeclaration* a, FunctionDeclaration* b);
