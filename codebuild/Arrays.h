// Array operations: making arrays (Dim, Array(...)), element access, Redim
// and the array methods.
//
// Arrays are counted run-time records, each with a table of operations that
// the generated code calls directly: an access loads the table from the
// record, the function from its slot, and calls it. The bounds-checked or
// the unchecked accessors are chosen by the BoundsChecking option (the
// unchecked ones still refuse a place outside the element block, which
// would be the host's memory); a Nil array raises NilObjectException before
// its table is read. Elements of one-dimensional Integer, Boolean, Color and
// Double arrays are read and written in line, with the bounds test; only an
// index that fails it calls the library, which raises.
//
// Every routine takes null handles (after an error) and reports its own
// errors at the operand that is wrong.
#pragma once

#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "ir/DataTypes.h"
#include "semantic/SemBase.h"

// The element code that the run-time's CreateArray takes for `element`.
int ElementCode(SimpleDataType element);

// The code that makes the array of a `Dim`, of `element` (not the array
// type) with one constant Integer upper bound per dimension; none at all
// means one dimension of bound -1.
Ref<SemBase> AllocateNewArray(SimpleVector<Ref<SemBase>>& dimensions, IRDataType const& element);
// `Redim a(bounds)`; `array` is the looked-up variable. Any Integer bounds.
Ref<SemBase> CompileRedim(Ref<SemBase> array, Ref<SemBase> bounds);
// `Array(a, b, ...)`; a null `type` takes the elements' common type. With a
// type, no elements make an empty array (a ParamArray given nothing).
Ref<SemBase> CompileArrayFactory(Ref<SemBase> elements, IRDataType type);
// The one dimension of `Dim a()`: the literal -1, an array with no elements.
Ref<SemBase> UnsizedArrayBound();

// `array(subscripts)` read: a value of the element type, a new reference
// for a counted element. `knownNotNil` skips the Nil check, for an array
// that has passed it already and cannot change.
Ref<SemBase> GetArrayElement(Ref<SemBase> array, Ref<SemBase> subscripts, bool knownNotNil = false);
// `array(subscripts) = value`, appended to `code`.
void SetArrayElementValue(Ref<SemBase> array, Ref<SemBase> subscripts, Ref<SemBase> value, Ref<SemBase> code);
// `array` (already an array value, checked not to be Nil) and the upper
// bound of its first dimension into a new Integer temporary of `code`.
Ref<SemBase> ArrayFirstUpperBound(Ref<SemBase> array, Ref<SemBase> code);
// `array` as a plain value of its array type that is known not to be Nil,
// its code appended to `code`; NotAnArray at `array` (and a null handle)
// if it is none.
Ref<SemBase> CheckedArrayValue(Ref<SemBase> array, Ref<SemBase> code);

// Append, Insert, Remove, Pop, Sort, IndexOf, Shuffle, in any case.
bool IsPotentialArrayMethodName(string const& name);
// Pop and IndexOf give a value; the others give none.
bool ArrayMethodGivesValue(string const& name);
// Shuffle takes an array of any dimensions, the others one dimension.
bool ArrayMethodTakesAnyDimensions(string const& name);
// `array.name arguments`; UnknownName for a name that is no array method.
// The result has the null type for the methods that give nothing.
Ref<SemBase> HandleArrayMethodCall(Ref<SemBase> array, Ref<SemBase> name, Ref<SemBase> arguments);
