// The routines that the grammar's actions use to declare, find and vet
// names against the current symbol table, and to turn an expression into a
// value that can be named more than once.
//
// Every routine works on the table that is current for gContext and
// tolerates null semantic values, which arrive after a reported error.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// Reports a clash of the identifier's name and stores it all the same: in
// a local scope it goes into the current table; fields and globals are
// stored by the routines that lay them out. Returns the identifier.
Ref<SemBase> AddDeclaredName(Ref<SemBase> identifier);

// Reports at most one error, the first that applies of: a symbol of the
// current table itself (DuplicateName); inside a function, a plain method
// or a constant of that function; inside a class, an event or a plain
// method of the class; at module level, a plain method, class, module or
// constant of the module. A name that only hides one of an outer table is
// no clash.
void VerifyUniqueName(Ref<SemBase> identifier);

// A value for a variable of the local scopes; null for a name that is
// unknown or only found among fields or globals.
Ref<SemBase> FindLocalSymbol(Ref<SemBase> identifier);

// Marks the visible symbol of that name so that the initialisation of
// locals leaves it alone, as parameters need.
void ProhibitSymbolInitialization(Ref<SemBase> identifier);

// Moves the lines and temporaries of `expression` to the end of `code` and
// returns a plain value of what they leave, at the expression's location;
// an expression without code is returned as it is. The caller uses the
// value after `code` has run.
Ref<SemBase> FlattenExpression(Ref<SemBase> expression, Ref<SemBase> code);
