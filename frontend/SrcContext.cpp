#include "frontend/SrcContext.h"

#include <iterator>

#include "backend/DebuggerSymbols.h"
#include "diag/CompileError.h"
#include "frontend/Lexer.h"
#include "frontend/Tokens.h"
#include "ir/Intrinsics.h"
#include "semantic/DeclarationTable.h"
#include "semantic/SymbolUtilities.h"

SrcContext* gContext = nullptr;

void SetCurrentContext(SrcContext* context) {
  gContext = context;
  gLiteralPool = context;
  gErrorSink = context;
  gNameScope = context;
}

// ---------------------------------------------------------------------------
// The context

SrcContext::SrcContext() {
  tables.BindNewObject(new SymbolTableList());
  currentTable = SymbolTable::New(Ref<SymbolTable>(), StaticStorage, string());
  tables->AddTable(currentTable);
}

SrcContext::~SrcContext() = default;

int SrcContext::CurrentLine() const { return current_line(); }

TacAddr* SrcContext::NamedLabel(string name) {
  TacAddr* label = nullptr;
  if (labels.GetEntry(name, label)) return label;
  // The pool owns the literal; it is a label of its own even where an
  // integer literal of the same number exists, since labels are matched by
  // number.
  label = new ConstAddr((long)NewLabel());
  owned.push_back(label);
  labels.AddEntry(name, label);
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
  SetCurrentContext(context);
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
