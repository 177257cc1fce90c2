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
    : iterator(nullptr),
      block(nullptr),
      pendingImports(new Import[kMaxPendingImports]),
      pendingCount(0),
      delegate(nullptr),
      failed(false) {}

CodeGenerator::~CodeGenerator() {
  delete iterator;
  delete[] pendingImports;
}

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

  // The program's first lines form the entry function; its tac_Stop closes it.
  BeginFunction(string("% main"));
  int index = 0;
  failed = false;
  while (!failed && iterator->Next()) {
    CompileOneLine(*iterator->Value());
    if (delegate) {
      bool stop = delegate->CompilerBackendProgress(index, total);
      ++index;
      failed = failed || stop;
    }
  }

  delete iterator;
  iterator = nullptr;
  symbols = Ref<SymbolTableList>();
  block = nullptr;
  if (failed) module = Ref<CodeModule>();
  return module;
}

void CodeGenerator::CompileOneLine(TacLine const& line) {
  location = SourceLocation((int)line.line);
  CompileLineBefore(line);
  if (line.opcode >= 0 && line.opcode < kTacOpcodeCount) (this->*kLineHandlers[line.opcode])(line);
  CompileLineAfter(line);
}

void CodeGenerator::NewFunction(string name, bool bigEndian) {
  currentFunction.BindNewObject(new FunctionBlock(bigEndian));
  currentFunction->name = name;
  if (debug) lineIndex.BindNewObject(new CodeOffsetToLineIndex);
}

void CodeGenerator::FinishFunction() {
  KV_ASSERT(currentFunction);
  if (currentFunction) module->functions.push_back(currentFunction);
  currentFunction = Ref<FunctionBlock>();
}

void CodeGenerator::MarkImport(Import::Type type, string name, string library, int extra) {
  if (pendingCount >= kMaxPendingImports) {
    Error(CodeBufferFull);
    return;
  }
  pendingImports[pendingCount] = Import(type, name, library, CodeBufferLength() + extra);
  ++pendingCount;
}

void CodeGenerator::MarkImport(Import::Type type, string name, int extra) {
  MarkImport(type, name, string(), extra);
}

void CodeGenerator::AdjustImportListOffsets(int delta) {
  for (int i = 0; i < pendingCount; ++i) pendingImports[i].offset += delta;
}

void CodeGenerator::MakeImportListPermanent(Ref<FunctionBlock> target) {
  if (pendingCount <= 0) return;
  KV_ASSERT(target && target->imports.size() == 0);
  for (int i = 0; i < pendingCount; ++i) {
    if (target) target->imports.push_back(pendingImports[i]);
    // The names are let go now rather than when the slot is next reused.
    pendingImports[i] = Import();
  }
  pendingCount = 0;
}

void CodeGenerator::Error(CompileErrorCode code) {
  failed = true;
  if (delegate) delegate->CompilerError(CompileError(code, location));
}
