// Array operations: Redim, the Array(...) factory, and the bound of an
// array declared without one.
//
// Until array building lands, CompileRedim and CompileArrayFactory report
// NotYetSupported and hand back the placeholders of codebuild/Placeholders.h;
// UnsizedArrayBound is final.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"
#include "ir/DataTypes.h"

// `Redim a(bounds)`; `array` is the looked-up variable.
Ref<SemBase> CompileRedim(Ref<SemBase> array, Ref<SemBase> bounds);
// `Array(a, b, ...)`; a null `type` takes the elements' common type.
Ref<SemBase> CompileArrayFactory(Ref<SemBase> elements, IRDataType type);
// The one dimension of `Dim a()`: the literal -1, an array with no elements.
Ref<SemBase> UnsizedArrayBound();
