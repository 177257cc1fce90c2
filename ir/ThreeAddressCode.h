// Three-address code: the one intermediate form between the semantic
// routines and the code generators.
//
// Invariants:
// - One flat TacBlock holds all code of a compilation; a function is the
//   stretch from a tac_Label line with a string operand to its tac_Return.
// - A line never holds a null operand: an unused operand is nilTacAddr,
//   which is compared by pointer. Data flows from `a` and `b` towards `c`.
// - A line does not own its operands. Constants and the addresses of
//   statics and object fields belong to the literal pool; a declared
//   symbol's address belongs to its symbol-table entry. Both outlive the
//   code generator's walk over the block.
// - A label is an Integer ConstAddr whose value is the label number; the
//   name of a function at a tac_Label line is a String ConstAddr.
#pragma once

#include <cstdint>

#include "foundation/SimpleVector.h"
#include "foundation/StringMap.h"
#include "foundation/String.h"
#include "ir/DataTypes.h"

// Each opcode bears the name of the CodeGenerator handler that compiles it,
// and its printed name: five characters whose blanks are part of the name.
// The order is the numbering; nothing may be inserted in the middle.
#define KV_TAC_OPCODES(X)                  \
  X(tac_Noop, "No Op")                     \
  X(tac_Debugout, "Debug")                 \
  X(tac_Store, "Store")                    \
  X(tac_Varptr, " Ref ")                   \
  X(tac_PeekI, "PeekI")                    \
  X(tac_PeekB, "PeekB")                    \
  X(tac_PeekF, "PeekF")                    \
  X(tac_PeekD, "PeekD")                    \
  X(tac_PeekS, "PeekS")                    \
  X(tac_PeekO, "PeekO")                    \
  X(tac_PokeI, "PokeI")                    \
  X(tac_PokeB, "PokeB")                    \
  X(tac_PokeF, "PokeF")                    \
  X(tac_PokeD, "PokeD")                    \
  X(tac_PokeS, "PokeS")                    \
  X(tac_PokeO, "PokeO")                    \
  X(tac_AddI, "AddI ")                     \
  X(tac_AddD, "AddD ")                     \
  X(tac_SubI, "SubI ")                     \
  X(tac_SubD, "SubD ")                     \
  X(tac_MulI, "MulI ")                     \
  X(tac_MulD, "MulD ")                     \
  X(tac_DivI, "DivI ")                     \
  X(tac_DivD, "DivD ")                     \
  X(tac_ModI, " Mod ")                     \
  X(tac_PowD, " Pow ")                     \
  X(tac_NegI, "NegI ")                     \
  X(tac_NegD, "NegD ")                     \
  X(tac_EQD, " EQd ")                      \
  X(tac_EQI, " EQi ")                      \
  X(tac_NED, " NEd ")                      \
  X(tac_NEI, " NEi ")                      \
  X(tac_LTD, " LTd ")                      \
  X(tac_LTI, " LTi ")                      \
  X(tac_LED, " LEd ")                      \
  X(tac_LEI, " LEi ")                      \
  X(tac_ItoD, "ItoD ")                     \
  X(tac_DtoI, "DtoI ")                     \
  X(tac_Label, "Label")                    \
  X(tac_Jump, "Jump ")                     \
  X(tac_IfEQI, "IfEQi")                    \
  X(tac_IfNEI, "IfNEi")                    \
  X(tac_IfLTI, "IfLTi")                    \
  X(tac_Lock, "Lock ")                     \
  X(tac_Unlock, "Unlck")                   \
  X(tac_SwapLocks, "SwpLx")                \
  X(tac_PutParam, "PutP ")                 \
  X(tac_GetParam, "GetP ")                 \
  X(tac_Intrinsic, "Intrn")                \
  X(tac_Call, "Call ")                     \
  X(tac_CallPtr, "Call*")                  \
  X(tac_CallPtrVarargs, "CllVA")           \
  X(tac_FuncPtr, "&Func")                  \
  X(tac_Symbols, "Symbl")                  \
  X(tac_Baseref, "SetMe")                  \
  X(tac_Return, "Retrn")                   \
  X(tac_PutRetval, "Rval ")                \
  X(tac_HandleException, "Catch")          \
  X(tac_BeginTry, "Try  ")                 \
  X(tac_EndTry, "UnTry")                   \
  X(tac_Stop, "Stop ")

enum TacOpcode : int32_t {
#define KV_TAC_ENUM(op, text) op,
  KV_TAC_OPCODES(KV_TAC_ENUM)
#undef KV_TAC_ENUM
};

#define KV_TAC_COUNT(op, text) +1
constexpr int kTacOpcodeCount = 0 KV_TAC_OPCODES(KV_TAC_COUNT);
#undef KV_TAC_COUNT
static_assert(kTacOpcodeCount == 61 && tac_Stop == 60, "the opcode numbering is fixed");

// Fixed fields of six bytes: five characters and a terminating zero.
constexpr int kOpMnemonicSize = 6;
extern char const kOpMnemonics[kTacOpcodeCount][kOpMnemonicSize];

// Where a variable lives; the numbers are shared with the symbol tables and
// the code generators.
enum StorageClass : int32_t {
  // In the data area of the linked image, reached through its link name.
  StaticStorage = 0,
  // In the stack frame, at the symbol's offset.
  LocalStorage = 1,
  // At an offset from the base reference that tac_Baseref set.
  ObjectStorage = 2,
};

// An operand of a line. Subclasses set `type` in their constructors.
class TacAddr {
public:
  virtual bool IsConstant() const = 0;
  // A signed 32-bit zero unless the operand is a constant: ask IsConstant first.
  virtual IRValue const& GetValue() const;
  virtual long StorageOffset() const;
  virtual StorageClass GetStorageClass() const;
  virtual string const& LinkName() const;
  virtual ~TacAddr();

  IRDataType type;
};

// A variable. Symbol-table entries embed one by value, hence the default
// constructor.
class SymbolAddr : public TacAddr {
public:
  SymbolAddr();
  SymbolAddr(StorageClass storage, IRDataType const& type, string const& linkName,
             unsigned int offset);

  bool IsConstant() const override { return false; }
  long StorageOffset() const override { return (long)offset; }
  StorageClass GetStorageClass() const override { return storageClass; }
  string const& LinkName() const override { return linkName; }

  StorageClass storageClass;
  string linkName;
  uint32_t offset;
};

class ConstAddr : public TacAddr {
public:
  // An Integer constant; also the form of a label.
  explicit ConstAddr(long value);
  // A String constant; also the form of a function's name at its label.
  explicit ConstAddr(string text);
  ConstAddr(IRValue const& value, IRDataType const& type);

  bool IsConstant() const override { return true; }
  IRValue const& GetValue() const override { return value; }

  IRValue value;
};

// Process-wide constants, made by InitTacConstants and never freed. Null
// before that call.
extern ConstAddr const* gTacOne;
extern ConstAddr const* gTacZero;
extern ConstAddr const* gTacTrue;
extern ConstAddr const* gTacFalse;
extern ConstAddr const* gTacFloatZero;
// The absent operand: an Integer 0 of the null type, recognised by pointer.
extern ConstAddr const* nilTacAddr;

// Makes the constants above where they are still null. The parser's global
// set-up calls it at the start of each compilation; later calls change nothing.
void InitTacConstants();

// The operand that names run-time intrinsic `index` at a tac_Intrinsic line;
// made on first use, outside any pool, and shared by all compilations.
TacAddr const* IntrinsicTacAddr(long index);

// One instruction, a node of a singly linked list.
struct TacLine {
  // `next` starts at 0.
  TacLine(TacOpcode op, TacAddr const* a, TacAddr const* b, TacAddr const* c, long line);
  // Copies all six fields, `next` included; AppendToList clears it.
  TacLine(TacLine const& other) = default;
  TacLine& operator=(TacLine const& other) = default;

  // The printed name of the opcode only, without operands.
  string toString() const;

  TacOpcode opcode;
  TacAddr const* a;
  TacAddr const* b;
  TacAddr const* c;
  // The source line, from the code that added the line; back-end errors and
  // the debugger's line index take it from here.
  long line;
  TacLine* next;
};

// A list of lines that owns them.
class TacBlock {
public:
  TacBlock() : first(nullptr), last(nullptr) {}
  TacBlock(TacBlock const&) = delete;
  TacBlock& operator=(TacBlock const&) = delete;
  virtual ~TacBlock();

  void AddLine(TacOpcode op, TacAddr const* a, TacAddr const* b, TacAddr const* c, long line);
  // Appends a copy of `line`.
  void AddLine(TacLine const& line);
  // Takes ownership of `line` and links it at the end, clearing its `next`.
  void AppendToList(TacLine* line);
  // Moves every line of `other` behind this block's lines in constant time;
  // `other` is left empty and may be filled again.
  void Append(TacBlock& other);
  bool IsEmpty() const { return first == nullptr; }

  TacLine* first;
  TacLine* last;
};

// while (it.Next()) use(it.Value());
class TacBlockIterator {
public:
  explicit TacBlockIterator(TacBlock const* block)
      : mBlock(block), mCurrent(nullptr), mStarted(false) {}
  // Moves to the first line on the first call, then to the next; false once
  // there is no current line.
  bool Next();
  TacLine* Value() const { return mCurrent; }

private:
  TacBlock const* mBlock;
  TacLine* mCurrent;
  // Tells "before the first line" from "past the last", where mCurrent is 0 in both.
  bool mStarted;
};

// Owns the constants of one compilation. Equal integers share one address,
// and so do strings with exactly the same bytes and encoding ("a" and "A"
// are two); Booleans are the two process-wide constants; every other
// constant gets an address of its own at each request.
class TacLiteralPool {
public:
  TacLiteralPool() = default;
  TacLiteralPool(TacLiteralPool const&) = delete;
  TacLiteralPool& operator=(TacLiteralPool const&) = delete;
  // Deletes every address in `owned`.
  virtual ~TacLiteralPool();

  TacAddr const* GetLiteral(long value);
  TacAddr const* GetLiteral(string text);
  TacAddr const* GetLiteral(IRValue const& value, IRDataType const& type);
  // Label numbers run from 1 and are never reused within a compilation.
  int32_t NewLabel() { return nextLabel++; }

  int32_t nextLabel = 1;
  // Every address that the pool made, and those of statics and object fields
  // that the compilation context keeps here.
  SimpleVector<TacAddr*> owned;
  IntMap<TacAddr*> integers;
  StringMapCase<TacAddr*> strings;
};

// Placeholder labels of tac_Jump lines, patched once the enclosing
// construct knows its target. Real labels are never negative.
constexpr long kUnresolvedExitTarget = -1;  // leave the enclosing construct
constexpr long kFunctionReturnTarget = -2;  // return from the function

// The pool of the compilation in progress (its context), current from the
// start of its compile to its end; null between compiles.
extern TacLiteralPool* gLiteralPool;
// Where literals go: the current compilation's pool, or outside a compile
// one pool kept for the process.
TacLiteralPool* CurrentTLP();

// A fresh label address from the current pool.
TacAddr const* NewLabel();
