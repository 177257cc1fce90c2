// Type conversions: every value that goes anywhere (an operand, an
// argument, an assignment, a return value) is delivered in the type wanted
// by CompileRefAs, which adds the lines that takes. IsLegalConversion asks
// the same question without emitting, for overload selection.
//
// Invariants:
// - The kinds of conversion are tried in one fixed order; the first that
//   applies is taken.
// - At most one user conversion (Operator_Convert) stands in a chain: the
//   search for one never looks for another, so two classes converting into
//   each other cannot send the compiler round for ever.
#pragma once

#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "ir/DataTypes.h"
#include "semantic/SemBase.h"

class FunctionDeclaration;
class ClassDeclaration;

// `value` as `target`, its code and the conversion's moved into `code`.
// A conversion that is not allowed reports TypeMismatch (target's word,
// then the source's) and hands back the value as it was.
Ref<SemBase> CompileRefAs(Ref<SemBase> value, IRDataType const& target, Ref<SemBase> code);
// Can a value of `source` go to `target`? `cost` (may be null) is 0 for an
// exact match and 1 for anything else. A reference target takes exactly its
// element type.
bool IsLegalConversion(IRDataType const& target, IRDataType source, int* cost);
// Reads through a reference into a new temporary, locked if counted.
Ref<SemBase> CompileDereference(Ref<SemBase> value, Ref<SemBase> code);

bool IsVariant(IRDataType const& type);
// Is `target`'s class `source`'s own or an ancestor's (the root Object
// always is)? Bounded on an Inherits cycle.
bool IsImplicitUpcast(IRDataType const& target, IRDataType const& source);
bool IsInterfaceCast(IRDataType const& target, IRDataType const& source);
// The usable Operator_Convert methods for this pair: from the source's side
// first, then from the target's.
Ref<SimpleVector<FunctionDeclaration*>> LookupConversionOperator(IRDataType const& target,
                                                                 IRDataType const& source);

// The class of that name as the current module sees it, or null.
ClassDeclaration* LookupClassByName(string const& name);
