// Declarations inside code: `Dim` clauses and local `Const`s. Every routine
// tolerates null handles, which arrive after a reported error.
#pragma once

#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "ir/DataTypes.h"
#include "semantic/SemBase.h"

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

// Variants need their run-time, which has not landed: a variable,
// parameter or result of such a type (or an array of it) reports
// NotYetSupported at `where` and answers true; so does, without a report, an
// object type whose class is unknown (reported where the type was read).
bool RefusePendingType(IRDataType const& type, SourceLocation const& where);
