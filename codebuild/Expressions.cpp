#include "codebuild/Expressions.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "codebuild/Calls.h"
#include "codebuild/Conversions.h"
#include "codebuild/ObjectExpressions.h"
#include "codebuild/Placeholders.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "semantic/SymbolUtilities.h"
#include "diag/CompileError.h"
#include "ir/DataTypes.h"
#include "frontend/Lexer.h"
#include "foundation/KvAssert.h"

// Operands are type-checked by the common-type table; two constants fold,
// and anything else becomes code that leaves the value in a fresh
// temporary. The object operators come with classes.

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

// Does the type in which the operands meet have the operator? Boolean and
// Color have = and <> only, String + and the comparisons, the numbers all.
// Asked before / and \ change the type the operands go to, so that
// "a" / "b" is one IllegalOperandType, not a failed conversion per operand.
bool HasOperator(SimpleDataType common, unsigned long op) {
  switch (common) {
    case kTypeBoolean:
    case kTypeColor: return op == kOpEqual || op == kOpNotEqual;
    case kTypeInteger:
    case kTypeDouble: return true;
    case kTypeString: return op == kOpAdd || IsComparison(op);
    default: return false;
  }
}

// What an operator gives (comparisons Boolean, `/` and `^` Double, `\` and
// `Mod` Integer); `common` becomes the type the operands are converted to.
IRDataType ResultType(unsigned long op, IRDataType& common) {
  if (op == kOpDivide || op == kOpPower) return common = IRDataType(kTypeDouble);
  if (op == kOpIntegerDivide || op == kOpMod) return common = IRDataType(kTypeInteger);
  return IsComparison(op) ? IRDataType(kTypeBoolean) : common;
}

bool IsObject(IRDataType const& type) { return type.GetMainType() == kTypeObject; }

IRDataType ElementIfReference(IRDataType const& type) {
  return type.GetMainType() == kTypeReference ? type.AsElement() : type;
}

struct OpcodeRow {
  unsigned long op;
  TacOpcode integer;
  TacOpcode floating;
  bool swapped;
};

// `>` and `>=` are `<` and `<=` with the operands exchanged, so the code
// needs only the two tests. tac_Noop: the type lacks the operator.
constexpr OpcodeRow kOpcodes[] = {
    {kOpEqual, tac_EQI, tac_EQD, false},           {kOpNotEqual, tac_NEI, tac_NED, false},
    {kOpLess, tac_LTI, tac_LTD, false},            {kOpGreater, tac_LTI, tac_LTD, true},
    {kOpLessEqual, tac_LEI, tac_LED, false},       {kOpGreaterEqual, tac_LEI, tac_LED, true},
    {kOpAdd, tac_AddI, tac_AddD, false},           {kOpSubtract, tac_SubI, tac_SubD, false},
    {kOpMultiply, tac_MulI, tac_MulD, false},      {kOpDivide, tac_Noop, tac_DivD, false},
    {kOpIntegerDivide, tac_DivI, tac_Noop, false}, {kOpMod, tac_ModI, tac_Noop, false},
    {kOpPower, tac_Noop, tac_PowD, false},
};

OpcodeRow const* FindOpcode(unsigned long op) {
  for (OpcodeRow const& row : kOpcodes)
    if (row.op == op) return &row;
  return nullptr;
}

// Strings: the left operand's code runs first, then the run-time adds or
// compares (a number below, at or above 0, tested against 0).
void EmitStringOperator(Ref<SemBase> left, unsigned long op, Ref<SemBase> right, Ref<SemBase> code) {
  IRDataType text(kTypeString);
  left = CompileRefAs(left, text, code);
  right = CompileRefAs(right, text, code);
  TacAddr const* dest = code->GetAddr();
  code->AddLine(tac_PutParam, left->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, right->GetAddr(), nilTacAddr, nilTacAddr);
  if (op == kOpAdd) {
    code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeAddString), nilTacAddr, dest);
    return;
  }
  Ref<SemBase> order = code->NewTemp(IRDataType(kTypeInteger), nullptr);
  TacAddr const* t = order->GetAddr();
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeStringCompare), nilTacAddr, t);
  switch (op) {
    case kOpEqual: code->AddLine(tac_EQI, t, gTacZero, dest); break;
    case kOpNotEqual: code->AddLine(tac_NEI, t, gTacZero, dest); break;
    case kOpLess: code->AddLine(tac_LTI, t, gTacZero, dest); break;
    case kOpLessEqual: code->AddLine(tac_LEI, t, gTacZero, dest); break;
    case kOpGreater: code->AddLine(tac_LTI, gTacZero, t, dest); break;
    case kOpGreaterEqual: code->AddLine(tac_LEI, gTacZero, t, dest); break;
    default: break;
  }
}

Ref<SemBase> EmitBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right) {
  IRDataType leftType = left->GetType(), rightType = right->GetType();
  IRDataType common = ComputeCommonType(leftType, rightType);
  leftType = ElementIfReference(leftType);
  rightType = ElementIfReference(rightType);
  SourceLocation loc = left->Location() + right->Location();
  if (IsReportedFailure(left) || IsReportedFailure(right)) return SemCode::New(IRDataType(), &loc);
  if (IsObject(common) || (common.Null() && (IsObject(leftType) || IsObject(rightType))))
    return ObjectBinop(left, op, right);
  if (common.Null()) {
    SimpleVector<string> words;
    words.push_back(leftType.ToString());
    words.push_back(rightType.ToString());
    Error(TypeMismatch, loc, words);
    // Carries the location, so that a caller's own complaint lands there.
    return SemCode::New(IRDataType(), &loc);
  }
  if (left->IsConstant() && right->IsConstant()) {
    Ref<SemBase> folded = ConstantBinop(left, op, right, common, loc);
    if (folded) return folded;
  }
  if (!HasOperator(common.GetMainType(), op)) {
    Error(IllegalOperandType, loc);
    return SemCode::New(IRDataType(), &loc);
  }
  IRDataType result = ResultType(op, common);
  Ref<SemBase> code = SemCode::New(result, &loc);
  TacAddr const* dest = code->GetAddr();
  ResetReturnTemp(dest, code);
  if (common.GetMainType() == kTypeString) {
    EmitStringOperator(left, op, right, code);
    return code;
  }
  OpcodeRow const* row = FindOpcode(op);
  TacOpcode opcode = tac_Noop;
  switch (common.GetMainType()) {
    case kTypeInteger: opcode = row ? row->integer : tac_Noop; break;
    case kTypeDouble: opcode = row ? row->floating : tac_Noop; break;
    case kTypeBoolean:
    case kTypeColor: opcode = op == kOpEqual ? tac_EQI : op == kOpNotEqual ? tac_NEI : tac_Noop; break;
    default: break;
  }
  KV_ASSERT(opcode != tac_Noop);
  if (opcode == tac_Noop) return code;
  if (row->swapped) Swap(left, right);
  // The right operand's code first, then the left's.
  right = CompileRefAs(right, common, code);
  left = CompileRefAs(left, common, code);
  code->AddLine(opcode, left->GetAddr(), right->GetAddr(), dest);
  return code;
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
  Ref<SemBase> result = left && right ? EmitBinop(left, op, right) : PlaceholderValue();
  return TraceRoutine("CompileBinop", result, {left, right}, {(long)op});
}

void Swap(Ref<SemBase>& a, Ref<SemBase>& b) {
  Ref<SemBase> t = a;
  a = b;
  b = t;
}

static bool IsConstantBoolean(Ref<SemBase> const& value) {
  return value && value->IsConstant() && value->GetType().GetMainType() == kTypeBoolean;
}

// Short-circuit And (`isAnd`) and Or: the right operand's code runs only
// when the left one has not decided. Two constant Booleans fold.
static Ref<SemBase> ShortCircuit(Ref<SemBase> left, Ref<SemBase> right, bool isAnd) {
  if (!left || !right) return PlaceholderValue();
  SourceLocation loc = left->Location() + right->Location();
  if (IsConstantBoolean(left) && IsConstantBoolean(right)) {
    bool a = left->GetValue().sint32 != 0, b = right->GetValue().sint32 != 0;
    return BooleanValue(isAnd ? a && b : a || b, loc);
  }
  IRDataType boolean(kTypeBoolean);
  Ref<SemBase> code = SemCode::New(boolean, &loc);
  TacAddr const* dest = code->GetAddr();
  TacAddr const* decided = NewLabel();
  TacAddr const* end = NewLabel();
  TacOpcode test = isAnd ? tac_IfEQI : tac_IfNEI;
  left = CompileRefAs(left, boolean, code);
  code->AddLine(test, left->GetAddr(), gTacFalse, decided);
  right = CompileRefAs(right, boolean, code);
  code->AddLine(test, right->GetAddr(), gTacFalse, decided);
  code->AddLine(tac_Store, isAnd ? gTacTrue : gTacFalse, nilTacAddr, dest);
  code->AddLine(tac_Jump, nilTacAddr, nilTacAddr, end);
  code->AddLine(tac_Label, decided, nilTacAddr, nilTacAddr);
  code->AddLine(tac_Store, isAnd ? gTacFalse : gTacTrue, nilTacAddr, dest);
  code->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
  return code;
}

Ref<SemBase> CompileAnd(Ref<SemBase> left, Ref<SemBase> right) {
  return TraceRoutine("CompileAnd", ShortCircuit(left, right, true), {left, right});
}

Ref<SemBase> CompileOr(Ref<SemBase> left, Ref<SemBase> right) {
  return TraceRoutine("CompileOr", ShortCircuit(left, right, false), {left, right});
}

Ref<SemBase> CompileNot(Ref<SemBase> value) {
  Ref<SemBase> result;
  if (!value) {
    result = PlaceholderValue();
  } else if (IsConstantBoolean(value)) {
    result = BooleanValue(value->GetValue().sint32 == 0, value->Location());
  } else {
    // Logical only: whatever converts to Boolean, and nothing else.
    result = SemCode::New(IRDataType(kTypeBoolean), nullptr);
    Ref<SemBase> v = CompileRefAs(value, IRDataType(kTypeBoolean), result);
    result->AddLine(tac_EQI, v->GetAddr(), gTacFalse, result->GetAddr());
  }
  return TraceRoutine("CompileNot", result, {value});
}

static Ref<SemBase> EmitNegation(Ref<SemBase> value) {
  if (IsReportedFailure(value)) return value;
  IRDataType type = value->GetType();
  if (IsObject(ElementIfReference(type))) return ObjectNegation(value);
  // A value that can't be negated goes on as code of no type, which
  // CompileRefAs knows as reported: `n = -s` is one error, not two.
  if (value->IsConstant()) {
    Ref<SemBase> negated = ConstantNegation(value);
    return negated ? negated : SemCode::New(IRDataType(), &value->Location());
  }
  IRDataType element(type.GetElementType());
  Ref<SemBase> code = SemCode::New(element, nullptr);
  if (type.GetMainType() == kTypeReference) value = CompileRefAs(value, element, code);
  TacOpcode op = tac_Noop;
  switch (value->GetType().GetMainType()) {
    case kTypeInteger: op = tac_NegI; break;
    case kTypeSingle:
    case kTypeDouble: op = tac_NegD; break;
    default:
      Error(IllegalOperandType, value->Location());
      return SemCode::New(IRDataType(), &value->Location());
  }
  value = FlattenExpression(value, code);
  code->AddLine(op, value->GetAddr(), nilTacAddr, code->GetAddr());
  return code;
}

Ref<SemBase> CompileNegation(Ref<SemBase> value) {
  Ref<SemBase> result = value ? EmitNegation(value) : PlaceholderValue();
  return TraceRoutine("CompileNegation", result, {value});
}

Ref<SemBase> CompileParenthesized(Ref<SemBase> contents) {
  if (contents) return contents;
  Error(NoResultValue);
  return SemCode::New(IRDataType(), nullptr);
}

Ref<SemBase> CompileStringLiteral(Ref<SemBase> literal) { return literal; }

Ref<SemBase> CompileUnterminatedString(Ref<SemBase> literal) {
  Error(UnterminatedString, literal ? literal->Location() : SourceLocation(current_line()));
  return literal;
}

Ref<SemBase> CompileNilLiteral() {
  return SemValue::New(CurrentTLP()->GetLiteral(kIRZeroValue, IRDataType(string(""))), nullptr);
}
