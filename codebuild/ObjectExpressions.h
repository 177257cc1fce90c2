// What only objects have in an expression: operator methods (a class gives
// its objects arithmetic and comparison through methods of fixed names),
// comparison by reference, and the typecast `ClassName(value)`. `New`,
// `IsA`, `Is`, `Self`, `Me`, `Super` and `Class C` are grammar routines,
// declared with the other expressions in codebuild/Expressions.h.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

class ClassDeclaration;
class FunctionDeclaration;

// A binary operator with an object among its operands: arithmetic through
// `Operator_Add` and the like on the left operand, or their `...Right` forms
// on the right one; comparison through `Operator_Compare` on either side, or
// by reference. IllegalOperandType for anything else.
Ref<SemBase> ObjectBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right);
// Unary minus on an object: `Operator_Negate`.
Ref<SemBase> ObjectNegation(Ref<SemBase> value);
// The method `name` of `object`'s class that takes `argument` (which may be
// null), or null.
FunctionDeclaration* LookupOperatorMethod(Ref<SemBase> object, string const& name, Ref<SemBase> argument);
// `ClassName(value)`: a cast that the run-time checks.
Ref<SemBase> CompileTypecast(ClassDeclaration* cls, Ref<SemBase> args, SourceLocation const& where);
