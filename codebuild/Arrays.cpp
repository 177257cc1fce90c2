#include "codebuild/Arrays.h"

#include <initializer_list>

#include "codebuild/Calls.h"
#include "codebuild/Classes.h"
#include "codebuild/Conversions.h"
#include "codebuild/Expressions.h"
#include "codebuild/Placeholders.h"
#include "diag/CompileError.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "runtime/RuntimeArrayFoundation.h"
#include "semantic/SymbolUtilities.h"

namespace {

TacAddr const* Lit(long value) { return CurrentTLP()->GetLiteral(value); }

IRDataType SeeThroughReference(IRDataType const& type) {
  return type.GetMainType() == kTypeReference ? type.AsElement() : type;
}

SourceLocation WhereOf(Ref<SemBase> const& value) {
  return value ? value->Location() : SourceLocation(CurrentSourceLine());
}

bool BoundsChecked() { return !gContext || gContext->options.boundsChecking; }

// The function in `slot` of the array's table, in a new temporary: the
// table's address stands in the record, the function in the table.
TacAddr const* LoadSlot(TacAddr const* array, int32_t slot, Ref<SemBase> const& code) {
  Ref<SemBase> f = code->NewTemp(IRDataType(kTypeInteger), nullptr);
  code->AddLine(tac_PeekI, array, Lit(kArrayMethodsOffset), f->GetAddr());
  code->AddLine(tac_PeekI, f->GetAddr(), Lit(slot), f->GetAddr());
  return f->GetAddr();
}

void Put(TacAddr const* value, Ref<SemBase> const& code) { code->AddLine(tac_PutParam, value, nilTacAddr, nilTacAddr); }

// The call of `f` with `params`, leaving its value in `dest` (nilTacAddr for
// none). The accessors take a variable list, the methods a fixed one.
void CallSlot(TacOpcode op, TacAddr const* f, std::initializer_list<TacAddr const*> params, TacAddr const* dest,
              Ref<SemBase> const& code) {
  for (TacAddr const* p : params) Put(p, code);
  code->AddLine(op, f, nilTacAddr, dest);
}

// The subscripts' count against the array's dimensions: TooFewSubscripts
// or TooManySubscripts at `where`, and false, when they differ.
bool CountSubscripts(IRDataType const& type, SimpleVector<Ref<SemBase>> const& subscripts,
                     SourceLocation const& where) {
  unsigned long n = type.GetDimensions();
  if (subscripts.size() < n) Error(TooFewSubscripts, where);
  else if (subscripts.size() > n) Error(TooManySubscripts, where);
  return subscripts.size() == n;
}

// Each subscript converted to Integer, its code appended to `code`.
bool ConvertSubscripts(IRDataType const& type, Ref<SemBase> subscripts, Ref<SemBase> const& code,
                       SimpleVector<TacAddr const*>& converted) {
  if (type.GetDimensions() == 0) {
    Error(TooFewSubscripts, WhereOf(subscripts));
    return false;
  }
  SimpleVector<Ref<SemBase>> all = ArgumentVector(subscripts);
  if (!CountSubscripts(type, all, WhereOf(subscripts))) return false;
  for (unsigned long i = 0; i < all.size(); ++i) {
    Ref<SemBase> v = CompileRefAs(all[i], IRDataType(kTypeInteger), code);
    converted.push_back(v ? v->GetAddr() : gTacZero);
  }
  return true;
}

// One-dimensional arrays of Integer, Boolean, Color and Double are read and
// written in line: the bounds test, then the element's place in the block.
// An index outside the bounds goes to the library's accessor, which raises.
bool IsInlineAccess(IRDataType const& type, int32_t slot) {
  SimpleDataType e = type.GetElementType();
  bool plain = e == kTypeInteger || e == kTypeBoolean || e == kTypeColor || e == kTypeDouble;
  return type.GetDimensions() == 1 && plain && slot != kArrayRedimSlot;
}

// The element's address in a new temporary: the block plus the index times
// the element's size, folded for a constant index.
TacAddr const* ElementPlace(TacAddr const* a, TacAddr const* index, bool wide, Ref<SemBase> const& code) {
  Ref<SemBase> place = code->NewTemp(IRDataType(kTypeInteger), nullptr);
  TacAddr const* p = place->GetAddr();
  code->AddLine(tac_PeekI, a, Lit(kArrayDataOffset), p);
  if (index->IsConstant()) {
    code->AddLine(tac_AddI, p, Lit((long)index->GetValue().sint32 * (wide ? 8 : 4)), p);
    return p;
  }
  Ref<SemBase> offset = code->NewTemp(IRDataType(kTypeInteger), nullptr);
  TacAddr const* o = offset->GetAddr();
  code->AddLine(tac_AddI, index, index, o);
  code->AddLine(tac_AddI, o, o, o);
  if (wide) code->AddLine(tac_AddI, o, o, o);
  code->AddLine(tac_AddI, p, o, p);
  return p;
}

void InlineAccess(TacAddr const* a, IRDataType const& type, int32_t slot, TacAddr const* value,
                  TacAddr const* index, TacAddr const* dest, Ref<SemBase> const& code) {
  bool isSet = slot == kArraySetSlot || slot == kArraySetFastSlot;
  // The test stays with bounds checking off too: an element outside the
  // block would be the host's memory. The unchecked accessor raises as well.
  bool checked = true;
  SimpleDataType e = type.GetElementType();
  bool wide = e == kTypeDouble;
  TacAddr const* slow = checked ? NewLabel() : nullptr;
  if (checked) {
    Ref<SemBase> bound = code->NewTemp(IRDataType(kTypeInteger), nullptr);
    if (!index->IsConstant()) code->AddLine(tac_IfLTI, index, gTacZero, slow);
    else if (index->GetValue().sint32 < 0) code->AddLine(tac_Jump, nilTacAddr, nilTacAddr, slow);
    code->AddLine(tac_PeekI, a, Lit(kArrayUpperBoundsOffset), bound->GetAddr());
    code->AddLine(tac_IfLTI, bound->GetAddr(), index, slow);
  }
  TacAddr const* p = ElementPlace(a, index, wide, code);
  // A Boolean element is a whole word, 0 or 1, of which the low byte is read.
  if (isSet) code->AddLine(wide ? tac_PokeD : tac_PokeI, value, gTacZero, p);
  else code->AddLine(wide ? tac_PeekD : e == kTypeBoolean ? tac_PeekB : tac_PeekI, p, gTacZero, dest);
  if (!checked) return;
  TacAddr const* end = NewLabel();
  code->AddLine(tac_Jump, nilTacAddr, nilTacAddr, end);
  code->AddLine(tac_Label, slow, nilTacAddr, nilTacAddr);
  TacAddr const* f = LoadSlot(a, slot, code);
  if (isSet) CallSlot(tac_CallPtrVarargs, f, {a, value, index}, nilTacAddr, code);
  else CallSlot(tac_CallPtrVarargs, f, {a, index}, dest, code);
  code->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
}

// The call of the accessor in `slot` with the array, `value` (a set's, or
// nilTacAddr) and the subscripts (or Redim's bounds), leaving its value in
// `dest`. The subscripts run first, so that no code of the script stands
// between the array's Nil check, the load of its table and the call.
void CallAccessor(Ref<SemBase> array, IRDataType const& type, int32_t slot, TacAddr const* value,
                  Ref<SemBase> subscripts, TacAddr const* dest, Ref<SemBase> const& code, bool knownNotNil = false) {
  SimpleVector<TacAddr const*> converted;
  if (!ConvertSubscripts(type, subscripts, code, converted)) return;
  Ref<SemBase> a = knownNotNil ? FlattenExpression(CompileRefAs(array, type, code), code)
                                : CheckedArrayValue(array, code);
  if (IsInlineAccess(type, slot)) {
    InlineAccess(a->GetAddr(), type, slot, value, converted[0], dest, code);
    return;
  }
  TacAddr const* f = LoadSlot(a->GetAddr(), slot, code);
  Put(a->GetAddr(), code);
  if (value != nilTacAddr) Put(value, code);
  for (unsigned long i = 0; i < converted.size(); ++i) Put(converted[i], code);
  code->AddLine(tac_CallPtrVarargs, f, nilTacAddr, dest);
}

// The type of an array operand, seeing through a reference; the null type
// with NotAnArray reported at `array` when it is no array.
IRDataType ArrayTypeOf(Ref<SemBase> const& array) {
  IRDataType type = SeeThroughReference(array->GetType());
  if (type.GetMainType() == kTypeArray) return type;
  if (!IsReportedFailure(array)) Error(NotAnArray, array->Location());
  return IRDataType();
}

// ---------------------------------------------------------------------------
// The methods

using MethodHandler = Ref<SemBase> (*)(Ref<SemBase> array, SimpleVector<Ref<SemBase>>& args,
                                       IRDataType const& element, Ref<SemBase> code);

// Too few or too many arguments for a method that takes `least` to `most`.
bool CountArguments(SimpleVector<Ref<SemBase>> const& args, unsigned long least, unsigned long most,
                    SourceLocation const& where) {
  if (args.size() < least) Error(TooFewArguments, where);
  else if (args.size() > most) Error(TooManyArguments, where);
  return args.size() >= least && args.size() <= most;
}

TacAddr const* ArgumentAs(Ref<SemBase> const& arg, IRDataType const& type, Ref<SemBase> const& code) {
  Ref<SemBase> v = CompileRefAs(arg, type, code);
  return v ? v->GetAddr() : gTacZero;
}

// u = the upper bound, then one past it.
Ref<SemBase> HandleArrayAppend(Ref<SemBase> array, SimpleVector<Ref<SemBase>>& args, IRDataType const& element,
                               Ref<SemBase> code) {
  TacAddr const* value = ArgumentAs(args[0], element, code);
  Ref<SemBase> u = ArrayFirstUpperBound(array, code);
  code->AddLine(tac_AddI, u->GetAddr(), gTacOne, u->GetAddr());
  TacAddr const* f = LoadSlot(array->GetAddr(), kArrayInsertSlot, code);
  CallSlot(tac_CallPtr, f, {array->GetAddr(), u->GetAddr(), value}, nilTacAddr, code);
  return code;
}

Ref<SemBase> HandleArrayInsert(Ref<SemBase> array, SimpleVector<Ref<SemBase>>& args, IRDataType const& element,
                               Ref<SemBase> code) {
  TacAddr const* index = ArgumentAs(args[0], IRDataType(kTypeInteger), code);
  TacAddr const* value = ArgumentAs(args[1], element, code);
  TacAddr const* f = LoadSlot(array->GetAddr(), kArrayInsertSlot, code);
  CallSlot(tac_CallPtr, f, {array->GetAddr(), index, value}, nilTacAddr, code);
  return code;
}

Ref<SemBase> HandleArrayRemove(Ref<SemBase> array, SimpleVector<Ref<SemBase>>& args, IRDataType const&,
                               Ref<SemBase> code) {
  TacAddr const* index = ArgumentAs(args[0], IRDataType(kTypeInteger), code);
  TacAddr const* f = LoadSlot(array->GetAddr(), kArrayRemoveSlot, code);
  CallSlot(tac_CallPtr, f, {array->GetAddr(), index}, nilTacAddr, code);
  return code;
}

// The last element through the checked get, whatever the option says, so
// that an empty array raises; then its removal.
Ref<SemBase> HandleArrayPop(Ref<SemBase> array, SimpleVector<Ref<SemBase>>&, IRDataType const& element,
                            Ref<SemBase> code) {
  Ref<SemBase> result = SemCode::New(element, &code->Location());
  result->Append(code);
  ResetReturnTemp(result->GetAddr(), result);
  Ref<SemBase> u = ArrayFirstUpperBound(array, result);
  TacAddr const* get = LoadSlot(array->GetAddr(), kArrayGetSlot, result);
  CallSlot(tac_CallPtrVarargs, get, {array->GetAddr(), u->GetAddr()}, result->GetAddr(), result);
  TacAddr const* remove = LoadSlot(array->GetAddr(), kArrayRemoveSlot, result);
  CallSlot(tac_CallPtr, remove, {array->GetAddr(), u->GetAddr()}, nilTacAddr, result);
  return result;
}

Ref<SemBase> HandleArraySort(Ref<SemBase> array, SimpleVector<Ref<SemBase>>&, IRDataType const& element,
                             Ref<SemBase> code) {
  SimpleDataType t = element.GetMainType();
  if (t != kTypeInteger && t != kTypeSingle && t != kTypeDouble && t != kTypeString) {
    Error(SortElementType, array->Location());
    return code;
  }
  TacAddr const* f = LoadSlot(array->GetAddr(), kArraySortSlot, code);
  CallSlot(tac_CallPtr, f, {array->GetAddr()}, nilTacAddr, code);
  return code;
}

Ref<SemBase> HandleArrayIndexOf(Ref<SemBase> array, SimpleVector<Ref<SemBase>>& args, IRDataType const& element,
                                Ref<SemBase> code) {
  Ref<SemBase> result = SemCode::New(IRDataType(kTypeInteger), &code->Location());
  result->Append(code);
  TacAddr const* value = ArgumentAs(args[0], element, result);
  TacAddr const* start = args.size() > 1 ? ArgumentAs(args[1], IRDataType(kTypeInteger), result) : gTacZero;
  TacAddr const* f = LoadSlot(array->GetAddr(), kArrayIndexOfSlot, result);
  CallSlot(tac_CallPtr, f, {array->GetAddr(), value, start}, result->GetAddr(), result);
  return result;
}

Ref<SemBase> HandleArrayShuffle(Ref<SemBase> array, SimpleVector<Ref<SemBase>>&, IRDataType const&,
                                Ref<SemBase> code) {
  TacAddr const* f = LoadSlot(array->GetAddr(), kArrayShuffleSlot, code);
  CallSlot(tac_CallPtr, f, {array->GetAddr()}, nilTacAddr, code);
  return code;
}

struct ArrayMethod {
  char const* name;
  unsigned long least, most;
  MethodHandler handler;
};

ArrayMethod const kArrayMethods[] = {
    {"Append", 1, 1, HandleArrayAppend}, {"Insert", 2, 2, HandleArrayInsert},
    {"Remove", 1, 1, HandleArrayRemove}, {"Pop", 0, 0, HandleArrayPop},
    {"Sort", 0, 0, HandleArraySort},     {"IndexOf", 1, 2, HandleArrayIndexOf},
    {"Shuffle", 0, 0, HandleArrayShuffle},
};

ArrayMethod const* FindArrayMethod(string const& name) {
  for (ArrayMethod const& m : kArrayMethods)
    if (name == m.name) return &m;
  return nullptr;
}

}  // namespace

int ElementCode(SimpleDataType element) {
  switch (element) {
    case kTypeSingle: return kArrayElementSingle;
    case kTypeDouble: return kArrayElementDouble;
    case kTypeString: return kArrayElementString;
    case kTypeObject: return kArrayElementObject;
    default: return kArrayElementInteger;
  }
}

Ref<SemBase> UnsizedArrayBound() { return SemValue::New(CurrentTLP()->GetLiteral(-1L), nullptr); }

Ref<SemBase> AllocateNewArray(SimpleVector<Ref<SemBase>>& dimensions, IRDataType const& element) {
  if (dimensions.size() == 0) dimensions.push_back(UnsizedArrayBound());
  long count = (long)dimensions.size();
  Ref<SemBase> result = SemCode::New(element.AsArray((int)count), nullptr);
  SimpleVector<TacAddr const*> bounds;
  bool fine = true;
  for (unsigned long i = 0; i < dimensions.size(); ++i) {
    Ref<SemBase> d = dimensions[i];
    if (!d || IsReportedFailure(d)) {
      fine = false;
      continue;
    }
    if (SeeThroughReference(d->GetType()).GetMainType() != kTypeInteger) {
      Error(ArrayBoundNotInteger, d->Location());
      fine = false;
    } else if (!d->IsConstant()) {
      Error(ArrayBoundNotConstant, d->Location());
      fine = false;
    }
    bounds.push_back(d->GetAddr());
  }
  if (!fine) return result;
  Put(Lit(count), result);
  Put(Lit(ElementCode(element.GetMainType())), result);
  for (unsigned long i = 0; i < bounds.size(); ++i) Put(bounds[i], result);
  result->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeCreateArray), nilTacAddr, result->GetAddr());
  return result;
}

Ref<SemBase> CheckedArrayValue(Ref<SemBase> array, Ref<SemBase> code) {
  if (!array || !code) return Ref<SemBase>();
  IRDataType type = ArrayTypeOf(array);
  if (type.Null()) return Ref<SemBase>();
  Ref<SemBase> checked = CheckForNilObject(CompileRefAs(array, type, code));
  return FlattenExpression(checked, code);
}

// The record's first bound is what the table's Ubound gives for dimension
// 1, without the call.
Ref<SemBase> ArrayFirstUpperBound(Ref<SemBase> array, Ref<SemBase> code) {
  Ref<SemBase> u = code->NewTemp(IRDataType(kTypeInteger), nullptr);
  code->AddLine(tac_PeekI, array->GetAddr(), Lit(kArrayUpperBoundsOffset), u->GetAddr());
  return u;
}

Ref<SemBase> GetArrayElement(Ref<SemBase> array, Ref<SemBase> subscripts, bool knownNotNil) {
  if (!array) return SemCode::New(IRDataType(), nullptr);
  IRDataType type = ArrayTypeOf(array);
  SourceLocation where = subscripts ? array->Location() + subscripts->Location() : array->Location();
  if (type.Null()) return SemCode::New(IRDataType(), &where);
  Ref<SemBase> result = SemCode::New(type.AsElement(), &where);
  ResetReturnTemp(result->GetAddr(), result);
  int32_t slot = BoundsChecked() ? kArrayGetSlot : kArrayGetFastSlot;
  CallAccessor(array, type, slot, nilTacAddr, subscripts, result->GetAddr(), result, knownNotNil);
  return result;
}

void SetArrayElementValue(Ref<SemBase> array, Ref<SemBase> subscripts, Ref<SemBase> value, Ref<SemBase> code) {
  if (!array || !code) return;
  IRDataType type = ArrayTypeOf(array);
  if (type.Null() || !value || IsReportedFailure(value)) return;
  Ref<SemBase> v = CompileRefAs(value, type.AsElement(), code);
  if (!v) return;
  int32_t slot = BoundsChecked() ? kArraySetSlot : kArraySetFastSlot;
  CallAccessor(array, type, slot, v->GetAddr(), subscripts, nilTacAddr, code);
}

Ref<SemBase> CompileRedim(Ref<SemBase> array, Ref<SemBase> bounds) {
  Ref<SemBase> result = SemCode::New(IRDataType(), array ? &array->Location() : nullptr);
  IRDataType type = array && !IsReportedFailure(array) ? ArrayTypeOf(array) : IRDataType();
  if (!type.Null()) CallAccessor(array, type, kArrayRedimSlot, nilTacAddr, bounds, nilTacAddr, result);
  return TraceRoutine("CompileRedim", result, {array, bounds});
}

Ref<SemBase> CompileArrayFactory(Ref<SemBase> elements, IRDataType type) {
  SimpleVector<Ref<SemBase>> all = ArgumentVector(elements);
  SourceLocation where = WhereOf(elements);
  if (type.Null()) {
    if (all.size() == 0) {
      Error(TooFewArguments, where);
      return TraceRoutine("CompileArrayFactory", SemCode::New(IRDataType(kTypeInteger), &where), {elements});
    }
    type = SeeThroughReference(all[0]->GetType());
    // Objects of one class stay of that class: the common type of two
    // objects is the root Object.
    for (unsigned long i = 1; i < all.size(); ++i) {
      IRDataType next = SeeThroughReference(all[i]->GetType());
      if (!(next == type)) type = ComputeCommonType(type, next);
    }
    if (type.Null()) type = SeeThroughReference(all[0]->GetType());
  }
  Ref<SemBase> result = SemCode::New(type.AsArray(1), &where);
  TacAddr const* array = result->GetAddr();
  Put(gTacOne, result);
  Put(Lit(ElementCode(type.GetMainType())), result);
  Put(Lit((long)all.size() - 1), result);
  result->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeCreateArray), nilTacAddr, array);
  if (all.size() == 0) return TraceRoutine("CompileArrayFactory", result, {elements});
  // The array is new and sized: the unchecked set fills it.
  TacAddr const* f = LoadSlot(array, kArraySetFastSlot, result);
  for (unsigned long i = 0; i < all.size(); ++i) {
    TacAddr const* v = ArgumentAs(all[i], type, result);
    CallSlot(tac_CallPtrVarargs, f, {array, v, Lit((long)i)}, nilTacAddr, result);
  }
  return TraceRoutine("CompileArrayFactory", result, {elements});
}

// A scan of seven names: a set made once would hold counted strings past
// the end of every run.
bool IsPotentialArrayMethodName(string const& name) { return FindArrayMethod(name) != nullptr; }

bool ArrayMethodGivesValue(string const& name) { return name == "Pop" || name == "IndexOf"; }

bool ArrayMethodTakesAnyDimensions(string const& name) { return name == "Shuffle"; }

Ref<SemBase> HandleArrayMethodCall(Ref<SemBase> array, Ref<SemBase> name, Ref<SemBase> arguments) {
  ArrayMethod const* method = name ? FindArrayMethod(name->toString()) : nullptr;
  if (!method || !array) {
    Error(UnknownName, WhereOf(name));
    return SemCode::New(IRDataType(), nullptr);
  }
  SourceLocation where = arguments ? array->Location() + arguments->Location() : array->Location();
  Ref<SemBase> code = SemCode::New(IRDataType(), &where);
  IRDataType type = ArrayTypeOf(array);
  SimpleVector<Ref<SemBase>> args = ArgumentVector(arguments);
  if (type.Null() || !CountArguments(args, method->least, method->most, WhereOf(arguments ? arguments : name)))
    return code;
  for (unsigned long i = 0; i < args.size(); ++i)
    if (IsReportedFailure(args[i])) return code;
  Ref<SemBase> a = CheckedArrayValue(array, code);
  return method->handler(a, args, type.AsElement(), code);
}
