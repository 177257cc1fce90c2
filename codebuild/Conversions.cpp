#include "codebuild/Conversions.h"

#include "codebuild/Calls.h"
#include "codebuild/Classes.h"
#include "codebuild/Expressions.h"
#include "codebuild/Placeholders.h"
#include "diag/CompileError.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"

namespace {

// No sane hierarchy is this deep; a cycle (reported as CircularInheritance
// by the class routines) ends the walk here instead of hanging it.
constexpr int kMaxAncestorWalk = 4096;

// Set while LookupConversionOperator runs: the legality tests it makes
// consider no second user conversion.
bool sInOperatorLookup = false;

bool IsNumeric(SimpleDataType t) {
  return t == kTypeInteger || t == kTypeInteger32 || t == kTypeSingle || t == kTypeDouble || t == kTypeShort;
}

bool IsDereference(IRDataType const& target, IRDataType const& source) {
  return source.GetMainType() == kTypeReference && target.GetMainType() != kTypeReference;
}

bool IsNumericConversion(IRDataType const& target, IRDataType const& source) {
  return IsNumeric(target.GetMainType()) && IsNumeric(source.GetMainType());
}

bool IsDeclareStringConversion(IRDataType const& target, IRDataType const& source) {
  SimpleDataType t = target.GetMainType();
  return source.GetMainType() == kTypeString && (t == kTypePString || t == kTypeCString || t == kTypeOSType);
}

bool IsNilArrayConversion(IRDataType const& target, IRDataType const& source) {
  return target.GetMainType() == kTypeArray && target.GetElementType() == kTypeNull &&
         target.GetDimensions() == 0 && source.GetMainType() == kTypeArray;
}

bool IsNilConstant(Ref<SemBase> const& value) {
  return value->IsConstant() && value->GetType() == IRDataType(kTypeObject) && value->GetValue().sint32 == 0;
}

bool IsArrayElementNarrowingCast(IRDataType const& target, IRDataType const& source) {
  if (target.GetMainType() != kTypeArray || source.GetMainType() != kTypeArray) return false;
  IRDataType t = target.AsElement(), s = source.AsElement();
  return IsImplicitUpcast(t, s) || IsInterfaceCast(t, s);
}

bool IsOperatorConversion(IRDataType const& target, IRDataType const& source) {
  if (sInOperatorLookup) return false;
  Ref<SimpleVector<FunctionDeclaration*>> list = LookupConversionOperator(target, source);
  return list && list->size() > 0;
}

void ReportMismatch(IRDataType const& target, Ref<SemBase> const& value) {
  SimpleVector<string> words;
  words.push_back(target.ToString());
  words.push_back(value->GetType().ToString());
  Error(TypeMismatch, value->Location(), words);
}

Ref<SemBase> Literal(IRValue const& v, IRDataType const& type) {
  return SemValue::New(CurrentTLP()->GetLiteral(v, type), nullptr);
}

Ref<SemBase> TempWithOneLine(TacOpcode op, Ref<SemBase> const& value, IRDataType const& target,
                             Ref<SemBase> const& code) {
  Ref<SemBase> temp = code->NewTemp(target, nullptr);
  code->AddLine(op, value->GetAddr(), nilTacAddr, temp->GetAddr());
  return temp;
}

Ref<SemBase> CompileNumericConversion(Ref<SemBase> value, IRDataType const& target, Ref<SemBase> code) {
  SimpleDataType from = value->GetType().GetMainType(), to = target.GetMainType();
  bool fromInteger = from == kTypeInteger || from == kTypeShort;
  bool fromFloat = from == kTypeSingle || from == kTypeDouble;
  bool toInteger = to == kTypeInteger || to == kTypeShort;
  bool toFloat = to == kTypeSingle || to == kTypeDouble;
  if (fromInteger && toFloat) {
    if (value->IsConstant()) {
      double d = value->GetValue().sint32;
      return Literal(to == kTypeSingle ? IRValue::Real32((float)d) : IRValue::Real64(d), target);
    }
    return TempWithOneLine(tac_ItoD, value, target, code);
  }
  if (fromFloat && toInteger) {
    if (value->IsConstant()) {
      IRValue v = value->GetValue();
      // The processor's rule, so a folded value equals the run-time one.
      int32_t n = TruncateToInt32(from == kTypeSingle ? (double)v.real32 : v.real64);
      return Literal(IRValue::SInt32(n), IRDataType(kTypeInteger));
    }
    return TempWithOneLine(tac_DtoI, value, target, code);
  }
  if ((fromFloat && toFloat) || (fromInteger && toInteger)) return TempWithOneLine(tac_Store, value, target, code);
  // kTypeInteger32 has no row: no routine makes such a value.
  ReportMismatch(target, value);
  return value;
}

Ref<SemBase> CallIntrinsicOn(long intrinsic, Ref<SemBase> const& value, IRDataType const& target,
                             Ref<SemBase> const& code) {
  Ref<SemBase> result = code->NewTemp(target, nullptr);
  ResetReturnTemp(result->GetAddr(), code);
  code->AddLine(tac_PutParam, value->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(intrinsic), nilTacAddr, result->GetAddr());
  return result;
}

Ref<SemBase> CompileDeclareStringConversion(Ref<SemBase> value, IRDataType const& target, Ref<SemBase> code) {
  long intrinsic = kIntrinsicStringToPString;
  if (target.GetMainType() == kTypeCString) intrinsic = kIntrinsicStringToCString;
  if (target.GetMainType() == kTypeOSType) intrinsic = kIntrinsicStringToOSType;
  return CallIntrinsicOn(intrinsic, value, target, code);
}

Ref<SemBase> CompileOperatorConversion(Ref<SemBase> value, IRDataType const& target, Ref<SemBase> code) {
  Ref<SimpleVector<FunctionDeclaration*>> list = LookupConversionOperator(target, value->GetType());
  if (!list || list->size() == 0) {
    ReportMismatch(target, value);
    return value;
  }
  if (list->size() > 1) Error(AmbiguousCall, value->Location());
  FunctionDeclaration* method = (*list.Get())[0];
  Ref<SemBase> converted;
  if (method->GetType().Null()) {
    // The target's side: a new object of the target's class takes the value.
    Ref<SemBase> cls = SemIdentifier::New(target.GetClass(), value->Location());
    cls->SetType(target);
    converted = FlattenExpression(CompileNew(cls, Ref<SemBase>(), false), code);
    code->Append(CompileCall(method, ConcatList(converted->Clone(), value)));
  } else {
    converted = FlattenExpression(CompileCall(method, CheckForNilObject(value)), code);
  }
  // One user conversion per chain: what it gives may still need a plain step.
  bool outer = sInOperatorLookup;
  sInOperatorLookup = true;
  Ref<SemBase> result = CompileRefAs(converted, target, code);
  sInOperatorLookup = outer;
  return result;
}

// `value` as an array of `target`'s elements: the run-time checks each
// element against the class of `value`'s elements and hands back a
// one-dimensional object array, a reference of the result's own.
Ref<SemBase> CompileArrayElementCast(Ref<SemBase> value, IRDataType const& target, Ref<SemBase> code) {
  if (value->GetType().GetDimensions() != 1) {
    Error(ArrayCastDimensions, value->Location());
    return value;
  }
  Ref<SemBase> record = LookupClassRecord(value->GetType().GetClass(), &value->Location());
  Ref<SemBase> r = code->NewTemp(target, nullptr);
  ResetReturnTemp(r->GetAddr(), code);
  if (record->Code()) code->Append(record);
  code->AddLine(tac_PutParam, value->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_PutParam, record->GetAddr(), nilTacAddr, nilTacAddr);
  code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeCreateArrayCastWrapper), nilTacAddr, r->GetAddr());
  return r;
}

}  // namespace

ClassDeclaration* LookupClassByName(string const& name) {
  ModuleDeclaration* module = gContext ? gContext->CurrentModule() : nullptr;
  return module && name.Length() ? module->LookupClass(name) : nullptr;
}

bool IsVariant(IRDataType const& type) {
  IRDataType t = type.GetMainType() == kTypeReference ? type.AsElement() : type;
  return t.GetMainType() == kTypeObject && t.GetClass() == string("Variant");
}

bool IsImplicitUpcast(IRDataType const& target, IRDataType const& source) {
  if (target.GetMainType() != kTypeObject || source.GetMainType() != kTypeObject) return false;
  string wanted = target.GetClass();
  if (wanted.Length() == 0) return true;
  ClassDeclaration* c = LookupClassByName(source.GetClass());
  for (int steps = 0; c && steps < kMaxAncestorWalk; ++steps, c = c->GetParent())
    if (c->GetName() == wanted) return true;
  return false;
}

bool IsInterfaceCast(IRDataType const& target, IRDataType const& source) {
  if (target.GetMainType() != kTypeObject || source.GetMainType() != kTypeObject) return false;
  string wanted = target.GetClass();
  if (wanted.Length() == 0) return false;
  ClassDeclaration* c = LookupClassByName(source.GetClass());
  return c && c->LookupImplementedInterface(wanted);
}

Ref<SimpleVector<FunctionDeclaration*>> LookupConversionOperator(IRDataType const& target,
                                                                 IRDataType const& source) {
  bool outer = sInOperatorLookup;
  sInOperatorLookup = true;
  Ref<SimpleVector<FunctionDeclaration*>> list;
  ClassDeclaration* from = source.GetMainType() == kTypeObject ? LookupClassByName(source.GetClass()) : nullptr;
  if (from) list = from->LookupMethodsByBase(string("Operator_Convert"), kFilterPlain);
  if (list) {
    for (unsigned long i = list->size(); i-- > 0;) {
      FunctionDeclaration* m = (*list.Get())[i];
      IRDataType result = m->GetType();
      if (m->CountParameters() > 1 || result == source || !IsLegalConversion(target, result, nullptr))
        list->deleteIdx(i);
    }
  }
  if (!list || list->size() == 0) {
    ClassDeclaration* to = target.GetMainType() == kTypeObject ? LookupClassByName(target.GetClass()) : nullptr;
    list = to ? to->LookupMethodsByBase(string("Operator_Convert"), kFilterPlain)
              : Ref<SimpleVector<FunctionDeclaration*>>();
    if (list) {
      for (unsigned long i = list->size(); i-- > 0;) {
        FunctionDeclaration* m = (*list.Get())[i];
        bool keep = m->GetType().Null() && m->CountParameters() == 2;
        if (keep) {
          IRDataType parameter = m->GetParameter(1)->GetType();
          keep = parameter != target && IsLegalConversion(parameter, source, nullptr);
        }
        if (!keep) list->deleteIdx(i);
      }
    }
  }
  sInOperatorLookup = outer;
  return list;
}

bool IsLegalConversion(IRDataType const& target, IRDataType source, int* cost) {
  if (cost) *cost = 0;
  if (IsDereference(target, source)) {
    source = source.AsElement();
  } else if (target.GetMainType() == kTypeReference && source.GetMainType() != kTypeReference) {
    return target.AsElement() == source;
  }
  if (target == source) return true;
  if (cost) *cost = 1;
  return IsNilArrayConversion(target, source) || IsNumericConversion(target, source) ||
         IsDeclareStringConversion(target, source) || IsVariant(source) || IsVariant(target) ||
         IsImplicitUpcast(target, source) || IsInterfaceCast(target, source) ||
         IsOperatorConversion(target, source) || IsArrayElementNarrowingCast(target, source);
}

Ref<SemBase> CompileDereference(Ref<SemBase> value, Ref<SemBase> code) {
  IRDataType element = value->GetType().AsElement();
  Ref<SemBase> result = code->NewTemp(element, nullptr);
  bool counted = element.RefCounted();
  if (counted) code->AddLine(tac_Unlock, result->GetAddr(), nilTacAddr, nilTacAddr);
  TacOpcode op = tac_PeekI;
  switch (element.GetMainType()) {
    case kTypeBoolean: op = tac_PeekB; break;
    case kTypeSingle: op = tac_PeekF; break;
    case kTypeDouble: op = tac_PeekD; break;
    case kTypeString: op = tac_PeekS; break;
    case kTypeObject:
    case kTypeArray: op = tac_PeekO; break;
    default: op = tac_PeekI; break;
  }
  code->AddLine(op, value->GetAddr(), nilTacAddr, result->GetAddr());
  if (counted) code->AddLine(tac_Lock, result->GetAddr(), nilTacAddr, nilTacAddr);
  return result;
}

Ref<SemBase> CompileRefAs(Ref<SemBase> value, IRDataType const& target, Ref<SemBase> code) {
  if (!value || !code) return value;
  if (value->GetType().Null()) {
    if (!IsReportedFailure(value)) ReportMismatch(target, value);
    return value;
  }
  value = FlattenExpression(value, code);
  IRDataType source = value->GetType();
  if (source == target) return value;
  if (IsDereference(target, source)) {
    value = CompileDereference(value, code);
    source = value->GetType();
    if (source == target) return value;
  }
  if (IsNumericConversion(target, source)) return CompileNumericConversion(value, target, code);
  if (IsDeclareStringConversion(target, source)) return CompileDeclareStringConversion(value, target, code);
  if (IsNilArrayConversion(target, source)) return value;
  if (IsVariant(source) || IsVariant(target)) {
    // The run-time has no variants yet: the conversions would not link.
    ReportNotYetSupported("Variant", &value->Location());
    return value;
  }
  if (target.GetMainType() == kTypeObject && IsNilConstant(value)) return value;
  if (IsImplicitUpcast(target, source) || IsInterfaceCast(target, source)) return value;
  if (IsArrayElementNarrowingCast(target, source)) return CompileArrayElementCast(value, target, code);
  if (IsOperatorConversion(target, source)) return CompileOperatorConversion(value, target, code);
  ReportMismatch(target, value);
  return value;
}
