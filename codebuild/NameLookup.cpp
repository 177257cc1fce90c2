#include "codebuild/NameLookup.h"

#include "codebuild/Arrays.h"
#include "codebuild/Assignments.h"
#include "codebuild/Calls.h"
#include "codebuild/Classes.h"
#include "codebuild/Conversions.h"
#include "codebuild/Exceptions.h"
#include "codebuild/Expressions.h"
#include "codebuild/ObjectExpressions.h"
#include "codebuild/Placeholders.h"
#include "frontend/SrcContext.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"

// A name, with its subscripts or arguments and, on the left of an
// assignment, the value, goes to one routine that decides what it is and
// builds its use. The scopes are tried in a fixed order (the method's own,
// the class's, the module's, then class and module names); a scope whose
// attempt fails leaves its reason in `err` and the next is tried, and only
// the last step reports.
//
// Lists chain their elements through the elements themselves, so an
// attempt that joins `args` into a list of its own would spoil them for the
// next scope: every attempt that extends the arguments works on a clone.

namespace {

using MethodList = Ref<SimpleVector<FunctionDeclaration*>>;

constexpr int kMaxAncestorWalk = 4096;

bool HasMethods(MethodList const& list) { return list && list->size() > 0; }

MethodFilter Filter(Ref<SemBase> const& value) { return value ? kFilterAssigns : kFilterPlain; }

// The extension methods of that name that read, or, for an assignment,
// assign; none while no module is current.
MethodList Extensions(string const& text, Ref<SemBase> const& value) {
  ModuleDeclaration* module = gContext->CurrentModule();
  return module ? module->LookupMethodsByBase(text, value ? kFilterExtendsAssigns : kFilterExtends) : MethodList();
}

Ref<SemBase> CloneOf(Ref<SemBase> const& args) { return args ? args->Clone() : args; }

// The arguments of a call that assigns: the subscripts, then the value.
Ref<SemBase> AssignedArguments(Ref<SemBase> const& args, Ref<SemBase> const& value) {
  return ConcatList(CloneOf(args), value);
}

// `first` in front of the assigned arguments: the object of a method call.
Ref<SemBase> WithFirst(Ref<SemBase> first, Ref<SemBase> const& rest) {
  return ConcatList(first, rest);
}

// Keeps the better reason: a selection's or an access routine's reason
// replaces only the default and UnknownName.
void Keep(CompileErrorCode& err, CompileErrorCode reason) {
  if (reason == kNoCompileError) return;
  if (err == kNoCompileError || err == UnknownName) err = reason;
}

// What a failed lookup leaves, of the kind the grammar wants: an Integer
// temporary for an expression, so that an operator or an assignment around
// it reports no second error, and no value for a statement.
Ref<SemBase> Failed(FunctionResultMode mode) {
  return mode == kResultNeeded ? SemCode::New(IRDataType(kTypeInteger), nullptr) : SemCode::New(IRDataType(), nullptr);
}

Ref<SemBase> ReportFailure(CompileErrorCode err, Ref<SemBase> const& name, FunctionResultMode mode) {
  if (err != kNoCompileError) Error(err, name ? name->Location() : SourceLocation(CurrentSourceLine()));
  return Failed(mode);
}

// As above for a call, except that an argument that is itself a failure's
// placeholder has no type worth a mismatch: `Print Nope` reports Nope alone.
Ref<SemBase> ReportCallFailure(CompileErrorCode err, Ref<SemBase> const& name, FunctionResultMode mode,
                               Ref<SemBase> const& args, Ref<SemBase> const& value) {
  if (err == ArgumentTypeMismatch || err == AmbiguousCall) {
    SimpleVector<Ref<SemBase>> all = ArgumentVector(args);
    all.push_back(value);
    for (unsigned long i = 0; i < all.size(); ++i)
      if (IsReportedFailure(all[i])) return Failed(mode);
  }
  return ReportFailure(err, name, mode);
}

Ref<SemBase> NullCode() { return SemCode::New(IRDataType(), nullptr); }

bool SubscriptNonArray(Ref<SemBase> const& args, IRDataType const& type) {
  if (!args) return false;
  IRDataType t = type.GetMainType() == kTypeReference ? type.AsElement() : type;
  return t.GetMainType() != kTypeArray;
}

// Selection, then the call; `err` keeps the reason when nothing fits.
Ref<SemBase> SelectAndCall(MethodList const& list, Ref<SemBase> const& args, FunctionResultMode mode,
                           CompileErrorCode& err) {
  CompileErrorCode reason = kNoCompileError;
  FunctionDeclaration* chosen = SelectAppropriateVariant(list, args, mode, &reason);
  if (!chosen) {
    Keep(err, reason);
    return Ref<SemBase>();
  }
  return CompileCall(chosen, args);
}

// Selection among an owner's methods, then the call if the chosen one may be
// reached from here: a class's by its permission rules, a module's unless
// it is private. `direct` calls an ancestor's own version.
Ref<SemBase> CallPermitted(MethodList const& list, Ref<SemBase> const& callArgs, FunctionResultMode mode,
                           ClassDeclaration* owner, bool direct, CompileErrorCode& err) {
  CompileErrorCode reason = kNoCompileError;
  FunctionDeclaration* chosen = SelectAppropriateVariant(list, callArgs, mode, &reason);
  if (!chosen) {
    Keep(err, reason);
    return Ref<SemBase>();
  }
  bool permitted = owner ? CurrentlyHasPermissionToAccess(owner, chosen->GetScope())
                         : chosen->GetScope() != ScopedDeclaration::kScopePrivate;
  if (!permitted) {
    Keep(err, InaccessibleMethod);
    return Ref<SemBase>();
  }
  return direct ? CompileStaticCall(chosen, callArgs) : CompileCall(chosen, callArgs);
}

// A variable reached by `target` (a plain symbol value, or a reference to
// a field); with `args` it is an array and they pick its element.
Ref<SemBase> AccessStorage(Ref<SemBase> target, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                           CompileErrorCode& err) {
  if (SubscriptNonArray(args, target->GetType())) {
    Keep(err, NotAnArray);
    return Ref<SemBase>();
  }
  if (value) {
    Ref<SemBase> code = NullCode();
    if (IsReportedFailure(value)) return code;
    if (args) {
      SetArrayElementValue(target, args, value, code);
      return code;
    }
    AssignToSymbol(target->GetAddr(), value, code);
    return code;
  }
  if (mode == kResultStatement) {
    Keep(err, NotAStatement);
    return Ref<SemBase>();
  }
  if (args) return GetArrayElement(target, args);
  return target;
}

Ref<SemBase> AccessConstant(Ref<SemBase> name, ConstantDeclaration* constant, Ref<SemBase> args, Ref<SemBase> value,
                            FunctionResultMode mode, CompileErrorCode& err) {
  if (value) {
    Keep(err, ReadOnlyMember);
    return Ref<SemBase>();
  }
  if (args) {
    Keep(err, TooManyArguments);
    return Ref<SemBase>();
  }
  if (mode == kResultStatement) {
    Keep(err, NotAStatement);
    return Ref<SemBase>();
  }
  return SemValue::New(CurrentTLP()->GetLiteral(constant->GetValue(), constant->GetType()), &name->Location());
}

// A constant reached through `left.`: its use where the scope allows it,
// else InaccessibleMember.
Ref<SemBase> AccessPermittedConstant(bool permitted, Ref<SemBase> name, ConstantDeclaration* constant,
                                     Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                                     CompileErrorCode& err) {
  if (!permitted) {
    err = InaccessibleMember;
    return Ref<SemBase>();
  }
  return AccessConstant(name, constant, args, value, mode, err);
}

// A property with storage at `addr`. An assignment inside an expression is
// refused with `inExpression`, which differs between a module's property
// and one of the current class.
Ref<SemBase> AccessStoredProperty(PropertyDeclaration* property, TacAddr const* addr, SourceLocation const& loc,
                                  Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                                  CompileErrorCode& err, CompileErrorCode inExpression) {
  if (value && mode == kResultNeeded) {
    Keep(err, inExpression);
    return Ref<SemBase>();
  }
  if (property->isComputed) {
    ReportNotYetSupported("computed property", &loc);
    return Failed(mode);
  }
  return AccessStorage(SemValue::New(addr, &loc), args, value, mode, err);
}

Ref<SemBase> AccessModuleProperty(PropertyDeclaration* property, SourceLocation const& loc, Ref<SemBase> args,
                                  Ref<SemBase> value, FunctionResultMode mode, CompileErrorCode& err) {
  TacAddr const* addr = gContext->GetStaticSymbolAddr(property->GetType(), property->GetLinkName());
  return AccessStoredProperty(property, addr, loc, args, value, mode, err, NotAStatement);
}

// A field of the class being compiled, through `self`.
Ref<SemBase> AccessSelfProperty(PropertyDeclaration* property, SourceLocation const& loc, Ref<SemBase> args,
                                Ref<SemBase> value, FunctionResultMode mode, CompileErrorCode& err) {
  TacAddr const* addr =
      gContext->GetObjectSymbolAddr(property->GetType(), property->GetLinkName(), (unsigned)property->GetOffset());
  return AccessStoredProperty(property, addr, loc, args, value, mode, err, TypeMismatch);
}

// Another object's field, through the address of its storage. The object
// has passed its nil check.
Ref<SemBase> AccessInstanceProperty(Ref<SemBase> object, PropertyDeclaration* property, Ref<SemBase> args,
                                    Ref<SemBase> value, FunctionResultMode mode, CompileErrorCode& err) {
  if (property->isComputed) {
    ReportNotYetSupported("computed property", &object->Location());
    return Failed(mode);
  }
  if (value && mode == kResultNeeded) {
    Keep(err, TypeMismatch);
    return Ref<SemBase>();
  }
  if (SubscriptNonArray(args, property->GetType())) {
    Keep(err, NotAnArray);
    return Ref<SemBase>();
  }
  Ref<SemBase> target = CreatePropertyStorageReference(object, property);
  if (!value) {
    if (mode == kResultStatement) {
      Keep(err, NotAStatement);
      return Ref<SemBase>();
    }
    return args ? GetArrayElement(target, args) : target;
  }
  Ref<SemBase> code = NullCode();
  if (IsReportedFailure(value)) return code;
  if (args) {
    SetArrayElementValue(target, args, value, code);
    return code;
  }
  Ref<SemBase> address = FlattenExpression(target, code);
  AssignToSymbol(address->GetAddr(), value, code);
  return code;
}

bool IsAncestorOf(ClassDeclaration* candidate, ClassDeclaration* cls) {
  int steps = 0;
  for (ClassDeclaration* c = cls ? cls->GetParent() : nullptr; c && steps < kMaxAncestorWalk;
       c = c->GetParent(), ++steps)
    if (c == candidate) return true;
  return false;
}

Ref<SemBase> InstanceScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                 FunctionResultMode mode) {
  CompileErrorCode err = UnknownName;
  string text = name->toString();
  IRDataType type = left->GetType();
  if (type.GetMainType() == kTypeReference) type = type.AsElement();
  ClassDeclaration* cls = LookupClassByName(type.GetClass());
  left = CheckForNilObject(left);
  if (cls) {
    MethodList methods = cls->LookupMethodsByBase(text, Filter(value));
    if (HasMethods(methods)) {
      Ref<SemBase> callArgs = WithFirst(left->Clone(), AssignedArguments(args, value));
      if (Ref<SemBase> r = CallPermitted(methods, callArgs, mode, cls, false, err)) return r;
    }
    if (PropertyDeclaration* property = cls->LookupProperty(text)) {
      if (CurrentlyHasPermissionToAccess(cls, property->GetScope()))
        return AccessInstanceProperty(left, property, args, value, mode, err);
      err = InaccessibleMember;
    }
    if (ConstantDeclaration* constant = cls->LookupConstant(text)) {
      bool permitted = CurrentlyHasPermissionToAccess(cls, constant->GetScope());
      if (Ref<SemBase> r = AccessPermittedConstant(permitted, name, constant, args, value, mode, err)) return r;
    }
    MethodList lookup = cls->LookupMethodsByBase(string("Operator_Lookup"), Filter(value));
    if (HasMethods(lookup)) {
      Ref<SemBase> member = SemValue::New(CurrentTLP()->GetLiteral(text), &name->Location());
      Ref<SemBase> callArgs = WithFirst(left->Clone(), WithFirst(member, AssignedArguments(args, value)));
      if (Ref<SemBase> r = CallPermitted(lookup, callArgs, mode, cls, false, err)) return r;
    }
  }
  MethodList extensions = Extensions(text, value);
  if (HasMethods(extensions)) {
    Ref<SemBase> callArgs = WithFirst(left->Clone(), AssignedArguments(args, value));
    if (Ref<SemBase> r = SelectAndCall(extensions, callArgs, mode, err)) return r;
  }
  return ReportCallFailure(err, name, mode, args, value);
}

// `M.x` names a member of M itself: the module's plain lookups climb to the
// enclosing modules as well, which would let `M.x` reach a global, and make
// `M.f` tie with a global f of the same parameters.
Ref<SemBase> ModuleScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                               FunctionResultMode mode) {
  CompileErrorCode err = UnknownName;
  string text = name->toString();
  ModuleDeclaration* module = gContext->rootModule ? gContext->rootModule->LookupModule(left->toString()) : nullptr;
  if (!module) return ReportFailure(err, name, mode);
  MethodList methods = module->LookupOwnMethodsByBase(text, Filter(value));
  if (HasMethods(methods)) {
    if (Ref<SemBase> r = CallPermitted(methods, AssignedArguments(args, value), mode, nullptr, false, err)) return r;
  }
  if (PropertyDeclaration* property = module->LookupOwnProperty(text)) {
    if (property->GetScope() != ScopedDeclaration::kScopePrivate) {
      CompileErrorCode reason = kNoCompileError;
      if (Ref<SemBase> r = AccessModuleProperty(property, name->Location(), args, value, mode, reason)) return r;
      Keep(err, reason);
    } else {
      err = InaccessibleMember;
    }
  }
  if (ConstantDeclaration* constant = module->LookupOwnConstant(text)) {
    bool permitted = constant->GetScope() != ScopedDeclaration::kScopePrivate;
    if (Ref<SemBase> r = AccessPermittedConstant(permitted, name, constant, args, value, mode, err)) return r;
  }
  return ReportCallFailure(err, name, mode, args, value);
}

Ref<SemBase> StaticClassScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                    FunctionResultMode mode) {
  CompileErrorCode err = UnknownName;
  string text = name->toString();
  ClassDeclaration* cls = LookupClassByName(left->toString());
  ClassDeclaration* ancestor = gContext->inClass && IsAncestorOf(cls, gContext->currentClass) ? cls : nullptr;
  if (ancestor) {
    MethodList methods = ancestor->LookupMethodsByBase(text, Filter(value));
    Ref<SemBase> self = FindLocalSymbol(SemIdentifier::New(string("self"), name->Location()));
    if (HasMethods(methods) && self) {
      Ref<SemBase> callArgs = WithFirst(self, AssignedArguments(args, value));
      if (Ref<SemBase> r = CallPermitted(methods, callArgs, mode, ancestor, true, err)) return r;
    }
  }
  if (ConstantDeclaration* constant = cls ? cls->LookupConstant(text) : nullptr) {
    bool permitted = CurrentlyHasPermissionToAccess(cls, constant->GetScope());
    if (Ref<SemBase> r = AccessPermittedConstant(permitted, name, constant, args, value, mode, err)) return r;
  }
  return ReportCallFailure(err, name, mode, args, value);
}

// An array's own methods come before the extension methods. Colour methods
// come with their own step; until then such a name falls through to the
// extension methods. An assignment looks for an extension that also
// assigns, as on an object: one that only extends would take the value and
// drop it.
Ref<SemBase> IntrinsicScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                  FunctionResultMode mode) {
  CompileErrorCode err = UnknownName;
  string text = name->toString();
  IRDataType type = left->GetType();
  if (type.GetMainType() == kTypeReference) type = type.AsElement();
  if (type.GetMainType() == kTypeArray && IsPotentialArrayMethodName(text)) {
    if (type.GetDimensions() != 1 && !ArrayMethodTakesAnyDimensions(text)) {
      err = ArrayMethodNeedsOneDimension;
    } else if (!value) {
      if (mode == kResultNeeded && !ArrayMethodGivesValue(text)) return ReportFailure(NoResultValue, name, mode);
      return HandleArrayMethodCall(left, name, args);
    }
  }
  MethodList extensions = Extensions(text, value);
  if (HasMethods(extensions)) {
    Ref<SemBase> callArgs = WithFirst(left->Clone(), AssignedArguments(args, value));
    if (Ref<SemBase> r = SelectAndCall(extensions, callArgs, mode, err)) return r;
  }
  return ReportCallFailure(err, name, mode, args, value);
}

// Steps 1 to 3 of a bare name; null if no scope took it.
Ref<SemBase> LookupInScopes(Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                            CompileErrorCode& err, bool& isAccess) {
  string text = name->toString();
  isAccess = true;
  if (FunctionDeclaration* function = gContext->currentFunction) {
    if (Ref<SemBase> local = FindLocalSymbol(name)) {
      if (Ref<SemBase> r = AccessStorage(local, args, value, mode, err)) return r;
    }
    if (ConstantDeclaration* constant = function->LookupConstant(text)) {
      if (Ref<SemBase> r = AccessConstant(name, constant, args, value, mode, err)) return r;
    }
    MethodList methods = function->LookupMethodsByBase(text, Filter(value));
    if (HasMethods(methods)) {
      isAccess = false;
      CompileErrorCode reason = kNoCompileError;
      FunctionDeclaration* chosen = SelectAppropriateVariant(methods, args, mode, &reason);
      if (chosen) return CompileCall(chosen, args);
      Keep(err, reason ? reason : ArgumentTypeMismatch);
      isAccess = true;
    }
  }
  if (!gContext->currentFunction) {
    if (Ref<SemBase> caught = FindCatchVariable(text)) {
      if (Ref<SemBase> r = AccessStorage(caught, args, value, mode, err)) return r;
    }
  }
  if (gContext->inClass && gContext->currentClass) {
    ClassDeclaration* cls = gContext->currentClass;
    if (PropertyDeclaration* property = cls->LookupProperty(text)) {
      if (Ref<SemBase> r = AccessSelfProperty(property, name->Location(), args, value, mode, err)) return r;
    }
    if (ConstantDeclaration* constant = cls->LookupConstant(text)) {
      if (Ref<SemBase> r = AccessConstant(name, constant, args, value, mode, err)) return r;
    }
    MethodList methods = cls->LookupMethodsByBase(text, Filter(value));
    if (!value) {
      if (FunctionDeclaration* event = cls->LookupEvent(text)) {
        if (!methods) methods.BindNewObject(new SimpleVector<FunctionDeclaration*>());
        methods->push_back(event);
      }
    }
    if (HasMethods(methods)) {
      Ref<SemBase> callArgs = WithFirst(CompileSelf(), AssignedArguments(args, value));
      isAccess = false;
      if (Ref<SemBase> r = SelectAndCall(methods, callArgs, mode, err)) return r;
      isAccess = true;
    }
  }
  ModuleDeclaration* module = gContext->CurrentModule();
  if (!module) return Ref<SemBase>();
  if (PropertyDeclaration* property = module->LookupProperty(text)) {
    if (Ref<SemBase> r = AccessModuleProperty(property, name->Location(), args, value, mode, err)) return r;
  }
  if (ConstantDeclaration* constant = module->LookupConstant(text)) {
    if (Ref<SemBase> r = AccessConstant(name, constant, args, value, mode, err)) return r;
  }
  MethodList methods = module->LookupMethodsByBase(text, Filter(value));
  if (HasMethods(methods)) {
    isAccess = false;
    if (Ref<SemBase> r = SelectAndCall(methods, AssignedArguments(args, value), mode, err)) return r;
  }
  return Ref<SemBase>();
}

Ref<SemBase> Lookup(Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                    CompileErrorCode err, bool isCall) {
  if (!name || !gContext) return Failed(mode);
  bool isAccess = false;
  if (Ref<SemBase> found = LookupInScopes(name, args, value, mode, err, isAccess)) {
    // `Call x` names a variable, property or constant: it is no call.
    if (isCall && isAccess) return ReportFailure(NotAStatement, name, mode);
    return found;
  }
  if (value) {
    // A function that only reads, such as a host property without a
    // setter: the name is known, it just cannot be assigned.
    ModuleDeclaration* module = gContext->CurrentModule();
    MethodList readers = module ? module->LookupMethodsByBase(name->toString(), kFilterPlain) : MethodList();
    for (unsigned long i = 0; err == UnknownName && readers && i < readers->size(); ++i)
      if (!(*readers.Get())[i]->GetType().Null()) err = ReadOnlyMember;
    return ReportCallFailure(err, name, mode, args, value);
  }
  string text = name->toString();
  ModuleDeclaration* module = gContext->CurrentModule();
  if (module && module->LookupClass(text)) {
    if (mode == kResultStatement) return ReportFailure(ResultIgnored, name, mode);
    if (args) return CompileTypecast(module->LookupClass(text), args, name->Location());
    if (isCall) return ReportFailure(CallNeedsMethod, name, mode);
    return name;
  }
  if (gContext->rootModule && gContext->rootModule->LookupModule(text)) {
    if (args) return ReportFailure(TooManyArguments, name, mode);
    if (mode == kResultStatement) return ReportFailure(ResultIgnored, name, mode);
    if (isCall) return ReportFailure(CallNeedsMethod, name, mode);
    return name;
  }
  // A method that was found but could not take the call keeps its reason.
  if (isCall && (err == kNoCompileError || err == UnknownName)) err = CallNeedsMethod;
  return ReportCallFailure(err, name, mode, args, value);
}

}  // namespace

Ref<SemBase> CompileLookup(Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                           CompileErrorCode defaultError, bool isCallStatement) {
  Ref<SemBase> result = Lookup(name, args, value, mode, defaultError, isCallStatement);
  return TraceRoutine("CompileLookup", result, {name, args, value}, {mode, defaultError});
}

Ref<SemBase> CompileScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                FunctionResultMode mode) {
  Ref<SemBase> result;
  if (!left || !name || !gContext || IsReportedFailure(left)) {
    result = Failed(mode);
  } else if (left->IsIdentifier()) {
    string text = left->toString();
    if (LookupClassByName(text))
      result = StaticClassScopeLookup(left, name, args, value, mode);
    else if (gContext->rootModule && gContext->rootModule->LookupModule(text))
      result = ModuleScopeLookup(left, name, args, value, mode);
    else
      result = ReportFailure(UnknownName, left, mode);
  } else {
    IRDataType type = left->GetType();
    if (type.GetMainType() == kTypeReference) type = type.AsElement();
    result = type.GetMainType() == kTypeObject ? InstanceScopeLookup(left, name, args, value, mode)
                                                : IntrinsicScopeLookup(left, name, args, value, mode);
  }
  // Only `Call` asks for kResultCall here: a property or a constant that it
  // reached is a value, no call.
  if (mode == kResultCall && result && (result->IsSymbol() || result->IsConstant()))
    result = ReportFailure(NotAStatement, name, mode);
  return TraceRoutine("CompileScopeLookup", result, {left, name, args, value}, {mode});
}
