#include "codebuild/Expressions.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "codebuild/Placeholders.h"
#include "diag/CompileError.h"
#include "ir/DataTypes.h"
#include "frontend/Lexer.h"

// Operands that are both constants are type-checked and folded here. Any
// other operand is a placeholder or a name whose lookup has not landed, so
// its type says nothing yet: those operators still return placeholders and
// check nothing, until code emission lands with name lookup and the object
// operators.

namespace {

bool IsComparison(unsigned long op) {
  return op == kOpEqual || op == kOpNotEqual || op == kOpLess || op == kOpGreater || op == kOpLessEqual ||
         op == kOpGreaterEqual;
}

// Sets `result` and answers true if `op` is a comparison. Doubles compare
// as IEEE does: with a NaN only <> holds.
template <typename T>
bool Compare(T a, unsigned long op, T b, bool& result) {
  switch (op) {
    case kOpEqual: result = a == b; return true;
    case kOpNotEqual: result = a != b; return true;
    case kOpLess: result = a < b; return true;
    case kOpGreater: result = a > b; return true;
    case kOpLessEqual: result = a <= b; return true;
    case kOpGreaterEqual: result = a >= b; return true;
    default: return false;
  }
}

Ref<SemBase> BooleanValue(bool value, SourceLocation const& loc) {
  return SemValue::New(value ? gTacTrue : gTacFalse, &loc);
}

Ref<SemBase> IntegerValue(int32_t value, SourceLocation const& loc) {
  return SemValue::New(CurrentTLP()->GetLiteral(IRValue::SInt32(value), IRDataType(kTypeInteger)), &loc);
}

Ref<SemBase> DoubleValue(double value, SourceLocation const& loc) {
  return SemValue::New(CurrentTLP()->GetLiteral(IRValue::Real64(value), IRDataType(kTypeDouble)), &loc);
}

int32_t GetLongValue(Ref<SemBase> const& value) {
  IRValue v = value->GetValue();
  switch (value->GetType().GetMainType()) {
    case kTypeDouble: return TruncateToInt32(v.real64);
    case kTypeSingle: return TruncateToInt32(v.real32);
    default: return v.sint32;
  }
}

double GetDoubleValue(Ref<SemBase> const& value) {
  IRValue v = value->GetValue();
  switch (value->GetType().GetMainType()) {
    case kTypeDouble: return v.real64;
    case kTypeSingle: return v.real32;
    default: return v.sint32;
  }
}

// Integer arithmetic wraps as the processor's does; computed unsigned so
// that the compiler itself has no signed overflow.
bool IntegerArithmetic(int32_t a, unsigned long op, int32_t b, int32_t& result) {
  uint32_t ua = static_cast<uint32_t>(a), ub = static_cast<uint32_t>(b);
  switch (op) {
    case kOpAdd: result = static_cast<int32_t>(ua + ub); return true;
    case kOpSubtract: result = static_cast<int32_t>(ua - ub); return true;
    case kOpMultiply: result = static_cast<int32_t>(ua * ub); return true;
    default: return false;
  }
}

// `\` and `Mod`. A pair the divide instruction would trap on (the
// smallest integer by -1, or a remainder by 0) is not folded, so that the
// compiler never traps and the run time's own guard decides. An integer
// quotient by 0 folds to the largest value of the dividend's sign; code
// generated for a run-time division by 0 gives 0 instead.
bool IntegerQuotient(int32_t a, unsigned long op, int32_t b, int32_t& result) {
  if (a == std::numeric_limits<int32_t>::min() && b == -1) return false;
  if (op == kOpIntegerDivide) {
    if (b == 0)
      result = a >= 0 ? std::numeric_limits<int32_t>::max() : std::numeric_limits<int32_t>::min();
    else
      result = a / b;
    return true;
  }
  if (op != kOpMod || b == 0) return false;
  result = a % b;
  return true;
}

// What an operator on operands meeting in `common` gives (comparisons
// Boolean, `/` and `^` Double, `\` and `Mod` Integer), reporting
// IllegalOperandType where the type lacks the operator. The conversion of
// operands to Double or Integer that this implies is checked where the
// operands are converted, which comes with code emission.
IRDataType CheckedResultType(unsigned long op, IRDataType common, SourceLocation const& loc) {
  IRDataType result = common;
  if (op == kOpDivide || op == kOpPower)
    common = result = IRDataType(kTypeDouble);
  else if (op == kOpIntegerDivide || op == kOpMod)
    common = result = IRDataType(kTypeInteger);
  else if (IsComparison(op))
    result = IRDataType(kTypeBoolean);
  bool legal = false;
  switch (common.GetMainType()) {
    case kTypeBoolean:
    case kTypeColor: legal = op == kOpEqual || op == kOpNotEqual; break;
    case kTypeInteger:
    case kTypeDouble: legal = true; break;
    case kTypeString: legal = op == kOpAdd || IsComparison(op); break;
    default: break;
  }
  if (!legal) Error(IllegalOperandType, loc);
  return result;
}

bool IsObject(IRDataType const& type) { return type.GetMainType() == kTypeObject; }

IRDataType ElementIfReference(IRDataType const& type) {
  return type.GetMainType() == kTypeReference ? type.AsElement() : type;
}

Ref<SemBase> BinopOfConstants(Ref<SemBase> left, unsigned long op, Ref<SemBase> right) {
  IRDataType leftType = left->GetType(), rightType = right->GetType();
  IRDataType common = ComputeCommonType(leftType, rightType);
  leftType = ElementIfReference(leftType);
  rightType = ElementIfReference(rightType);
  // Constant objects (Nil) go to the object operators, not built yet.
  if (IsObject(common) || (common.Null() && (IsObject(leftType) || IsObject(rightType)))) return PlaceholderValue();
  SourceLocation loc = left->Location() + right->Location();
  if (common.Null()) {
    SimpleVector<string> words;
    words.push_back(leftType.ToString());
    words.push_back(rightType.ToString());
    Error(TypeMismatch, loc, words);
    // Carries the location, so that a caller's own complaint lands there.
    return SemCode::New(IRDataType(), &loc);
  }
  Ref<SemBase> folded = ConstantBinop(left, op, right, common, loc);
  if (folded) return folded;
  return SemCode::New(CheckedResultType(op, common, loc), &loc);
}

}  // namespace

IRDataType ComputeCommonType(IRDataType a, IRDataType b) {
  a = ElementIfReference(a);
  b = ElementIfReference(b);
  if (a.GetMainType() == kTypeArray || b.GetMainType() == kTypeArray) return a == b ? a : IRDataType();
  if (IsObject(a) && a.GetClass() == string("Variant")) return b;
  if (IsObject(b) && b.GetClass() == string("Variant")) return a;
  auto numeric = [](SimpleDataType t) {
    return t == kTypeShort || t == kTypeInteger || t == kTypeSingle || t == kTypeDouble;
  };
  auto integral = [](SimpleDataType t) { return t == kTypeShort || t == kTypeInteger; };
  SimpleDataType ma = a.GetMainType(), mb = b.GetMainType();
  if (numeric(ma) && numeric(mb))
    return IRDataType(integral(ma) && integral(mb) ? kTypeInteger : kTypeDouble);
  if (ma != mb) return IRDataType();
  switch (ma) {
    case kTypeBoolean:
    case kTypeString:
    case kTypeColor: return IRDataType(ma);
    case kTypeObject: return IRDataType(string(""));
    default: return IRDataType();
  }
}

Ref<SemBase> ConstantBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right, IRDataType common,
                           SourceLocation loc) {
  if (!left || !right || !left->IsConstant() || !right->IsConstant()) return Ref<SemBase>();
  bool truth = false;
  int32_t integer = 0;
  switch (common.GetMainType()) {
    case kTypeString: {
      string a = left->GetValue().text, b = right->GetValue().text;
      if (op == kOpAdd) return SemValue::New(CurrentTLP()->GetLiteral(a + b), &loc);
      if (Compare(a.Compare(b), op, 0, truth)) return BooleanValue(truth, loc);
      return Ref<SemBase>();
    }
    case kTypeBoolean:
    case kTypeColor: {
      int32_t a = left->GetValue().sint32, b = right->GetValue().sint32;
      if (common.GetMainType() == kTypeBoolean) {
        a = a != 0;
        b = b != 0;
      }
      if ((op == kOpEqual || op == kOpNotEqual) && Compare(a, op, b, truth)) return BooleanValue(truth, loc);
      return Ref<SemBase>();
    }
    case kTypeInteger: {
      int32_t a = GetLongValue(left), b = GetLongValue(right);
      if (Compare(a, op, b, truth)) return BooleanValue(truth, loc);
      if (IntegerArithmetic(a, op, b, integer) || IntegerQuotient(a, op, b, integer))
        return IntegerValue(integer, loc);
      if (op == kOpDivide) return DoubleValue(static_cast<double>(a) / b, loc);
      if (op == kOpPower) return DoubleValue(std::pow(static_cast<double>(a), static_cast<double>(b)), loc);
      return Ref<SemBase>();
    }
    case kTypeSingle:
    case kTypeDouble: {
      double a = GetDoubleValue(left), b = GetDoubleValue(right);
      if (Compare(a, op, b, truth)) return BooleanValue(truth, loc);
      switch (op) {
        case kOpAdd: return DoubleValue(a + b, loc);
        case kOpSubtract: return DoubleValue(a - b, loc);
        case kOpMultiply: return DoubleValue(a * b, loc);
        case kOpDivide: return DoubleValue(a / b, loc);
        case kOpPower: return DoubleValue(std::pow(a, b), loc);
        default: break;
      }
      // A divisor that truncates to 0 is left to run time as well.
      int32_t divisor = TruncateToInt32(b);
      if (divisor != 0 && IntegerQuotient(TruncateToInt32(a), op, divisor, integer)) return IntegerValue(integer, loc);
      return Ref<SemBase>();
    }
    default: return Ref<SemBase>();
  }
}

namespace {

// The value with its sign bit flipped: unlike 0 - x, this gives -0.0 for
// 0.0 and keeps a NaN's payload, as the processor's fchs does.
template <class Float, class Bits>
Float FlippedSign(Float value) {
  static_assert(sizeof(Float) == sizeof(Bits));
  Bits bits;
  std::memcpy(&bits, &value, sizeof bits);
  bits ^= Bits(1) << (sizeof(Bits) * 8 - 1);
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

}  // namespace

Ref<SemBase> ConstantNegation(Ref<SemBase> value) {
  if (!value || !value->IsConstant()) return Ref<SemBase>();
  IRValue v = value->GetValue();
  TacAddr const* addr = nullptr;
  switch (value->GetType().GetMainType()) {
    case kTypeInteger:
      addr = CurrentTLP()->GetLiteral(IRValue::SInt32(static_cast<int32_t>(0u - static_cast<uint32_t>(v.sint32))),
                                      IRDataType(kTypeInteger));
      break;
    case kTypeSingle:
      addr = CurrentTLP()->GetLiteral(IRValue::Real32(FlippedSign<float, uint32_t>(v.real32)),
                                      IRDataType(kTypeSingle));
      break;
    case kTypeDouble:
      addr = CurrentTLP()->GetLiteral(IRValue::Real64(FlippedSign<double, uint64_t>(v.real64)),
                                      IRDataType(kTypeDouble));
      break;
    default:
      Error(IllegalOperandType, value->Location());
      return Ref<SemBase>();
  }
  // The operand's location, so that an error about the negated value points
  // at the line it stands on.
  return SemValue::New(addr, &value->Location());
}

Ref<SemBase> CompileBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right) {
  bool constants = left && right && left->IsConstant() && right->IsConstant();
  Ref<SemBase> result = constants ? BinopOfConstants(left, op, right) : PlaceholderValue();
  return TraceRoutine("CompileBinop", result, {left, right}, {(long)op});
}

// And, Or and Not fold two constant Booleans. Other constants need the
// conversion to Boolean that comes with code emission.
static bool IsConstantBoolean(Ref<SemBase> const& value) {
  return value && value->IsConstant() && value->GetType().GetMainType() == kTypeBoolean;
}

Ref<SemBase> CompileAnd(Ref<SemBase> left, Ref<SemBase> right) {
  Ref<SemBase> result;
  if (IsConstantBoolean(left) && IsConstantBoolean(right)) {
    SourceLocation loc = left->Location() + right->Location();
    result = BooleanValue(left->GetValue().sint32 != 0 && right->GetValue().sint32 != 0, loc);
  } else {
    result = PlaceholderValue();
  }
  return TraceRoutine("CompileAnd", result, {left, right});
}

Ref<SemBase> CompileOr(Ref<SemBase> left, Ref<SemBase> right) {
  Ref<SemBase> result;
  if (IsConstantBoolean(left) && IsConstantBoolean(right)) {
    SourceLocation loc = left->Location() + right->Location();
    result = BooleanValue(left->GetValue().sint32 != 0 || right->GetValue().sint32 != 0, loc);
  } else {
    result = PlaceholderValue();
  }
  return TraceRoutine("CompileOr", result, {left, right});
}

Ref<SemBase> CompileNot(Ref<SemBase> value) {
  Ref<SemBase> result =
      IsConstantBoolean(value) ? BooleanValue(value->GetValue().sint32 == 0, value->Location()) : PlaceholderValue();
  return TraceRoutine("CompileNot", result, {value});
}

Ref<SemBase> CompileNegation(Ref<SemBase> value) {
  bool foldable = value && value->IsConstant() && !IsObject(ElementIfReference(value->GetType()));
  Ref<SemBase> result = foldable ? ConstantNegation(value) : PlaceholderValue();
  return TraceRoutine("CompileNegation", result, {value});
}

Ref<SemBase> CompileStringLiteral(Ref<SemBase> literal) { return literal; }

Ref<SemBase> CompileUnterminatedString(Ref<SemBase> literal) {
  Error(UnterminatedString, literal ? literal->Location() : SourceLocation(current_line()));
  return literal;
}

Ref<SemBase> CompileNilLiteral() {
  return SemValue::New(CurrentTLP()->GetLiteral(kIRZeroValue, IRDataType(string(""))), nullptr);
}

Ref<SemBase> CompileNew(Ref<SemBase> classIdentifier, Ref<SemBase> args, bool callConstructor) {
  return TraceRoutine("CompileNew", PlaceholderValue(), {classIdentifier, args}, {callConstructor ? 1 : 0});
}

Ref<SemBase> CompileIsA(Ref<SemBase> value, Ref<SemBase> classIdentifier) {
  return TraceRoutine("CompileIsA", PlaceholderValue(), {value, classIdentifier});
}

Ref<SemBase> CompileIs(Ref<SemBase> left, Ref<SemBase> right) {
  return TraceRoutine("CompileIs", PlaceholderValue(), {left, right});
}

Ref<SemBase> CompileSelf() { return TraceRoutine("CompileSelf", PlaceholderValue(), {}); }

Ref<SemBase> CompileMe() { return TraceRoutine("CompileMe", PlaceholderValue(), {}); }

Ref<SemBase> CompileSuper() { return TraceRoutine("CompileSuper", PlaceholderValue(), {}); }

Ref<SemBase> CompileClassReference(Ref<SemBase> identifier) {
  return TraceRoutine("CompileClassReference", PlaceholderValue(), {identifier});
}
