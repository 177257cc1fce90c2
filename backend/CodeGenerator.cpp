#include "backend/CodeGenerator.h"

#include <iterator>

#include "foundation/KvAssert.h"

// ---------------------------------------------------------------------------
// RegisterState

RegisterState::RegisterState()
    : used(false), clock(0), items(new TacAddr const*[kMaxCachedTacAddrs]()), count(0) {}

RegisterState::~RegisterState() { delete[] items; }

void RegisterState::Record(TacAddr const* addr) {
  items[count] = addr;
  ++count;
  used = true;
  if (count >= kMaxCachedTacAddrs) count = kMaxCachedTacAddrs - 1;
}

bool RegisterState::Contains(TacAddr const* addr) const {
  for (int i = 0; i < count; ++i) {
    if (items[i] == addr) return true;
  }
  return false;
}

void RegisterState::Clear(TacAddr const* addr) {
  for (int i = 0; i < count; ++i) {
    if (items[i] == addr) {
      items[i] = items[--count];
      return;
    }
  }
}

// ---------------------------------------------------------------------------
// CodeGenerator

namespace {

typedef void (CodeGenerator::*LineHandler)(TacLine const&);

// Indexed by opcode: the X-macro list gives the order, so a handler can't be
// filed under another opcode's number.
#define KV_CG_HANDLER(op, text) &CodeGenerator::op,
constexpr LineHandler kLineHandlers[] = {KV_TAC_OPCODES(KV_CG_HANDLER)};
#undef KV_CG_HANDLER
static_assert(std::size(kLineHandlers) == kTacOpcodeCount);

}  // namespace

CodeGenerator::CodeGenerator()
    : iterator(nullptr), block(nullptr), delegate(nullptr), failed(false) {}

CodeGenerator::~CodeGenerator() { delete iterator; }

void CodeGenerator::CompileLineBefore(TacLine const&) {}
void CodeGenerator::CompileLineAfter(TacLine const&) {}

static int CountLines(TacBlock const* code) {
  int total = 0;
  TacBlockIterator it(code);
  while (it.Next()) ++total;
  return total;
}

Ref<CodeModule> CodeGenerator::Generate(TacBlock* code, Ref<SymbolTableList> symbolTables) {
  block = code;
  symbols = symbolTables;
  module.BindNewObject(new CodeModule);
  module->family = TargetProcessorFamily();
  int total = delegate ? CountLines(block) : 0;
  iterator = new TacBlockIterator(block);
  failed = false;

  // The program's first lines form the entry function; its tac_Stop closes it.
  BeginFunction(string("% main"));
  int index = 0;
  while (!failed && iterator->Next()) {
    CompileOneLine(*iterator->Value());
    if (delegate) {
      bool stop = delegate->CompilerBackendProgress(index, total);
      ++index;
      failed = failed || stop;
    }
  }
  // A function without its closing line: main without tac_Stop would leave
  // the image without an entry point.
  if (!failed && currentFunction) Error(kMalformedBlockError);

  delete iterator;
  iterator = nullptr;
  symbols = Ref<SymbolTableList>();
  block = nullptr;
  if (failed) module = Ref<CodeModule>();
  return module;
}

bool CodeGenerator::OpensFunction(TacLine const& line) {
  return line.opcode == ::tac_Label && line.a && line.a->IsConstant() &&
         line.a->type.GetMainType() == kTypeString;
}

void CodeGenerator::CompileOneLine(TacLine const& line) {
  location = SourceLocation((int)line.line);
  if (!currentFunction && !OpensFunction(line)) {
    Error(kMalformedBlockError);
    return;
  }
  CompileLineBefore(line);
  if (line.opcode >= 0 && line.opcode < kTacOpcodeCount) (this->*kLineHandlers[line.opcode])(line);
  CompileLineAfter(line);
}

void CodeGenerator::NewFunction(string name, bool bigEndian) {
  // The open function would be dropped, and its fix-ups land in this one.
  if (currentFunction || !pendingImports.empty()) Error(kMalformedBlockError);
  currentFunction.BindNewObject(new FunctionBlock(bigEndian));
  currentFunction->name = name;
  if (debug) lineIndex.BindNewObject(new CodeOffsetToLineIndex);
}

void CodeGenerator::FinishFunction() {
  KV_ASSERT(currentFunction);
  if (!currentFunction) return;
  module->functions.push_back(currentFunction);
  currentFunction = Ref<FunctionBlock>();
  if (debug) lineIndexes.push_back(lineIndex);
  lineIndex = Ref<CodeOffsetToLineIndex>();
}

Ref<CodeOffsetToLineIndex> CodeGenerator::LineIndex(unsigned long function) const {
  if (function >= lineIndexes.size()) return Ref<CodeOffsetToLineIndex>();
  return lineIndexes[function];
}

void CodeGenerator::MarkImport(Import::Type type, string name, string library, int extra) {
  pendingImports.push_back(Import(type, name, library, CodeBufferLength() + extra));
}

void CodeGenerator::MarkImport(Import::Type type, string name, int extra) {
  MarkImport(type, name, string(), extra);
}

void CodeGenerator::AdjustImportListOffsets(int delta) {
  for (Import& import : pendingImports) import.offset += delta;
}

void CodeGenerator::AdjustLineIndexOffsets(int delta) {
  if (!lineIndex) return;
  for (unsigned long i = 0; i < lineIndex->entries.size(); ++i) lineIndex->entries[i].offset += delta;
}

void CodeGenerator::MakeImportListPermanent(Ref<FunctionBlock> target) {
  if (pendingImports.empty()) return;
  KV_ASSERT(target && target->imports.size() == 0);
  if (target) {
    for (Import const& import : pendingImports) target->imports.push_back(import);
  }
  pendingImports.clear();
}

void CodeGenerator::Error(CompileErrorCode code) {
  failed = true;
  if (delegate) delegate->CompilerError(CompileError(code, location));
}
