#include "codebuild/Functions.h"

#include "codebuild/Assignments.h"
#include "codebuild/Calls.h"
#include "codebuild/Conversions.h"
#include "codebuild/Declarations.h"
#include "codebuild/Exceptions.h"
#include "codebuild/NameLookup.h"
#include "codebuild/Placeholders.h"
#include "codebuild/Statements.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "ir/LabelUtilities.h"
#include "runtime/RuntimeObjectFoundation.h"
#include "semantic/DeclarationTable.h"
#include "semantic/NameMangler.h"
#include "semantic/SymbolTable.h"
#include "semantic/SymbolUtilities.h"

Ref<SemBase> OpenMethodScope() {
  unsigned long index = NewSymTable(LocalStorage, string(""));
  Ref<SemBase> table = SemValue::New(CurrentTLP()->GetLiteral((long)index), nullptr);
  AddSelfParameter();
  return table;
}

void AddSelfParameter() {
  TraceRoutine("AddSelfParameter", Ref<SemBase>(), {});
  if (!gContext || !gContext->inClass || !gContext->currentClass) return;
  Ref<SemBase> self = SemIdentifier::New(string("self"));
  self->SetType(IRDataType(gContext->currentClass->GetName()));
  AddSymbol(self);
}

namespace {

// The words of the modifiers, in the grammar's spelling and the one the
// errors carry.
struct Modifier {
  char const* grammar;
  char const* word;
};
constexpr Modifier kModifiers[] = {{"BYREF", "ByRef"},         {"BYVAL", "ByVal"},
                                   {"ASSIGNS", "Assigns"},     {"EXTENDS", "Extends"},
                                   {"PARAMARRAY", "ParamArray"}, {"OPTIONAL", "Optional"}};
enum { kByRef, kByVal, kAssigns, kExtends, kParamArray, kOptional, kModifierCount };

int ModifierIndex(Ref<SemBase> const& e) {
  if (!e || !e->IsIdentifier()) return -1;
  string text = e->toString();
  for (int i = 0; i < kModifierCount; ++i)
    if (text == kModifiers[i].grammar) return i;
  return -1;
}

// Elements of a list, or the one value.
template <class F>
void ForEachElement(Ref<SemBase> const& list, F f) {
  if (!list) return;
  if (!list->IsList()) {
    f(list);
    return;
  }
  for (Ref<SemBase> e = list->GetContents(); e; e = e->GetNext()) f(e);
}

void ValidateParameterModifiers(Ref<SemBase> modifiers, Ref<SemBase> defaultValue) {
  Ref<SemBase> seen[kModifierCount];
  ForEachElement(modifiers, [&](Ref<SemBase> const& e) {
    int i = ModifierIndex(e);
    if (i < 0) return;
    if (seen[i]) {
      SimpleVector<string> words;
      words.push_back(string(kModifiers[i].word));
      Error(RepeatedModifier, seen[i]->Location(), words);
      return;
    }
    seen[i] = e;
  });
  bool optional = seen[kOptional] || defaultValue;
  SourceLocation optionalAt = defaultValue ? defaultValue->Location()
                              : seen[kOptional] ? seen[kOptional]->Location()
                                                : SourceLocation(CurrentSourceLine());
  if (optional) {
    if (seen[kByRef]) Error(OptionalByRef, optionalAt);
    if (seen[kParamArray]) Error(OptionalParamArray, optionalAt);
    if (seen[kAssigns]) Error(OptionalAssigns, optionalAt);
    if (seen[kExtends]) Error(OptionalExtends, optionalAt);
  }
  static constexpr int kConflicts[][2] = {{kByRef, kParamArray}, {kByRef, kAssigns},   {kByRef, kByVal},
                                          {kAssigns, kParamArray}, {kAssigns, kExtends}, {kExtends, kParamArray}};
  for (auto const& pair : kConflicts) {
    Ref<SemBase> a = seen[pair[0]], b = seen[pair[1]];
    if (!a || !b) continue;
    SimpleVector<string> words;
    words.push_back(string(kModifiers[pair[0]].word));
    words.push_back(string(kModifiers[pair[1]].word));
    Error(ConflictingModifiers, a->Location() + b->Location(), words);
  }
}

bool IsParameterSymbol(Ref<SemBase> const& e) {
  return e && e->IsIdentifier() && ModifierIndex(e) < 0;
}

Ref<SemBase> CompileFunctionProlog(Ref<SemBase> table, Ref<SemBase> parameters) {
  Ref<SemBase> code = SemCode::New(IRDataType(), nullptr);
  if (table) code->AddLine(tac_Symbols, table->GetAddr(), nilTacAddr, nilTacAddr);
  bool assigns = false, paramArray = false, designated = false, listed = false;
  SimpleVector<Ref<SemBase>> values;
  ForEachElement(parameters, [&](Ref<SemBase> const& e) {
    int m = ModifierIndex(e);
    if (m == kAssigns) {
      if (assigns) Error(SecondAssigns, e->Location());
      assigns = designated = true;
    } else if (m == kExtends) {
      if (listed) Error(ExtendsNotFirst, e->Location());
    } else if (m == kParamArray) {
      if (assigns) Error(ParameterAfterAssigns, e->Location());
      if (paramArray) Error(SecondParamArray, e->Location());
      paramArray = designated = true;
    } else if (IsParameterSymbol(e)) {
      if (designated) {
        designated = false;
      } else if (paramArray) {
        Error(ParameterAfterParamArray, e->Location());
      } else if (assigns) {
        Error(ParameterAfterAssigns, e->Location());
      }
      Ref<SemBase> symbol = FindLocalSymbol(e);
      if (symbol) {
        ProhibitSymbolInitialization(e);
        values.push_back(symbol);
      }
      listed = true;
    }
  });
  // Fetched in the reverse order of their PutParams.
  for (unsigned long i = values.size(); i-- > 0;)
    code->AddLine(tac_GetParam, nilTacAddr, nilTacAddr, values[i]->GetAddr());
  InitializeSymbols(table, code);
  // The callee holds its own reference to each string, object and array.
  for (unsigned long i = 0; i < values.size(); ++i)
    if (values[i]->GetType().RefCounted()) code->AddLine(tac_Lock, values[i]->GetAddr(), nilTacAddr, nilTacAddr);
  if (gContext->options.stackOverflowChecking)
    code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeCheckStack), nilTacAddr, nilTacAddr);
  if (gContext->options.autoWaitCursorDisabled)
    code->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicDisableAutoWaitCursor), nilTacAddr, nilTacAddr);
  return code;
}

// The method the miner declared under the mangled name `mangled`, found
// among the overloads of its base name: a search of every method of a
// module for each method compiled would make compile time grow with the
// square of the program.
FunctionDeclaration* FindDeclared(FunctionDeclarationListOwner const* owner, string const& base,
                                  string const& mangled) {
  Ref<SimpleVector<FunctionDeclaration*>> overloads =
      owner ? owner->LookupMethodsByBase(base, kFilterAll) : Ref<SimpleVector<FunctionDeclaration*>>();
  for (unsigned long i = 0; overloads && i < overloads->size(); ++i)
    if ((*overloads.Get())[i]->GetName() == mangled) return (*overloads.Get())[i];
  return nullptr;
}

// Every module from the innermost open one out to the root, whose own name
// qualifies nothing.
string QualifyByModules(string text) {
  if (!gContext->inModule) return text;
  for (ModuleDeclaration* m = gContext->currentModule; m && m != gContext->rootModule; m = m->GetParent())
    text = QualifyName(m->GetName(), text);
  return text;
}

}  // namespace

Ref<SemBase> CompileParameter(Ref<SemBase> modifiers, Ref<SemBase> name, Ref<SemBase> type,
                              Ref<SemBase> defaultValue) {
  if (!name) return modifiers;
  IRDataType declared = type ? type->GetType() : IRDataType();
  ValidateParameterModifiers(modifiers, defaultValue);
  // The method is found again by its mangled name, so a parameter must read
  // as the miner read it, whatever errors its modifiers gave: the last of
  // ByRef and ByVal counts, and the last designator.
  bool byRef = false;
  Ref<SemBase> designator;
  SimpleVector<Ref<SemBase>> kept;
  ForEachElement(modifiers, [&](Ref<SemBase> const& e) {
    int m = ModifierIndex(e);
    if (m == kByRef || m == kByVal) byRef = m == kByRef;
    if (m == kAssigns || m == kExtends || m == kParamArray) designator = e;
    else kept.push_back(e);
  });
  IRDataType modified = declared;
  bool arrayOfArray = ModifierIndex(designator) == kParamArray && declared.GetMainType() == kTypeArray;
  if (ModifierIndex(designator) == kParamArray) {
    // Basic types are shared values whose location is their first use's:
    // the parameter's name tells the line.
    if (arrayOfArray) Error(ParamArrayOfArray, name->Location());
    modified = (declared.GetMainType() == kTypeArray ? declared.AsElement() : declared).AsArray(1);
  }
  if (byRef) modified = modified.AsReference();
  if (defaultValue && !ParamAndArgAreCompatible(declared, defaultValue, nullptr))
    Error(NotAssignable, defaultValue->Location());
  name->SetType(modified);
  AddDeclaredName(name);
  // A parameter already refused needs no second word on its type.
  if (!arrayOfArray) RefusePendingType(modified, name->Location());
  // The run names each modifier once, and one designator: the mangled name
  // takes a designator for each one it meets.
  Ref<SemBase> run;
  if (designator) kept.push_back(designator);
  for (unsigned long i = 0; i < kept.size(); ++i) {
    kept[i]->next = Ref<SemBase>();
    run = ConcatList(run, kept[i]);
  }
  return TraceRoutine("CompileParameter", ConcatList(run, name), {modifiers, name, type, defaultValue});
}

Ref<SemBase> CompileMeParam() { return SemIdentifier::New(string("me")); }

void CompileFunction(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> returnType,
                     Ref<SemBase> handledEvent) {
  TraceRoutine("CompileFunction", Ref<SemBase>(), {name, parameters, returnType, handledEvent});
  if (!gContext) return;
  // Each method places its labels anew.
  ++gContext->labelScope;
  gContext->currentFunction = nullptr;
  if (name) {
    string text = name->toString();
    if (handledEvent) {
      ReportNotYetSupported("Handles", &name->Location());
      text = AddEventDesignatorToName(text);
    }
    string base = text;
    if (gContext->inClass && gContext->currentClass) {
      text = QualifyName(gContext->currentClass->GetName(), text);
      text = AddParameterDescriptionToName(text, IRDataType(gContext->currentClass->GetName()));
    }
    // A basic type's location is its first use's: the name tells the line.
    if (returnType) RefusePendingType(returnType->GetType(), name->Location());
    text = MangleFunctionName(text, parameters, returnType);
    // A Sub's name carries its empty result section too.
    if (!returnType) text = AddReturnTypeDescriptionToName(text, IRDataType());
    text = QualifyByModules(text);
    FunctionDeclaration* found = nullptr;
    if (gContext->inClass && gContext->currentClass) found = FindDeclared(gContext->currentClass, base, text);
    if (!found) found = FindDeclared(gContext->CurrentModule(), base, text);
    if (!found) Error(UnknownName, name->Location());
    gContext->currentFunction = found;
  }
  PushPragmas();
}

Ref<SemBase> CompileEndFunction(Ref<SemBase> name, Ref<SemBase> table, Ref<SemBase> parameters,
                                Ref<SemBase> handledEvent, Ref<SemBase> body) {
  TraceRoutine("CompileEndFunction", Ref<SemBase>(), {name, table, parameters, handledEvent, body});
  Ref<SemBase> code = SemCode::New(IRDataType(), name ? &name->Location() : nullptr);
  FunctionDeclaration* function = gContext ? gContext->currentFunction : nullptr;
  if (!function) {
    // The method's table and pragmas close all the same, or every method
    // after it would nest inside it.
    PopSymTable();
    PopPragmas();
    return code;
  }
  string mangled = function->GetName();
  code->AddLine(tac_Label, CurrentTLP()->GetLiteral(mangled), nilTacAddr, nilTacAddr);
  Ref<SymbolTable> symbols =
      table ? CurrentSymbolTableList()->GetTable((unsigned long)table->GetValue().sint32) : Ref<SymbolTable>();
  if (symbols) symbols->name = mangled;
  Ref<SemBase> self;
  if (gContext->inClass) {
    Ref<SemBase> selfName = SemIdentifier::New(string("self"));
    self = FindLocalSymbol(selfName);
    if (self) {
      selfName->SetType(self->GetType());
      parameters = ConcatList(selfName, parameters);
    }
  }
  // The default handler's variable, made before the prolog so that the
  // prolog clears it: the handler may be entered from anywhere.
  Ref<SemBase> caught = code->NewTemp(IRDataType(kTypeObject), nullptr);
  // The handler releases it itself, after passing the exception on.
  SimpleVector<SymbolID>* temps = code->Temporaries();
  (*temps)[temps->size() - 1].Entry()->finalizationAllowed = false;
  Ref<SemBase> prolog = CompileFunctionProlog(table, parameters);
  // The prolog belongs to the method's first line: a stack overflow found
  // on the way in is reported there.
  for (TacLine* l = prolog->Code() ? prolog->Code()->first : nullptr; l; l = l->next)
    l->line = name ? name->Location().startLine : l->line;
  code->Append(prolog);
  if (self)
    code->AddLine(tac_Baseref, self->GetAddr(), CurrentTLP()->GetLiteral((long)kRuntimeObjectHeaderSize), nilTacAddr);
  if (body) code->Append(body);
  IRDataType result = function->GetType();
  // A function that runs off its end returns zero, or nil.
  if (!result.Null()) code->AddLine(tac_PutRetval, result.IsFloat() ? gTacFloatZero : gTacZero, nilTacAddr, nilTacAddr);
  TacAddr const* end = NewLabel();
  code->AddLine(tac_Label, end, nilTacAddr, nilTacAddr);
  PatchReturnLabels(*code->Code(), end);
  Ref<SemBase> tail = SemCode::New(IRDataType(), nullptr);
  FinalizeSymbols(symbols, tail);
  if (gContext->options.autoWaitCursorDisabled)
    tail->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicEnableAutoWaitCursor), nilTacAddr, nilTacAddr);
  tail = CompileDebugEntry(MakeDefaultExceptionHandler(tail, caught));
  code->Append(tail);
  code->AddLine(tac_Return, nilTacAddr, nilTacAddr, nilTacAddr);
  gContext->currentFunction = nullptr;
  ++gContext->labelScope;
  PopSymTable();
  PopPragmas();
  // The frame covers every temporary: none is left for a statement to release.
  code->Temporaries()->deleteAll();
  return code;
}

Ref<SemBase> CompileReturn(Ref<SemBase> value) {
  TraceRoutine("CompileReturn", Ref<SemBase>(), {value});
  Ref<SemBase> code = SemCode::New(IRDataType(), value ? &value->Location() : nullptr);
  FunctionDeclaration* function = gContext ? gContext->currentFunction : nullptr;
  if (value) {
    if (!function || function->GetType().Null()) {
      Error(UnexpectedReturnValue, value->Location());
    } else if (!IsReportedFailure(value)) {
      IRDataType type = function->GetType();
      Ref<SemBase> v = CompileRefAs(value, type, code);
      if (type.RefCounted()) code->AddLine(tac_Lock, v->GetAddr(), nilTacAddr, nilTacAddr);
      code->AddLine(tac_PutRetval, v->GetAddr(), nilTacAddr, nilTacAddr);
    }
  } else if (function && !function->GetType().Null()) {
    Error(MissingReturnValue, code->Location());
  }
  code->AddLine(tac_Jump, nilTacAddr, nilTacAddr, CurrentTLP()->GetLiteral(kFunctionReturnTarget));
  return code;
}
