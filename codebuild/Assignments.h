// Assignment and variable lifetime. Strings, objects and arrays are counted
// handles, and the compiler keeps the counts: every variable holding one
// owns one reference, a call's result owns one until its statement ends,
// every variable starts at zero, and its reference is dropped when its
// scope ends.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"
#include "semantic/SymbolTable.h"

class ClassDeclaration;

// Appends the lines that store `value`, converted to the target's type (its
// element's, through a reference), in `target`: a counted value swaps the
// locks first, and a reference is written through. A constant target is
// NotAssignable; so is a type no store exists for.
void AssignToSymbol(TacAddr const* target, Ref<SemBase> value, Ref<SemBase> code);
// The zeroing of one variable, unless its symbol forbids it.
void InitializeVariable(SymbolID symbol, Ref<SemBase> code);
// `table` is a SemValue of a table's index in the compilation's list.
void InitializeSymbols(Ref<SemBase> table, Ref<SemBase> code);
// The release of one counted variable, unless its symbol forbids it.
void FinalizeVariable(SymbolID symbol, Ref<SemBase> code);
void FinalizeSymbols(Ref<SymbolTable> table, Ref<SemBase> code);
// The release of the counted fields that `cls` adds to its parent's.
void FinalizeClassProperties(ClassDeclaration* cls, Ref<SemBase> code);
