// The abstract back end: walks the final TacBlock once, first line to last,
// and hands each line to the handler of its opcode in the concrete generator.
// It owns what every target shares: the module under construction, the open
// function, the fix-ups of that function, the location for errors and the
// progress reports.
//
// Invariants:
// - One generator serves one Generate: construct, Configure, SetDelegate,
//   SetDebug, Generate, destroy.
// - While generating, exactly one function is open at any line: the concrete
//   BeginFunction opens it through NewFunction, EndFunction closes it through
//   FinishFunction, and its pending imports move to its block on the way.
//   A block that breaks this (a function opened inside another, a line
//   outside any function, a function left open at the end) is an internal
//   error: the front end never makes one, and code built from it would be
//   laid out wrongly, so no module comes of it.
// - After an error or a cancel, the line at hand is finished and no further
//   line is compiled; Generate then returns a null module.
// - With debug information asked for, each function's line index gives
//   offsets into the finished function, prolog included.
#pragma once

#include <cstdint>
#include <vector>

#include "backend/DebuggerSymbols.h"
#include "ir/ThreeAddressCode.h"
#include "backend/CodeStorage.h"
#include "diag/CompilerDelegate.h"
#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "diag/CompileError.h"
#include "semantic/SymbolTable.h"
#include "diag/SourceLocation.h"

// Options of the PowerPC generator: seven bytes, all zero by default.
struct CGPPCOptions {
  int32_t tocMode = 0;
  bool largeCodeToc = false;
  bool largeStringToc = false;
  bool traceback = false;
};

// Options of the IA-32 generator: one word; no generated code depends on it.
struct CGIA32Options {
  uint32_t flags = 0;
};

// Addresses one register can be known to hold at once. A register's list is
// emptied at every label and call, so a list longer than this would only
// serve straight-line code copying one value into many variables.
constexpr int kMaxCachedTacAddrs = 64;

// A block the generator can't lay out is a fault of the compiler itself,
// never of the script.
constexpr CompileErrorCode kMalformedBlockError = InternalError;

// What one machine register holds: the operands whose value it has.
class RegisterState {
public:
  RegisterState();
  ~RegisterState();
  RegisterState(RegisterState const&) = delete;
  RegisterState& operator=(RegisterState const&) = delete;

  // Lists `addr` and marks the register used. A full list keeps its 63
  // oldest entries: the newest goes into the spare last slot uncounted.
  void Record(TacAddr const* addr);
  bool Contains(TacAddr const* addr) const;
  // Drops one entry by moving the last into its place; an absent address
  // changes nothing.
  void Clear(TacAddr const* addr);
  // Empties the list; `used` stays, since the register was still written.
  void Clear() { count = 0; }
  bool Valid() const { return count > 0; }
  int Count() const { return count; }
  TacAddr const* Item(int at) const { return items[at]; }

  // The function has written this register; callee-saved ones are saved by it.
  bool used;
  // The generator's clock at the last hit: the least recently read register
  // is the one given up when all are taken.
  int32_t clock;
  TacAddr const** items;
  int32_t count;
};

class CodeGenerator {
public:
  CodeGenerator();
  virtual ~CodeGenerator();
  CodeGenerator(CodeGenerator const&) = delete;
  CodeGenerator& operator=(CodeGenerator const&) = delete;

  // Opens a function; the concrete generator calls NewFunction from here.
  virtual void BeginFunction(string name) = 0;
  virtual void EndFunction() = 0;
  virtual CodeModule::Family TargetProcessorFamily() = 0;
  // Bytes written in the current function.
  virtual int CodeBufferLength() = 0;
  virtual void CompileLineBefore(TacLine const& line);
  virtual void CompileLineAfter(TacLine const& line);

  // The handlers, one per opcode, in opcode order but for tac_Stop, which
  // stands ahead of the three exception opcodes.
  virtual void tac_Noop(TacLine const& line) = 0;
  virtual void tac_Debugout(TacLine const& line) = 0;
  virtual void tac_Store(TacLine const& line) = 0;
  virtual void tac_Varptr(TacLine const& line) = 0;
  virtual void tac_PeekI(TacLine const& line) = 0;
  virtual void tac_PeekB(TacLine const& line) = 0;
  virtual void tac_PeekF(TacLine const& line) = 0;
  virtual void tac_PeekD(TacLine const& line) = 0;
  virtual void tac_PeekS(TacLine const& line) = 0;
  virtual void tac_PeekO(TacLine const& line) = 0;
  virtual void tac_PokeI(TacLine const& line) = 0;
  virtual void tac_PokeB(TacLine const& line) = 0;
  virtual void tac_PokeF(TacLine const& line) = 0;
  virtual void tac_PokeD(TacLine const& line) = 0;
  virtual void tac_PokeS(TacLine const& line) = 0;
  virtual void tac_PokeO(TacLine const& line) = 0;
  virtual void tac_AddI(TacLine const& line) = 0;
  virtual void tac_AddD(TacLine const& line) = 0;
  virtual void tac_SubI(TacLine const& line) = 0;
  virtual void tac_SubD(TacLine const& line) = 0;
  virtual void tac_MulI(TacLine const& line) = 0;
  virtual void tac_MulD(TacLine const& line) = 0;
  virtual void tac_DivI(TacLine const& line) = 0;
  virtual void tac_DivD(TacLine const& line) = 0;
  virtual void tac_ModI(TacLine const& line) = 0;
  virtual void tac_PowD(TacLine const& line) = 0;
  virtual void tac_NegI(TacLine const& line) = 0;
  virtual void tac_NegD(TacLine const& line) = 0;
  virtual void tac_EQD(TacLine const& line) = 0;
  virtual void tac_EQI(TacLine const& line) = 0;
  virtual void tac_NED(TacLine const& line) = 0;
  virtual void tac_NEI(TacLine const& line) = 0;
  virtual void tac_LTD(TacLine const& line) = 0;
  virtual void tac_LTI(TacLine const& line) = 0;
  virtual void tac_LED(TacLine const& line) = 0;
  virtual void tac_LEI(TacLine const& line) = 0;
  virtual void tac_ItoD(TacLine const& line) = 0;
  virtual void tac_DtoI(TacLine const& line) = 0;
  virtual void tac_Label(TacLine const& line) = 0;
  virtual void tac_Jump(TacLine const& line) = 0;
  virtual void tac_IfEQI(TacLine const& line) = 0;
  virtual void tac_IfNEI(TacLine const& line) = 0;
  virtual void tac_IfLTI(TacLine const& line) = 0;
  virtual void tac_Lock(TacLine const& line) = 0;
  virtual void tac_Unlock(TacLine const& line) = 0;
  virtual void tac_SwapLocks(TacLine const& line) = 0;
  virtual void tac_PutParam(TacLine const& line) = 0;
  virtual void tac_GetParam(TacLine const& line) = 0;
  virtual void tac_Intrinsic(TacLine const& line) = 0;
  virtual void tac_Call(TacLine const& line) = 0;
  virtual void tac_CallPtr(TacLine const& line) = 0;
  virtual void tac_CallPtrVarargs(TacLine const& line) = 0;
  virtual void tac_FuncPtr(TacLine const& line) = 0;
  virtual void tac_Symbols(TacLine const& line) = 0;
  virtual void tac_Baseref(TacLine const& line) = 0;
  virtual void tac_Return(TacLine const& line) = 0;
  virtual void tac_PutRetval(TacLine const& line) = 0;
  virtual void tac_Stop(TacLine const& line) = 0;
  virtual void tac_HandleException(TacLine const& line) = 0;
  virtual void tac_BeginTry(TacLine const& line) = 0;
  virtual void tac_EndTry(TacLine const& line) = 0;

  // Not owned; must outlive Generate. Without one no line count is taken
  // and errors only fail the generation.
  void SetDelegate(CompilerDelegate* d) { delegate = d; }
  void SetDebug(Ref<DebuggerSymbols> symbolsForDebugger) { debug = symbolsForDebugger; }

  // Compiles the whole block; null after an error or a cancel. The block and
  // the symbol tables are only borrowed for the call.
  Ref<CodeModule> Generate(TacBlock* code, Ref<SymbolTableList> symbolTables);
  void CompileOneLine(TacLine const& line);

  // Records a fix-up `extra` bytes behind the current end of the open
  // function, so the caller marks just before writing the instruction.
  void MarkImport(Import::Type type, string name, string library, int extra);
  void MarkImport(Import::Type type, string name, int extra);
  // Moves every pending fix-up by `delta`: a prolog of that length has been
  // put in front of the body.
  void AdjustImportListOffsets(int delta);
  // The same for the open function's line index, if one is kept.
  void AdjustLineIndexOffsets(int delta);
  // Hands the pending fix-ups to `target`, whose own list is empty then.
  void MakeImportListPermanent(Ref<FunctionBlock> target);
  // Fails the generation and reports at the line at hand; that line is
  // still finished.
  void Error(CompileErrorCode code);

  int PendingImportCount() const { return (int)pendingImports.size(); }
  bool Failed() const { return failed; }
  // The line index of the module's function at `function`, once finished;
  // null without debug information.
  Ref<CodeOffsetToLineIndex> LineIndex(unsigned long function) const;
  // A string label starts a function; any other line belongs to one.
  static bool OpensFunction(TacLine const& line);

protected:
  void NewFunction(string name, bool bigEndian);
  void FinishFunction();

  TacBlockIterator* iterator;
  TacBlock* block;
  Ref<SymbolTableList> symbols;
  Ref<CodeModule> module;
  Ref<DebuggerSymbols> debug;
  Ref<FunctionBlock> currentFunction;
  SourceLocation location;
  // The open function's line index, and those of the finished functions in
  // module order.
  Ref<CodeOffsetToLineIndex> lineIndex;
  SimpleVector<Ref<CodeOffsetToLineIndex>> lineIndexes;
  SimpleVector<string> intrinsicNames;
  std::vector<Import> pendingImports;
  CompilerDelegate* delegate;
  bool failed;
};
