// Calls and overload selection. Name lookup hands over the candidates for a
// name; selection keeps those that can take the arguments in the use asked
// for, then prefers a candidate that needs no conversion at all (there is no
// finer score: two that both convert are a tie, AmbiguousCall). The call is
// emitted by the method's dispatch kind.
//
// Arguments come as a null handle, one value or a SemList; in a method call
// on an object the object is the first argument and meets `self`.
#pragma once

#include "codebuild/NameLookup.h"
#include "diag/CompileError.h"
#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "semantic/SemBase.h"

class FunctionDeclaration;

// The call by the method's dispatch kind; a SemCode whose result is the
// function's value (none for a Sub).
Ref<SemBase> CompileCall(FunctionDeclaration* method, Ref<SemBase> args);
// Always a direct call: an ancestor's own version of a method.
Ref<SemBase> CompileStaticCall(FunctionDeclaration* method, Ref<SemBase> args);

// The chosen candidate, or null. With `err` set nothing is reported and the
// most telling reason is left there; without it a tie is reported.
FunctionDeclaration* SelectAppropriateVariant(Ref<SimpleVector<FunctionDeclaration*>> candidates,
                                              Ref<SemBase> args, FunctionResultMode mode, CompileErrorCode* err);
// 0 if `method` can take `args` in `mode`, else the reason.
CompileErrorCode IsLegalMethodVariant(FunctionDeclaration* method, Ref<SemBase> args, FunctionResultMode mode);
// May `arg` be passed for a parameter of `paramType`? Nil costs nothing
// against any object parameter.
bool ParamAndArgAreCompatible(IRDataType const& paramType, Ref<SemBase> arg, int* cost);
// Below 0: `a` is better; above 0: `b`; 0: neither.
int CompareMethodVariants(FunctionDeclaration* a, FunctionDeclaration* b, Ref<SemBase> args);

// The tac_PutParam lines of a chosen call: every argument's code, left to
// right, then the PutParams with nothing between them.
void PushAllArguments(FunctionDeclaration* method, Ref<SemBase> args, Ref<SemBase> code);
// One argument converted for its parameter (its address for a ByRef one).
Ref<SemBase> PushOneArgument(IRDataType const& paramType, Ref<SemBase> value, Ref<SemBase> code);
// Releases what a result temporary held before it is filled again.
void ResetReturnTemp(TacAddr const* dest, Ref<SemBase> code);

// The arguments as a vector, in order.
SimpleVector<Ref<SemBase>> ArgumentVector(Ref<SemBase> args);
