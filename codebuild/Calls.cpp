#include "codebuild/Calls.h"

#include "codebuild/Arrays.h"
#include "codebuild/Classes.h"
#include "codebuild/Conversions.h"
#include "codebuild/Placeholders.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"

namespace {

// What a method's parameters ask of a call with `n` arguments.
struct ParameterCounts {
  int parameters = 0;
  int optional = 0;  // kParamOptional and not ParamArray
  int hidden = 0;
  bool hasParamArray = false;
  // Parameters minus arguments; negative with too many arguments.
  int missing = 0;
  // Of the missing, those that optional parameters must stand for: hidden
  // parameters take no argument, so they never count as left out.
  int missingArguments = 0;
};

// Where a method's entry stands in its table: method, interface and event
// tables alike.
TacAddr const* SlotOffset(FunctionDeclaration const* method) {
  return CurrentTLP()->GetLiteral((long)method->GetDispatchID() * (long)sizeof(RuntimeMethodEntry));
}

bool IsParamArray(ParameterDeclaration const* p) {
  return p->GetDesignator() == ParameterDeclaration::kDesignatorParamArray;
}

ParameterCounts CountParameters(FunctionDeclaration const* method, int n) {
  ParameterCounts c;
  c.parameters = (int)method->CountParameters();
  for (int i = 0; i < c.parameters; ++i) {
    ParameterDeclaration const* p = method->GetParameter(i);
    if (IsParamArray(p)) c.hasParamArray = true;
    else if (p->GetMode() == ParameterDeclaration::kParamOptional) ++c.optional;
    if (p->GetMode() == ParameterDeclaration::kParamHidden) ++c.hidden;
  }
  c.missing = c.parameters - n;
  c.missingArguments = c.missing - c.hidden;
  return c;
}

CompileErrorCode CheckArgumentCount(ParameterCounts const& c, int n) {
  if (c.hasParamArray ? c.missing - 1 > c.optional + c.hidden : c.missing > c.optional + c.hidden)
    return TooFewArguments;
  if (!c.hasParamArray && n + c.hidden > c.parameters) return TooManyArguments;
  return kNoCompileError;
}

Ref<SemBase> DefaultLiteral(ParameterDeclaration const* p) {
  return SemValue::New(CurrentTLP()->GetLiteral(p->GetDefaultValue(), p->GetType()), nullptr);
}

void CallNormal(FunctionDeclaration* method, Ref<SemBase> args, TacAddr const* dest, Ref<SemBase> code) {
  PushAllArguments(method, args, code);
  string library = method->GetSourceLibrary();
  TacAddr const* lib = library.Length() ? CurrentTLP()->GetLiteral(library) : nilTacAddr;
  code->AddLine(tac_Call, CurrentTLP()->GetLiteral(method->GetName()), lib, dest);
}

void CallHardCodedAddress(FunctionDeclaration* method, Ref<SemBase> args, TacAddr const* dest,
                          Ref<SemBase> code) {
  if (method->GetDispatchID() == 0) {
    // A host row declared without an entry: never a call to address 0.
    ReportNotYetSupported(method->GetBaseName().CString(), args ? &args->Location() : nullptr);
    return;
  }
  PushAllArguments(method, args, code);
  code->AddLine(tac_CallPtr, CurrentTLP()->GetLiteral((long)method->GetDispatchID()), nilTacAddr, dest);
}

// The object of a method call as a plain value of its own type, in front of
// the other arguments again.
Ref<SemBase> SelfFirst(Ref<SemBase> args, Ref<SemBase> code, Ref<SemBase>& self) {
  SimpleVector<Ref<SemBase>> all = ArgumentVector(args);
  if (all.size() == 0) return args;
  IRDataType type = all[0]->GetType();
  if (type.GetMainType() == kTypeReference) type = type.AsElement();
  self = CompileRefAs(all[0], type, code);
  // The rest keep their chain; the object, which may be the very first
  // element, is cut loose from it before it heads the new list, or the
  // chain would loop back on itself.
  Ref<SemBase> rest = all.size() > 1 ? all[1] : Ref<SemBase>();
  self->next = Ref<SemBase>();
  return ConcatList(self, rest);
}

void CallVtable(FunctionDeclaration* method, Ref<SemBase> args, TacAddr const* dest, Ref<SemBase> code) {
  Ref<SemBase> self;
  args = SelfFirst(args, code, self);
  if (!self) return;
  ClassDeclaration* cls = LookupClassByName(self->GetType().GetClass());
  if (cls && cls->IsInterface()) {
    // The object's class keeps one table per interface; the run-time finds
    // it by the interface's record, a pointer compare per interface.
    Ref<SemBase> record = FlattenExpression(LookupClassRecord(cls->GetName(), &self->Location()), code);
    Ref<SemBase> table = code->NewTemp(IRDataType(kTypeReference), nullptr);
    code->AddLine(tac_PutParam, self->GetAddr(), nilTacAddr, nilTacAddr);
    code->AddLine(tac_PutParam, record->GetAddr(), nilTacAddr, nilTacAddr);
    code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeLookupInterfaceVtable), nilTacAddr,
                  table->GetAddr());
    Ref<SemBase> entry = code->NewTemp(IRDataType(kTypeReference), nullptr);
    code->AddLine(tac_PeekI, table->GetAddr(), SlotOffset(method),
                  entry->GetAddr());
    // A slot that no method fills is 0: a script error, never a jump there.
    TacAddr const* filled = NewLabel();
    code->AddLine(tac_IfNEI, entry->GetAddr(), gTacZero, filled);
    code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeNilObject), nilTacAddr, nilTacAddr);
    code->AddLine(tac_Label, filled, nilTacAddr, nilTacAddr);
    PushAllArguments(method, args, code);
    code->AddLine(tac_CallPtr, entry->GetAddr(), nilTacAddr, dest);
    return;
  }
  if (!method->IsOverridden()) {
    CallNormal(method, args, dest, code);
    return;
  }
  Ref<SemBase> table = code->NewTemp(IRDataType(kTypeClassRef), nullptr);
  code->AddLine(tac_PeekI, self->GetAddr(), CurrentTLP()->GetLiteral((long)kObjectVtableOffset), table->GetAddr());
  PushAllArguments(method, args, code);
  Ref<SemBase> entry = code->NewTemp(IRDataType(kTypeReference), nullptr);
  code->AddLine(tac_PeekI, table->GetAddr(), SlotOffset(method),
                entry->GetAddr());
  code->AddLine(tac_CallPtr, entry->GetAddr(), nilTacAddr, dest);
}

void CallEvent(FunctionDeclaration* method, Ref<SemBase> args, TacAddr const* dest, Ref<SemBase> code) {
  Ref<SemBase> self;
  args = SelfFirst(args, code, self);
  if (!self) return;
  Ref<SemBase> handler = code->NewTemp(IRDataType(kTypeReference), nullptr);
  Ref<SemBase> events = code->NewTemp(IRDataType(kTypeReference), nullptr);
  code->AddLine(tac_PeekI, self->GetAddr(), CurrentTLP()->GetLiteral((long)kObjectEventTableOffset),
                events->GetAddr());
  code->AddLine(tac_PeekI, events->GetAddr(), SlotOffset(method),
                handler->GetAddr());
  TacAddr const* skip = NewLabel();
  // An unhandled event with a result gives the type's zero, not whatever
  // the result temporary held from an earlier round.
  if (dest != nilTacAddr && !dest->type.RefCounted())
    code->AddLine(tac_Store, dest->type.IsFloat() ? gTacFloatZero : gTacZero, nilTacAddr, dest);
  code->AddLine(tac_IfEQI, handler->GetAddr(), gTacZero, skip);
  PushAllArguments(method, args, code);
  code->AddLine(tac_CallPtr, handler->GetAddr(), nilTacAddr, dest);
  code->AddLine(tac_Label, skip, nilTacAddr, nilTacAddr);
}

Ref<SemBase> EmitCall(FunctionDeclaration* method, Ref<SemBase> args, bool direct) {
  Ref<SemBase> code = SemCode::New(method->GetType(), args ? &args->Location() : nullptr);
  TacAddr const* dest = method->GetType().Null() ? nilTacAddr : code->GetAddr();
  if (!method->GetType().Null()) ResetReturnTemp(dest, code);
  FunctionDeclaration::DispatchMethod kind =
      direct ? FunctionDeclaration::kDispatchNormal : method->GetDispatchMethod();
  switch (kind) {
    case FunctionDeclaration::kDispatchNormal: CallNormal(method, args, dest, code); break;
    case FunctionDeclaration::kDispatchVtable: CallVtable(method, args, dest, code); break;
    case FunctionDeclaration::kDispatchEvent: CallEvent(method, args, dest, code); break;
    case FunctionDeclaration::kDispatchHardCoded: CallHardCodedAddress(method, args, dest, code); break;
  }
  return code;
}

// Conversions a call of `method` with `args` needs; arguments past the end
// (after an error) count nothing.
int CountCallConversions(FunctionDeclaration* method, SimpleVector<Ref<SemBase>>& args) {
  int n = (int)args.size();
  ParameterCounts c = CountParameters(method, n);
  int defaults = 0;
  for (int i = 0; i < c.parameters; ++i) {
    ParameterDeclaration const* p = method->GetParameter(i);
    if (p->GetMode() == ParameterDeclaration::kParamOptional || IsParamArray(p)) ++defaults;
  }
  int cursor = 0, conversions = 0;
  for (int i = 0; i < c.parameters; ++i) {
    ParameterDeclaration const* p = method->GetParameter(i);
    if (p->GetMode() == ParameterDeclaration::kParamHidden) continue;
    bool paramArray = IsParamArray(p);
    if (p->GetMode() == ParameterDeclaration::kParamOptional || paramArray) {
      --defaults;
      if (defaults < c.missingArguments) continue;
    }
    IRDataType type = paramArray ? p->GetType().AsElement() : p->GetType();
    do {
      if (cursor >= n) break;
      int cost = 0;
      ParamAndArgAreCompatible(type, args[cursor], &cost);
      if (cost > 0) ++conversions;
      ++cursor;
    } while (paramArray && cursor < n);
  }
  return conversions;
}

}  // namespace

SimpleVector<Ref<SemBase>> ArgumentVector(Ref<SemBase> args) {
  SimpleVector<Ref<SemBase>> out;
  if (!args) return out;
  if (!args->IsList()) {
    out.push_back(args);
    return out;
  }
  for (Ref<SemBase> e = args->GetContents(); e; e = e->GetNext()) out.push_back(e);
  return out;
}

void ResetReturnTemp(TacAddr const* dest, Ref<SemBase> code) {
  if (dest && dest != nilTacAddr && dest->type.RefCounted())
    code->AddLine(tac_Unlock, dest, nilTacAddr, nilTacAddr);
}

bool ParamAndArgAreCompatible(IRDataType const& paramType, Ref<SemBase> arg, int* cost) {
  if (!arg) return false;
  if (paramType.GetMainType() == kTypeObject && arg->GetType() == IRDataType(kTypeObject) && arg->IsConstant() &&
      arg->GetValue().sint32 == 0) {
    if (cost) *cost = 0;
    return true;
  }
  return IsLegalConversion(paramType, arg->GetType(), cost);
}

CompileErrorCode IsLegalMethodVariant(FunctionDeclaration* method, Ref<SemBase> args, FunctionResultMode mode) {
  if (method->GetType().Null() && mode == kResultNeeded) return NoResultValue;
  if (!method->GetType().Null() && mode == kResultStatement) return ResultIgnored;
  SimpleVector<Ref<SemBase>> all = ArgumentVector(args);
  int n = (int)all.size();
  ParameterCounts c = CountParameters(method, n);
  CompileErrorCode count = CheckArgumentCount(c, n);
  if (count != kNoCompileError) return count;
  int cursor = 0, optional = c.optional;
  for (int i = 0; i < c.parameters; ++i) {
    ParameterDeclaration const* p = method->GetParameter(i);
    if (IsParamArray(p)) {
      IRDataType element = p->GetType().AsElement();
      for (; cursor < n; ++cursor)
        if (!ParamAndArgAreCompatible(element, all[cursor], nullptr)) return ArgumentTypeMismatch;
      continue;
    }
    if (p->GetMode() == ParameterDeclaration::kParamHidden) continue;
    if (p->GetMode() == ParameterDeclaration::kParamOptional && !c.hasParamArray) {
      --optional;
      if (optional < c.missingArguments) continue;
    }
    if (cursor >= n) return TooFewArguments;
    if (!ParamAndArgAreCompatible(p->GetType(), all[cursor++], nullptr)) return ArgumentTypeMismatch;
  }
  return kNoCompileError;
}

int CompareMethodVariants(FunctionDeclaration* a, FunctionDeclaration* b, Ref<SemBase> args) {
  if (a == b) return -1;
  SimpleVector<Ref<SemBase>> all = ArgumentVector(args);
  int ca = CountCallConversions(a, all), cb = CountCallConversions(b, all);
  if (ca == 0 && cb > 0) return -1;
  if (ca > 0 && cb == 0) return 1;
  return 0;
}

FunctionDeclaration* SelectAppropriateVariant(Ref<SimpleVector<FunctionDeclaration*>> candidates,
                                              Ref<SemBase> args, FunctionResultMode mode, CompileErrorCode* err) {
  if (!candidates) return nullptr;
  SimpleVector<FunctionDeclaration*> legal;
  for (unsigned long i = 0; i < candidates->size(); ++i) {
    FunctionDeclaration* candidate = (*candidates.Get())[i];
    CompileErrorCode e = IsLegalMethodVariant(candidate, args, mode);
    if (e == kNoCompileError) {
      legal.push_back(candidate);
    } else if (err) {
      bool useWord = *err == NoResultValue || *err == ResultIgnored;
      if (*err == kNoCompileError || *err == UnknownName) *err = e;
      else if (useWord && e != NoResultValue && e != ResultIgnored) *err = e;
    }
  }
  while (legal.size() >= 2) {
    int order = CompareMethodVariants(legal[0], legal[1], args);
    if (order < 0) {
      legal.deleteIdx(1);
    } else if (order > 0) {
      legal.deleteIdx(0);
    } else if (err) {
      *err = AmbiguousCall;
      return nullptr;
    } else {
      Error(AmbiguousCall, args ? args->Location() : SourceLocation(CurrentSourceLine()));
      break;
    }
  }
  return legal.size() ? legal[legal.size() - 1] : nullptr;
}

Ref<SemBase> PushOneArgument(IRDataType const& paramType, Ref<SemBase> value, Ref<SemBase> code) {
  if (!value) return value;
  if (paramType.GetMainType() != kTypeReference) return CompileRefAs(value, paramType, code);
  if (!value->IsSymbol()) {
    Error(ByRefNeedsVariable, value->Location());
    return value;
  }
  if (value->GetType() == paramType) return value;
  // The exact type: a Bar variable is no ByRef Foo even though both are objects.
  if (value->GetType() == paramType.AsElement()) {
    Ref<SemBase> r = code->NewTemp(paramType, nullptr);
    code->AddLine(tac_Varptr, value->GetAddr(), nilTacAddr, r->GetAddr());
    return r;
  }
  SimpleVector<string> words;
  words.push_back(value->GetType().ToString());
  words.push_back(paramType.ToString());
  Error(TypeMismatch, value->Location(), words);
  return value;
}

void PushAllArguments(FunctionDeclaration* method, Ref<SemBase> args, Ref<SemBase> code) {
  SimpleVector<Ref<SemBase>> all = ArgumentVector(args);
  int n = (int)all.size();
  ParameterCounts c = CountParameters(method, n);
  CompileErrorCode count = CheckArgumentCount(c, n);
  if (count == TooFewArguments) Error(TooFewArguments);
  if (count == TooManyArguments) Error(TooManyArguments, args ? args->Location() : SourceLocation(CurrentSourceLine()));
  SimpleVector<Ref<SemBase>> values;
  int cursor = 0, optional = c.optional;
  for (int i = 0; i < c.parameters; ++i) {
    ParameterDeclaration const* p = method->GetParameter(i);
    Ref<SemBase> value;
    if (IsParamArray(p)) {
      Ref<SemBase> rest;
      for (; cursor < n; ++cursor) rest = ConcatList(rest, all[cursor]->Clone());
      Ref<SemBase> array = CompileArrayFactory(rest, p->GetType().AsElement());
      value = PushOneArgument(p->GetType(), array, code);
    } else if (p->GetMode() == ParameterDeclaration::kParamHidden) {
      value = DefaultLiteral(p);
    } else if (p->GetMode() == ParameterDeclaration::kParamOptional && !c.hasParamArray &&
               --optional < c.missingArguments) {
      value = DefaultLiteral(p);
    } else if (cursor < n) {
      value = PushOneArgument(p->GetType(), all[cursor++], code);
    } else {
      value = SemValue::New(gTacZero, nullptr);
    }
    values.push_back(value);
  }
  for (unsigned long i = 0; i < values.size(); ++i)
    if (values[i]) code->AddLine(tac_PutParam, values[i]->GetAddr(), nilTacAddr, nilTacAddr);
}

Ref<SemBase> CompileCall(FunctionDeclaration* method, Ref<SemBase> args) {
  if (!method) return SemCode::New(IRDataType(), nullptr);
  return EmitCall(method, args, false);
}

Ref<SemBase> CompileStaticCall(FunctionDeclaration* method, Ref<SemBase> args) {
  if (!method) return SemCode::New(IRDataType(), nullptr);
  return EmitCall(method, args, true);
}
