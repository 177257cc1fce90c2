// The compilation context's routines that the grammar calls, until the
// context takes them over; and name lookup's two entries, until it lands.

#include "codebuild/Finalization.h"
#include "codebuild/Placeholders.h"
#include "foundation/stringmap.h"
#include "frontend/Parser.h"
#include "frontend/ParserError.h"
#include "frontend/SrcContext.h"
#include "frontend/lexer.h"
#include "frontend/tokens.h"
#include "semantic/DeclarationTable.h"

// ---------------------------------------------------------------------------
// Types

namespace {

struct BasicTypeName {
  int token;
  char const* name;
  SimpleDataType type;
};

constexpr BasicTypeName kBasicTypes[] = {
    {kTokenInteger, "Integer", kTypeInteger}, {kTokenString, "String", kTypeString},
    {kTokenSingle, "Single", kTypeSingle},    {kTokenDouble, "Double", kTypeDouble},
    {kTokenBoolean, "Boolean", kTypeBoolean}, {kTokenColor, "Color", kTypeColor},
    {kTokenObject, "Object", kTypeObject},    {kTokenClass, "Class", kTypeClassRef},
};
constexpr int kBasicTypeCount = sizeof(kBasicTypes) / sizeof(kBasicTypes[0]);

}  // namespace

// One identifier per type for the process: the type words are read often
// and their identifiers are never changed or linked into lists.
Ref<SemBase> BasicType(int token) {
  static Ref<SemBase> sShared[kBasicTypeCount];
  for (int i = 0; i < kBasicTypeCount; ++i) {
    if (kBasicTypes[i].token != token) continue;
    if (!sShared[i]) {
      sShared[i] = SemIdentifier::New(string(kBasicTypes[i].name));
      sShared[i]->SetType(IRDataType(kBasicTypes[i].type));
    }
    return sShared[i];
  }
  return Ref<SemBase>();
}

Ref<SemBase> ClassType(Ref<SemBase> name) {
  if (!name) return name;
  string text = name->toString();
  ModuleDeclaration* module = gContext ? gContext->CurrentModule() : nullptr;
  if (!module || !module->LookupClass(text)) Error(UnknownClass, name->Location());
  name->SetType(IRDataType(text));
  return name;
}

static long CountElements(Ref<SemBase> value) {
  if (!value) return 0;
  if (!value->IsList()) return 1;
  long count = 0;
  for (Ref<SemBase> e = value->GetContents(); e; e = e->GetNext()) ++count;
  return count;
}

Ref<SemBase> ArrayRank(Ref<SemBase> commas) {
  return SemValue::New(CurrentTLP()->GetLiteral(CountElements(commas) + 1), nullptr);
}

Ref<SemBase> ArrayType(Ref<SemBase> element, Ref<SemBase> rank) {
  if (!element) return element;
  int dimensions = rank ? (int)rank->GetValue().sint32 : 1;
  Ref<SemBase> array = SemIdentifier::New(element->toString(), element->Location());
  array->SetType(element->GetType().AsArray(dimensions));
  return array;
}

// ---------------------------------------------------------------------------
// Declarations and statements

// Not finished: declaring the variables needs name lookup, assignment and
// array allocation, which have not landed; the clause yields a placeholder.
Ref<SemBase> CompileDeclaration(Ref<SemBase> names, Ref<SemBase> type, Ref<SemBase> initialiser) {
  return TraceRoutine("CompileDeclaration", PlaceholderStatement(), {names, type, initialiser});
}

// Not finished: the constant needs the method's declaration, which the
// function routines will make current; nothing is declared yet.
Ref<SemBase> CompileConst(Ref<SemBase> name, Ref<SemBase> value) {
  TraceRoutine("CompileConst", Ref<SemBase>(), {name, value});
  return Ref<SemBase>();
}

Ref<SemBase> CompileReservedIdentifier() {
  Error(ReservedIdentifier);
  return SemIdentifier::New(string("bogus"));
}

// Not finished: the context has no debugger symbols or debug option yet,
// and without them a statement's code stands as it is.
Ref<SemBase> CompileDebugEntry(Ref<SemBase> code) { return code; }

Ref<SemBase> FilterTemporaryVariables(Ref<SemBase> code) {
  SimpleVector<SymbolID>* temporaries = code ? code->Temporaries() : nullptr;
  if (!temporaries || temporaries->size() == 0) return code;
  Ref<SemBase> wrapper = SemCode::NewValueWrapper(code, nullptr);
  wrapper->Append(code);
  SimpleVector<SymbolID>* held = wrapper->Temporaries();
  for (unsigned long i = 0; i < held->size(); ++i) FinalizeVariable((*held)[i], wrapper);
  *held = SimpleVector<SymbolID>();
  return wrapper;
}

// ---------------------------------------------------------------------------
// Pragmas

namespace {

// In the order of their numbers; the effects are the context's options.
char const* const kPragmaWords[] = {
    "disableBoundsChecking", "disableBackgroundTasks", "disableAutoWaitCursor", "BoundsChecking",
    "BackgroundTasks",       "StackOverflowChecking",  "NilObjectChecking",     "Debug",
    "Reset",                 "BindingPart",            "BindingSpecification",
};
constexpr long kPragmaCount = sizeof(kPragmaWords) / sizeof(kPragmaWords[0]);
static_assert(kPragmaCount == 11, "the pragma words are numbered 0 to 10");

// Made at the first #pragma of the process; StringMap matches ignoring case.
StringMap<long>& PragmaTable() {
  static StringMap<long>* sTable = nullptr;
  if (!sTable) {
    sTable = new StringMap<long>;
    for (long i = 0; i < kPragmaCount; ++i) sTable->AddEntry(string(kPragmaWords[i]), i);
  }
  return *sTable;
}

}  // namespace

// Not finished: the context holds no language options yet, so a known
// pragma has no effect; an unknown word is reported.
Ref<SemBase> CompilePragma(Ref<SemBase> word, Ref<SemBase> value) {
  if (!word) return Ref<SemBase>();
  long pragma = -1;
  if (!PragmaTable().GetEntry(word->toString(), pragma)) {
    Error(UnknownPragma, word->Location());
    return Ref<SemBase>();
  }
  TraceRoutine("CompilePragma", Ref<SemBase>(), {word, value}, {pragma});
  return Ref<SemBase>();
}

// ---------------------------------------------------------------------------
// Conditional compilation

// A condition fit to choose a branch; reports why not otherwise. A null
// handle follows an error that has been reported already.
static bool UsableCondition(Ref<SemBase> condition) {
  if (!condition) return false;
  if (!condition->IsConstant()) {
    Error(ConditionalNotConstant);
    return false;
  }
  if (condition->GetType().GetMainType() == kTypeNull) {
    Error(ConditionalTypeless);
    return false;
  }
  return true;
}

Ref<SemBase> CompileConditionalIf(Ref<SemBase> condition) {
  if (!gContext) return 0;
  ++gContext->conditionalDepth;
  if (!UsableCondition(condition)) return 0;
  bool taken = condition->GetValue().sint32 != 0;
  gContext->conditionalTaken.push_back(taken);
  if (!taken) SkipConditionallyCompiledLines(false);
  return 0;
}

Ref<SemBase> CompileConditionalElseIf(Ref<SemBase> condition) {
  if (!gContext) return 0;
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalElseWithoutIf);
    return 0;
  }
  if (!UsableCondition(condition)) return 0;
  SimpleVector<bool>& taken = gContext->conditionalTaken;
  if (taken.size() > 0 && taken.peek_back()) {
    SkipConditionallyCompiledLines(true);
  } else if (condition->GetValue().sint32 != 0) {
    unsigned long at = (unsigned long)gContext->conditionalDepth - 1;
    if (at < taken.size()) taken[at] = true;
  } else {
    SkipConditionallyCompiledLines(false);
  }
  return 0;
}

// Reaching this means that the branch above was compiled: the else branch
// is skipped.
Ref<SemBase> CompileConditionalElse() {
  if (!gContext) return 0;
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalElseWithoutIf);
    return 0;
  }
  SkipConditionallyCompiledLines(false);
  return 0;
}

Ref<SemBase> CompileConditionalEndIf() {
  if (!gContext) return 0;
  if (gContext->conditionalTaken.size() > 0) gContext->conditionalTaken.pop_back();
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalEndIfWithoutIf);
    return 0;
  }
  --gContext->conditionalDepth;
  return 0;
}

// ---------------------------------------------------------------------------
// Name lookup

// Name lookup has not landed: a name yields a placeholder, a value where
// one is needed (mode 0) and a statement otherwise; nothing is reported.
Ref<SemBase> CompileLookup(Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value, FunctionResultMode mode,
                           CompileErrorCode defaultError, bool isCallStatement) {
  Ref<SemBase> result = mode == kResultNeeded ? PlaceholderValue() : PlaceholderStatement();
  (void)isCallStatement;
  return TraceRoutine("CompileLookup", result, {name, args, value}, {mode, defaultError});
}

Ref<SemBase> CompileScopeLookup(Ref<SemBase> left, Ref<SemBase> name, Ref<SemBase> args, Ref<SemBase> value,
                                FunctionResultMode mode) {
  Ref<SemBase> result = mode == kResultNeeded ? PlaceholderValue() : PlaceholderStatement();
  return TraceRoutine("CompileScopeLookup", result, {left, name, args, value}, {mode});
}
