#include "codebuild/ObjectExpressions.h"

#include "codebuild/Calls.h"
#include "codebuild/Classes.h"
#include "codebuild/Conversions.h"
#include "codebuild/Expressions.h"
#include "codebuild/Placeholders.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "ir/LabelUtilities.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"

namespace {

// No sane hierarchy is this deep; a cycle of Inherits ends here.
constexpr int kMaxAncestorWalk = 4096;

struct OperatorMethods {
  unsigned long op;
  char const* onLeft;
  char const* onRight;
};

constexpr OperatorMethods kArithmetic[] = {
    {kOpAdd, "Operator_Add", "Operator_AddRight"},
    {kOpSubtract, "Operator_Subtract", "Operator_SubtractRight"},
    {kOpMultiply, "Operator_Multiply", "Operator_MultiplyRight"},
    {kOpDivide, "Operator_Divide", "Operator_DivideRight"},
    {kOpIntegerDivide, "Operator_IntegerDivide", "Operator_IntegerDivideRight"},
    {kOpMod, "Operator_Modulo", "Operator_ModuloRight"},
    {kOpPower, "Operator_Power", "Operator_PowerRight"},
};

OperatorMethods const* ArithmeticMethods(unsigned long op) {
  for (OperatorMethods const& m : kArithmetic)
    if (m.op == op) return &m;
  return nullptr;
}

bool IsComparisonOp(unsigned long op) {
  return op == kOpEqual || op == kOpNotEqual || op == kOpLess || op == kOpLessEqual || op == kOpGreater ||
         op == kOpGreaterEqual;
}

IRDataType Dereferenced(IRDataType const& type) {
  return type.GetMainType() == kTypeReference ? type.AsElement() : type;
}

bool IsObjectValue(Ref<SemBase> const& value) { return Dereferenced(value->GetType()).GetMainType() == kTypeObject; }

bool IsNilLiteral(Ref<SemBase> const& value) {
  return value->IsConstant() && value->GetType().GetMainType() == kTypeObject && value->GetValue().sint32 == 0;
}

// The value as a plain object of its own class.
Ref<SemBase> AsOwnObject(Ref<SemBase> value, Ref<SemBase> const& code) {
  return CompileRefAs(value, IRDataType(Dereferenced(value->GetType()).GetClass()), code);
}

ClassDeclaration* ClassOfValue(Ref<SemBase> const& value) {
  IRDataType type = Dereferenced(value->GetType());
  return type.GetMainType() == kTypeObject ? LookupClassByName(type.GetClass()) : nullptr;
}

void IllegalOperands(SourceLocation const& loc) { Error(IllegalOperandType, loc); }

Ref<SemBase> ObjectArithmetic(Ref<SemBase> left, OperatorMethods const& names, Ref<SemBase> right,
                              SourceLocation const& loc) {
  if (FunctionDeclaration* method = LookupOperatorMethod(left, string(names.onLeft), right))
    return CompileCall(method, ConcatList(CheckForNilObject(left), right));
  if (FunctionDeclaration* method = LookupOperatorMethod(right, string(names.onRight), left))
    return CompileCall(method, ConcatList(CheckForNilObject(right), left));
  IllegalOperands(loc);
  return SemCode::New(IRDataType(), &loc);
}

void FinalComparison(unsigned long op, TacAddr const* first, TacAddr const* second, TacAddr const* dest,
                     Ref<SemBase> const& code) {
  bool real = first->type.IsFloat() || second->type.IsFloat();
  switch (op) {
    case kOpEqual: code->AddLine(real ? tac_EQD : tac_EQI, first, second, dest); break;
    case kOpNotEqual: code->AddLine(real ? tac_NED : tac_NEI, first, second, dest); break;
    case kOpLess: code->AddLine(real ? tac_LTD : tac_LTI, first, second, dest); break;
    case kOpLessEqual: code->AddLine(real ? tac_LED : tac_LEI, first, second, dest); break;
    case kOpGreater: code->AddLine(real ? tac_LTD : tac_LTI, second, first, dest); break;
    case kOpGreaterEqual: code->AddLine(real ? tac_LED : tac_LEI, second, first, dest); break;
    default: break;
  }
}

// `Operator_Compare` of `object` with `other`; for = and <> a Nil `object`
// compares by reference and never reaches the method. Leaves the number the
// method returned in `result`, against `zero`.
TacAddr const* CallCompare(FunctionDeclaration* method, Ref<SemBase> object, Ref<SemBase> other, unsigned long op,
                           TacAddr const* dest, Ref<SemBase> const& code, TacAddr const*& zero,
                           TacAddr const*& end) {
  if (op == kOpEqual || op == kOpNotEqual) {
    end = NewLabel();
    TacAddr const* callIt = NewLabel();
    code->AddLine(tac_IfNEI, object->GetAddr(), gTacZero, callIt);
    code->AddLine(op == kOpEqual ? tac_EQI : tac_NEI, object->GetAddr(), other->GetAddr(), dest);
    code->AddLine(tac_Jump, nilTacAddr, nilTacAddr, end);
    code->AddLine(tac_Label, callIt, nilTacAddr, nilTacAddr);
  }
  Ref<SemBase> result = CompileCall(method, ConcatList(CheckForNilObject(object), other));
  if (result->GetType().GetMainType() == kTypeInteger) {
    zero = gTacZero;
    return FlattenExpression(result, code)->GetAddr();
  }
  zero = gTacFloatZero;
  return CompileRefAs(result, IRDataType(kTypeDouble), code)->GetAddr();
}

Ref<SemBase> ObjectComparison(Ref<SemBase> left, unsigned long op, Ref<SemBase> right, SourceLocation const& loc) {
  Ref<SemBase> code = SemCode::New(IRDataType(kTypeBoolean), &loc);
  TacAddr const* dest = code->GetAddr();
  if (left->GetType().Null() || right->GetType().Null()) {
    IllegalOperands(loc);
    return code;
  }
  left = FlattenExpression(left, code);
  right = FlattenExpression(right, code);
  TacAddr const* first = nullptr;
  TacAddr const* second = nullptr;
  TacAddr const* end = nullptr;
  TacAddr const* zero = gTacZero;
  // Against the Nil literal only the reference counts: a user's method would
  // be handed Nil to compare with.
  bool withNil = IsNilLiteral(left) || IsNilLiteral(right);
  FunctionDeclaration* method = withNil ? nullptr : LookupOperatorMethod(left, string("Operator_Compare"), right);
  if (method) {
    first = CallCompare(method, left, right, op, dest, code, zero, end);
    second = zero;
  } else if ((method = withNil ? nullptr : LookupOperatorMethod(right, string("Operator_Compare"), left))) {
    // The method compared the other way round.
    second = CallCompare(method, right, left, op, dest, code, zero, end);
    first = zero;
  } else {
    if (!IsObjectValue(left) || !IsObjectValue(right)) {
      IllegalOperands(loc);
      return code;
    }
    first = AsOwnObject(left, code)->GetAddr();
    second = AsOwnObject(right, code)->GetAddr();
  }
  FinalComparison(op, first, second, dest, code);
  if (end) code->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
  return code;
}

Ref<SemBase> ReportedFailure(SourceLocation const* where) { return SemCode::New(IRDataType(), where); }

// Constructors of `cls`: those named after the class, then `Constructor`.
Ref<SimpleVector<FunctionDeclaration*>> ConstructorsOf(ClassDeclaration* cls) {
  Ref<SimpleVector<FunctionDeclaration*>> list = cls->LookupMethodsByBase(cls->GetName(), kFilterPlain);
  Ref<SimpleVector<FunctionDeclaration*>> named = cls->LookupMethodsByBase(string("Constructor"), kFilterPlain);
  if (!list) return named;
  if (named)
    for (unsigned long i = 0; i < named->size(); ++i) list->push_back((*named.Get())[i]);
  return list;
}

// A method called `New` may make the object instead of the run-time.
FunctionDeclaration* FindAllocator(Ref<SemBase>& arguments, Ref<SemBase> const& record) {
  Ref<SimpleVector<FunctionDeclaration*>> candidates;
  if (gContext->inClass && gContext->currentClass) {
    candidates = gContext->currentClass->LookupMethodsByBase(string("New"), kFilterPlain);
    if (candidates) {
      Ref<SemBase> self = FindLocalSymbol(SemIdentifier::New(string("self")));
      if (!self) return nullptr;
      arguments = ConcatList(self, record);
    }
  } else if (ModuleDeclaration* module = gContext->CurrentModule()) {
    candidates = module->LookupMethodsByBase(string("New"), kFilterPlain);
    arguments = record;
  }
  if (!candidates || candidates->size() == 0) return nullptr;
  return SelectAppropriateVariant(candidates, arguments, kResultNeeded, nullptr);
}

}  // namespace

FunctionDeclaration* LookupOperatorMethod(Ref<SemBase> object, string const& name, Ref<SemBase> argument) {
  ClassDeclaration* cls = object ? ClassOfValue(object) : nullptr;
  if (!cls) return nullptr;
  Ref<SimpleVector<FunctionDeclaration*>> list = cls->LookupMethodsByBase(name, kFilterPlain);
  if (!list || list->size() == 0) return nullptr;
  // Clones: the operands must not be chained into a list that is only a test.
  Ref<SemBase> args = argument ? ConcatList(object->Clone(), argument->Clone()) : object->Clone();
  FunctionDeclaration* method = SelectAppropriateVariant(list, args, kResultNeeded, nullptr);
  if (method && !CurrentlyHasPermissionToAccess(cls, method->GetScope()))
    Error(InaccessibleMethod, argument ? object->Location() + argument->Location() : object->Location());
  return method;
}

Ref<SemBase> ObjectBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right) {
  SourceLocation loc = left->Location() + right->Location();
  if (OperatorMethods const* names = ArithmeticMethods(op)) return ObjectArithmetic(left, *names, right, loc);
  if (IsComparisonOp(op)) return ObjectComparison(left, op, right, loc);
  IllegalOperands(loc);
  return SemCode::New(IRDataType(kTypeBoolean), &loc);
}

Ref<SemBase> ObjectNegation(Ref<SemBase> value) {
  if (FunctionDeclaration* method = LookupOperatorMethod(value, string("Operator_Negate"), Ref<SemBase>()))
    return CompileCall(method, CheckForNilObject(value));
  IllegalOperands(value->Location());
  return ReportedFailure(&value->Location());
}

Ref<SemBase> CompileTypecast(ClassDeclaration* cls, Ref<SemBase> args, SourceLocation const& where) {
  Ref<SemBase> code = SemCode::New(IRDataType(cls->GetName()), &where);
  if (!args) {
    Error(TooFewArguments, where);
    return code;
  }
  if (args->IsList()) {
    Error(TooManyArguments, args->Location());
    args = args->GetContents();
    args->next = Ref<SemBase>();
  }
  ResetReturnTemp(code->GetAddr(), code);
  if (IsReportedFailure(args)) return code;
  if (!IsObjectValue(args)) {
    SimpleVector<string> words;
    words.push_back(IRDataType(cls->GetName()).ToString());
    words.push_back(args->GetType().ToString());
    Error(TypeMismatch, args->Location(), words);
    return code;
  }
  Ref<SemBase> value = AsOwnObject(args, code);
  Ref<SemBase> record = FlattenExpression(LookupClassRecord(cls->GetName(), &where), code);
  code->AddLine(tac_PutParam, value->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, record->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeCheckCast), nilTacAddr, code->GetAddr());
  return code;
}

// ---------------------------------------------------------------------------
// The grammar's routines

namespace {

Ref<SemBase> EmitNew(Ref<SemBase> classIdentifier, Ref<SemBase> args, bool callConstructor) {
  if (!classIdentifier || !gContext) return PlaceholderValue();
  SourceLocation at = classIdentifier->Location();
  Ref<SemBase> code = SemCode::New(classIdentifier->GetType(), &at);
  TacAddr const* dest = code->GetAddr();
  string name = classIdentifier->toString();
  ClassDeclaration* cls = LookupClassByName(name);
  // The type's reading reported an unknown class.
  if (!cls) return ReportedFailure(&at);
  ResetReturnTemp(dest, code);
  if (cls->IsInterface()) Error(NewOfInterface, at);
  if (cls->IsAbstract()) Error(NewOfAbstractClass, at);
  Ref<SemBase> record = FlattenExpression(LookupClassRecord(name, &at), code);
  Ref<SemBase> allocatorArgs;
  if (FunctionDeclaration* allocator = FindAllocator(allocatorArgs, record)) {
    Ref<SemBase> allocated = FlattenExpression(CompileCall(allocator, allocatorArgs), code);
    // The reference moves to the result; the temporary no longer holds it.
    code->AddLine(tac_Store, allocated->GetAddr(), nilTacAddr, dest);
    code->AddLine(tac_Store, gTacZero, nilTacAddr, allocated->GetAddr());
  } else {
    code->AddLine(tac_PutParam, record->GetAddr(), nilTacAddr, nilTacAddr);
    code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeNewObject), nilTacAddr, dest);
  }
  if (!callConstructor) return code;
  // The first class from this one upwards whose constructors take the
  // arguments supplies the one that runs.
  Ref<SemBase> arguments = ConcatList(SemValue::New(dest, nullptr), args);
  bool seen = false;
  FunctionDeclaration* chosen = nullptr;
  ClassDeclaration* owner = nullptr;
  int steps = 0;
  for (ClassDeclaration* c = cls; c && !chosen && steps < kMaxAncestorWalk; c = c->GetParent(), ++steps) {
    Ref<SimpleVector<FunctionDeclaration*>> list = ConstructorsOf(c);
    if (!list || list->size() == 0) continue;
    seen = true;
    chosen = SelectAppropriateVariant(list, arguments, kResultStatement, nullptr);
    owner = c;
  }
  if (chosen) {
    if (!CurrentlyHasPermissionToAccess(owner, chosen->GetScope()))
      Error(InaccessibleMethod, args ? at + args->Location() : at);
    code->Append(CompileCall(chosen, arguments));
  } else if (seen || args) {
    Error(ArgumentTypeMismatch, args ? args->Location() : at);
  }
  return code;
}

Ref<SemBase> EmitIsA(Ref<SemBase> value, Ref<SemBase> classIdentifier) {
  Ref<SemBase> code = SemCode::New(IRDataType(kTypeBoolean), nullptr);
  if (!value || IsReportedFailure(value)) return code;
  value = CompileRefAs(value, IRDataType(string("")), code);
  TacAddr const* cls = gTacZero;
  if (classIdentifier) {
    // The type's reading reported an unknown class.
    if (!LookupClassByName(classIdentifier->toString())) return code;
    SourceLocation at = classIdentifier->Location();
    Ref<SemBase> record = LookupClassRecord(classIdentifier->toString(), &at);
    cls = FlattenExpression(record, code)->GetAddr();
  }
  code->AddLine(tac_PutParam, value->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, cls, nilTacAddr, nilTacAddr);
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeObjectIsa), nilTacAddr, code->GetAddr());
  return code;
}

Ref<SemBase> EmitIs(Ref<SemBase> left, Ref<SemBase> right) {
  Ref<SemBase> code = SemCode::New(IRDataType(kTypeBoolean), nullptr);
  if (!left || !right || IsReportedFailure(left) || IsReportedFailure(right)) return code;
  left = CompileRefAs(left, IRDataType(string("")), code);
  right = CompileRefAs(right, IRDataType(string("")), code);
  code->AddLine(tac_EQI, left->GetAddr(), right->GetAddr(), code->GetAddr());
  return code;
}

// After an error the three keywords leave a reported failure rather than a
// name, which a member access after them would report a second time.
Ref<SemBase> EmitSelf() {
  if (Ref<SemBase> self = FindLocalSymbol(SemIdentifier::New(string("self")))) return self;
  Error(SelfOutsideInstance, SourceLocation(CurrentSourceLine()));
  return ReportedFailure(nullptr);
}

Ref<SemBase> EmitMe() {
  if (Ref<SemBase> me = FindLocalSymbol(SemIdentifier::New(string("me")))) return me;
  if (Ref<SemBase> self = FindLocalSymbol(SemIdentifier::New(string("self")))) return self;
  Error(MeOutsideInstance, SourceLocation(CurrentSourceLine()));
  return ReportedFailure(nullptr);
}

Ref<SemBase> EmitSuper() {
  SourceLocation at(CurrentSourceLine());
  if (gContext && gContext->inClass && gContext->currentClass) {
    if (ClassDeclaration* parent = gContext->currentClass->GetParent())
      return SemIdentifier::New(parent->GetName(), at);
    Error(SuperWithoutParent, at);
  } else {
    Error(SuperOutsideClass, at);
  }
  return ReportedFailure(nullptr);
}

Ref<SemBase> EmitClassReference(Ref<SemBase> identifier) {
  if (!identifier) return PlaceholderValue();
  SourceLocation at = identifier->Location();
  return LookupClassRecord(identifier->toString(), &at);
}

}  // namespace

Ref<SemBase> CompileNew(Ref<SemBase> classIdentifier, Ref<SemBase> args, bool callConstructor) {
  return TraceRoutine("CompileNew", EmitNew(classIdentifier, args, callConstructor), {classIdentifier, args},
                      {callConstructor ? 1 : 0});
}

Ref<SemBase> CompileIsA(Ref<SemBase> value, Ref<SemBase> classIdentifier) {
  return TraceRoutine("CompileIsA", EmitIsA(value, classIdentifier), {value, classIdentifier});
}

Ref<SemBase> CompileIs(Ref<SemBase> left, Ref<SemBase> right) {
  return TraceRoutine("CompileIs", EmitIs(left, right), {left, right});
}

Ref<SemBase> CompileSelf() {
  return TraceRoutine("CompileSelf", EmitSelf(), {});
}

Ref<SemBase> CompileMe() {
  return TraceRoutine("CompileMe", EmitMe(), {});
}

Ref<SemBase> CompileSuper() {
  return TraceRoutine("CompileSuper", EmitSuper(), {});
}

Ref<SemBase> CompileClassReference(Ref<SemBase> identifier) {
  return TraceRoutine("CompileClassReference", EmitClassReference(identifier), {identifier});
}
