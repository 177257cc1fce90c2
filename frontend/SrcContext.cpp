#include "frontend/SrcContext.h"

#include <iterator>

#include "backend/DebuggerSymbols.h"
#include "codebuild/Finalization.h"
#include "codebuild/Placeholders.h"
#include "frontend/Parser.h"
#include "frontend/ParserError.h"
#include "frontend/lexer.h"
#include "frontend/tokens.h"
#include "runtime/Intrinsics.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"

SrcContext* gContext = nullptr;

// ---------------------------------------------------------------------------
// The context

SrcContext::SrcContext() {
  tables.BindNewObject(new SymbolTableList());
  currentTable = SymbolTable::New(Ref<SymbolTable>(), StaticStorage, string());
  tables->AddTable(currentTable);
}

SrcContext::~SrcContext() = default;

TacAddr* SrcContext::NamedLabel(string name) {
  for (unsigned long i = 0; i < labelNames.size(); ++i)
    if (labelNames[i] == name) return labelAddrs[i];
  // The pool owns the literal; it is a label of its own even where an
  // integer literal of the same number exists, since labels are matched by
  // number.
  TacAddr* label = new ConstAddr((long)NewLabel());
  owned.push_back(label);
  labelNames.push_back(name);
  labelAddrs.push_back(label);
  return label;
}

TacAddr* SrcContext::GetObjectSymbolAddr(IRDataType const& type, string const& name, unsigned offset) {
  TacAddr* found = nullptr;
  if (objectSymbols.GetEntry(name, found)) return found;
  found = new SymbolAddr(ObjectStorage, type, name, offset);
  owned.push_back(found);
  objectSymbols.AddEntry(name, found);
  return found;
}

TacAddr* SrcContext::GetStaticSymbolAddr(IRDataType const& type, string const& name) {
  TacAddr* found = nullptr;
  if (staticSymbols.GetEntry(name, found)) return found;
  found = new SymbolAddr(StaticStorage, type, name, 0);
  owned.push_back(found);
  staticSymbols.AddEntry(name, found);
  return found;
}

// ---------------------------------------------------------------------------
// Shared values of the process

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
constexpr int kBasicTypeCount = (int)std::size(kBasicTypes);

// The type words are read often and their identifiers are never changed or
// linked into lists, so one identifier per type serves every compilation.
// Held by pointer so that no destructor runs at the process's exit.
Ref<SemBase>* sBasicTypes = nullptr;

char const* const kPragmaWords[] = {
#define KV_PRAGMA_WORD(value, word) word,
    KV_PRAGMAS(KV_PRAGMA_WORD)
#undef KV_PRAGMA_WORD
};
static_assert(std::size(kPragmaWords) == kPragmaCount);

StringMap<pragmas>* sPragmaTable = nullptr;

void MakeBasicTypes() {
  sBasicTypes = new Ref<SemBase>[kBasicTypeCount];
  for (int i = 0; i < kBasicTypeCount; ++i) {
    sBasicTypes[i] = SemIdentifier::New(string(kBasicTypes[i].name), SourceLocation());
    sBasicTypes[i]->SetType(IRDataType(kBasicTypes[i].type));
  }
}

void MakePragmaTable() {
  sPragmaTable = new StringMap<pragmas>;
  for (int i = 0; i < kPragmaCount; ++i) sPragmaTable->AddEntry(string(kPragmaWords[i]), (pragmas)i);
}

// Every operand of a tac_Intrinsic line is made now rather than at the
// first call of each intrinsic, which could fall in any later compilation.
void MakeIntrinsicOperands() {
  for (long i = 0; i < kIntrinsicFunctionCount; ++i) IntrinsicTacAddr(i);
}

}  // namespace

void InitParserGlobals(SrcContext* context) {
  gContext = context;
  static bool sMade = false;
  if (sMade) return;
  sMade = true;
  InitTacConstants();
  MakeIntrinsicOperands();
  MakeBasicTypes();
  MakePragmaTable();
}

StringMap<pragmas> const* PragmaTable() {
  if (!sPragmaTable) MakePragmaTable();
  return sPragmaTable;
}

// ---------------------------------------------------------------------------
// Types

Ref<SemBase> BasicType(int token) {
  if (!sBasicTypes) MakeBasicTypes();
  for (int i = 0; i < kBasicTypeCount; ++i)
    if (kBasicTypes[i].token == token) return sBasicTypes[i];
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

// A list counts its elements; a bare value is a list of one.
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
// Declarations

Ref<SemBase> CompileDeclaration(Ref<SemBase> names, Ref<SemBase> type, Ref<SemBase> initialiser) {
  Ref<SemBase> result = SemCode::New(IRDataType(), names ? &names->Location() : nullptr);
  Ref<SemBase> given = initialiser;
  // However many names the clause declares, the initialiser runs once.
  if (initialiser && initialiser->GetAddr() && !initialiser->IsConstant())
    initialiser = FlattenExpression(initialiser, result);

  Ref<SemBase> pending;
  SimpleVector<Ref<SemBase>> dimensions;
  auto declarePending = [&]() {
    if (!pending) return;
    Ref<SemBase> lines = DeclareOneVar(pending, dimensions, type, initialiser);
    if (lines && lines->Code()) result->Append(lines);
    dimensions.deleteAll();
  };
  Ref<SemBase> first = names && names->IsList() ? names->GetContents() : names;
  for (Ref<SemBase> e = first; e; e = names->IsList() ? e->GetNext() : Ref<SemBase>()) {
    if (e->IsIdentifier()) {
      declarePending();
      pending = e;
    } else {
      dimensions.push_back(e);
    }
  }
  declarePending();
  return TraceRoutine("CompileDeclaration", result, {names, type, given});
}

// Not finished: the allocation of an array that has dimensions but no
// initialiser, and the assignment of the initialiser, need the array and
// assignment routines, which have not landed. The name is declared and
// looked up; the initialiser reaches the trace hook as `DeclareOneVar`'s
// operand, with the number of dimensions, and is not stored yet.
Ref<SemBase> DeclareOneVar(Ref<SemBase> name, SimpleVector<Ref<SemBase>>& dimensions, Ref<SemBase> type,
                           Ref<SemBase> initialiser) {
  if (!name) return Ref<SemBase>();
  IRDataType declared = type ? type->GetType() : IRDataType();
  if (dimensions.size() > 0) declared = declared.AsArray((int)dimensions.size());
  name->SetType(declared);
  AddDeclaredName(name);
  Ref<SemBase> variable = CompileLookup(name, Ref<SemBase>(), Ref<SemBase>(), kResultCall, UnknownName, false);
  (void)variable;
  TraceRoutine("DeclareOneVar", Ref<SemBase>(), {name, type, initialiser}, {(long)dimensions.size()});
  return Ref<SemBase>();
}

Ref<SemBase> CompileConst(Ref<SemBase> name, Ref<SemBase> value) {
  // At module or class level the miner has declared the constant already.
  if (!name || !gContext || !gContext->currentFunction) return Ref<SemBase>();
  if (!value) {
    Error(UnknownName, name->Location());
    return Ref<SemBase>();
  }
  VerifyUniqueName(name);
  ConstantDeclaration* constant = ConstantDeclaration::New();
  constant->SetName(name->toString());
  constant->SetType(value->GetType());
  if (value->IsConstant()) {
    constant->SetValue(value->GetValue());
  } else {
    constant->SetValue(IRValue::SInt32(0));
    Error(ConstNotConstant, value->Location());
  }
  gContext->currentFunction->AddConstant(constant);
  return Ref<SemBase>();
}

Ref<SemBase> CompileReservedIdentifier() {
  Error(ReservedIdentifier);
  return SemIdentifier::New(string("bogus"));
}

// ---------------------------------------------------------------------------
// Statements

Ref<SemBase> CompileDebugEntry(Ref<SemBase> code) {
  if (!code || !gContext || !gContext->debugSymbols || !gContext->options.debug) return code;
  // Both lines take the entry's start line, which is the statement's.
  Ref<SemBase> entry = SemCode::New(IRDataType(), &code->Location());
  long line = code->Location().startLine;
  entry->AddLine(tac_PutParam, gContext->GetLiteral(line), nilTacAddr, nilTacAddr);
  entry->AddLine(tac_Intrinsic, IntrinsicTacAddr(kIntrinsicRuntimeDebugEntry), nilTacAddr, nilTacAddr);
  return ConcatCode(entry, code);
}

Ref<SemBase> FilterTemporaryVariables(Ref<SemBase> code) {
  SimpleVector<SymbolID>* temporaries = code ? code->Temporaries() : nullptr;
  if (!temporaries || temporaries->size() == 0) return code;
  Ref<SemBase> wrapper = SemCode::NewValueWrapper(code, nullptr);
  wrapper->Append(code);
  SimpleVector<SymbolID>* held = wrapper->Temporaries();
  for (unsigned long i = 0; i < held->size(); ++i) FinalizeVariable((*held)[i], wrapper);
  held->deleteAll();
  return wrapper;
}

// ---------------------------------------------------------------------------
// Pragmas

void PushPragmas() {
  if (gContext) gContext->optionStack.push_back(gContext->options);
}

void PopPragmas() {
  if (gContext && gContext->optionStack.size() > 0) gContext->options = gContext->optionStack.pop_back();
}

void ResetPragmas() {
  if (gContext && gContext->optionStack.size() > 0) gContext->options = gContext->optionStack.peek_back();
}

Ref<SemBase> CompilePragma(Ref<SemBase> word, Ref<SemBase> value) {
  if (!word || !gContext) return Ref<SemBase>();
  pragmas pragma = kPragmaDisableBoundsChecking;
  if (!PragmaTable()->GetEntry(word->toString(), pragma)) {
    Error(UnknownPragma, word->Location());
    return Ref<SemBase>();
  }
  // Only `True` turns an option on: a bare word turns it off.
  uint8_t on = value && value->IsConstant() && value->GetValue().sint32 != 0 ? 1 : 0;
  LanguageOptions& options = gContext->options;
  switch (pragma) {
    case kPragmaDisableBoundsChecking: options.boundsChecking = 0; break;
    case kPragmaDisableBackgroundTasks: options.backgroundTasks = 0; break;
    case kPragmaDisableAutoWaitCursor: options.autoWaitCursorDisabled = 1; break;
    case kPragmaBoundsChecking: options.boundsChecking = on; break;
    case kPragmaBackgroundTasks: options.backgroundTasks = on; break;
    case kPragmaStackOverflowChecking: options.stackOverflowChecking = on; break;
    case kPragmaNilObjectChecking: options.nilObjectChecking = on; break;
    case kPragmaDebug: options.debug = on; break;
    case kPragmaReset: ResetPragmas(); break;
    case kPragmaBindingPart:
    case kPragmaBindingSpecification: break;
  }
  return Ref<SemBase>();
}

// ---------------------------------------------------------------------------
// Conditional compilation

// A condition fit to choose a branch; reports why not otherwise. A null
// handle follows an error that has been reported already.
static bool UsableCondition(Ref<SemBase> condition) {
  if (!condition) return false;
  if (!condition->IsConstant()) {
    Error(ConditionalNotConstant, condition->Location());
    return false;
  }
  if (condition->GetType().GetMainType() == kTypeNull) {
    Error(ConditionalTypeless, condition->Location());
    return false;
  }
  return true;
}

// An unusable condition leaves the block without an entry in
// conditionalTaken, and its lines are compiled.
Ref<SemBase> CompileConditionalIf(Ref<SemBase> condition) {
  if (!gContext) return Ref<SemBase>();
  ++gContext->conditionalDepth;
  // The condition starts on the line of its `#if`; the lexer may stand on
  // the next line by now.
  gContext->conditionalLines.push_back(condition ? condition->Location().startLine : current_line());
  if (!UsableCondition(condition)) return Ref<SemBase>();
  bool taken = condition->GetValue().sint32 != 0;
  gContext->conditionalTaken.push_back(taken);
  if (!taken) SkipConditionallyCompiledLines(false);
  return Ref<SemBase>();
}

Ref<SemBase> CompileConditionalElseIf(Ref<SemBase> condition) {
  if (!gContext) return Ref<SemBase>();
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalElseWithoutIf);
    return Ref<SemBase>();
  }
  if (!UsableCondition(condition)) return Ref<SemBase>();
  SimpleVector<bool>& taken = gContext->conditionalTaken;
  if (taken.size() > 0 && taken.peek_back()) {
    SkipConditionallyCompiledLines(true);
  } else if (condition->GetValue().sint32 != 0) {
    unsigned long at = (unsigned long)gContext->conditionalDepth - 1;
    if (at < taken.size()) taken[at] = true;
  } else {
    SkipConditionallyCompiledLines(false);
  }
  return Ref<SemBase>();
}

// Reaching this means that the branch above was compiled: the else branch
// is skipped.
Ref<SemBase> CompileConditionalElse() {
  if (!gContext) return Ref<SemBase>();
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalElseWithoutIf);
    return Ref<SemBase>();
  }
  SkipConditionallyCompiledLines(false);
  return Ref<SemBase>();
}

Ref<SemBase> CompileConditionalEndIf() {
  if (!gContext) return Ref<SemBase>();
  if (gContext->conditionalTaken.size() > 0) gContext->conditionalTaken.pop_back();
  if (gContext->conditionalDepth < 1) {
    Error(ConditionalEndIfWithoutIf);
    return Ref<SemBase>();
  }
  --gContext->conditionalDepth;
  if (gContext->conditionalLines.size() > 0) gContext->conditionalLines.pop_back();
  return Ref<SemBase>();
}

void ReportOpenConditionals() {
  if (!gContext) return;
  SimpleVector<int32_t> const& lines = gContext->conditionalLines;
  for (unsigned long i = 0; i < lines.size(); ++i)
    Error(ConditionalWithoutEndIf, SourceLocation(lines[i]));
}
