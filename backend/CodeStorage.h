// Buffers that generated code lives in, and the module a code generator hands
// to the linker.
//
// Invariants:
// - A DataBlock writes and reads its multi-byte fields in its own byte order
//   (`bigEndian`), never the order of the machine running the compiler, so a
//   back end for either target runs on a host of either order.
// - `length <= capacity`; `buffer` is null until the first allocation and
//   otherwise holds exactly `capacity` bytes from array new.
// - Reads and writes at a given offset stay inside `capacity`: a field that
//   would cross it reads as 0 and is not written.
// - Every Import of a FunctionBlock names a byte offset into that block.
//   FunctionBlock::Append(Ref<FunctionBlock>) is the one way code is joined,
//   and it moves the fix-ups with the bytes, so they stay true.
#pragma once

#include <cstdint>

#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "foundation/StringMap.h"
#include "runtime/RuntimeExceptionFoundation.h"

// Growth steps of a DataBlock: code is written a byte or a word at a time, so
// steps double from 16 bytes to 4096 to spare reallocations. A block larger
// than that grows by half its size at least: the linker appends every
// function into one block, and fixed steps would copy a block of n bytes n /
// 4096 times, compile time growing with the square of the program.
constexpr uint32_t kMinGrowAmount = 16;
constexpr uint32_t kMaxGrowAmount = 4096;

class FunctionBlock;

class DataBlock {
public:
  // An empty block that works in the given byte order.
  explicit DataBlock(bool bigEndian);
  // A block in the byte order of the machine running the compiler, holding a
  // copy of `count` bytes of `data` (none for a null pointer or a count below 1).
  DataBlock(void* data, int count);
  DataBlock(DataBlock const&) = delete;
  DataBlock& operator=(DataBlock const&) = delete;
  virtual ~DataBlock();

  // Append the other block's `length` bytes; its byte order is not consulted.
  // A null or empty block appends nothing.
  virtual void Append(Ref<DataBlock> other);
  virtual void Append(Ref<FunctionBlock> other);
  virtual void Append(char const* data, unsigned long count);

  unsigned int Length() const { return length; }
  char* Buffer() const { return buffer; }
  bool BigEndian() const { return bigEndian; }
  // Sets the capacity to exactly `newLength` and the length with it.
  void SetLength(unsigned int newLength);

  void Append8(unsigned long value);
  void Append16(unsigned long value);
  void Append32(unsigned long value);

  unsigned long Get8(unsigned int offset) const;
  unsigned long Get16(unsigned int offset) const;
  unsigned long Get32(unsigned int offset) const;
  void Set8(unsigned int offset, unsigned long value);
  void Set16(unsigned int offset, unsigned long value);
  void Set32(unsigned int offset, unsigned long value);

  // A new block of this byte order holding `count` bytes from `offset`; bytes
  // past `length` are not copied, so the result may be shorter.
  Ref<DataBlock> Get(unsigned int offset, unsigned int count) const;
  // Replaces the `count` bytes at `offset` with `other`, which may be of any
  // length; the bytes behind move. The pieces go in through the virtual
  // Append(Ref<DataBlock>), so a block that refuses plain bytes keeps none.
  void Set(unsigned int offset, unsigned int count, Ref<DataBlock> other);

  char* buffer;
  uint32_t capacity;
  uint32_t length;
  // The next growth step; 0 until the first growth, then kept within
  // kMinGrowAmount..kMaxGrowAmount.
  uint32_t growAmount;
  bool bigEndian;

protected:
  // Makes room for `extra` more bytes behind `length`.
  void growby(unsigned int extra);
  // Sets the capacity to exactly `newCapacity`, cutting `length` if need be.
  void resize(unsigned int newCapacity);
  // Copies bytes in; they may lie in this block's own buffer.
  void AppendBytes(char const* data, unsigned long count);

private:
  void set_machine_byte_order();
  bool Fits(unsigned int offset, unsigned int size) const {
    return offset <= capacity && capacity - offset >= size;
  }
  // Writes `size` bytes of `value` at `at` in the block's byte order.
  void Store(unsigned int at, unsigned long value, unsigned int size);
  unsigned long Load(unsigned int at, unsigned int size) const;
};

// One fix-up: a field of a block that the linker fills in.
struct Import {
  enum Type {
    kCallPPC = 0,         // bl whose 26-bit displacement is filled in
    kCallIA32 = 1,        // rel32 of an E8 call
    kDataPPC = 2,         // 16-bit field taking a global's offset in the data area
    kDataIA32 = 3,        // 32-bit absolute address of a global
    kCodePtrPPC = 4,      // 16-bit field forming a function pointer (la, or ori of a pair)
    kCodePtrHighPPC = 5,  // lis of a function pointer's lis, ori pair
    kCodePtrBasePPC = 6,  // add of the data area's register to that pair
    kCodePtrIA32 = 7,     // 32-bit absolute code address
    kStringPPC = 8,       // 16-bit field of a string slot's load (lwz, or ori of a pair)
    kStringHighPPC = 9,   // lis of such a pair
    kStringIA32 = 10,     // 32-bit immediate taking a string record's address
    kPicBasePPC = 11,     // mflr taking the position base in a prolog
    kPicLowPPC = 12,      // ori of that prolog's lis, ori pair
    kPicHighPPC = 13,     // lis of that pair
  };
  static constexpr int kTypeCount = 14;

  Import() : type(kCallPPC), offset(0) {}
  Import(Type t, string const& n, string const& lib, int32_t off)
      : type(t), name(n), library(lib), offset(off) {}

  Type type;
  // The symbol, global or string literal the field refers to.
  string name;
  // Second name of a call or function pointer; carried, never read by the linker.
  string library;
  // Byte offset in the block of the field to patch.
  int32_t offset;
};

// A function's code: a DataBlock with its link name and fix-ups.
class FunctionBlock : public DataBlock {
public:
  explicit FunctionBlock(bool bigEndian) : DataBlock(bigEndian) {}

  // Code is joined only with its fix-ups, so plain bytes are refused.
  void Append(Ref<DataBlock> other) override;
  // Takes the other block's imports, handler events and raise lines, moved
  // by this block's length, then its bytes.
  void Append(Ref<FunctionBlock> other) override;
  using DataBlock::Append;

  // Records a fix-up `extra` bytes behind the current end: the caller marks
  // just before writing the instruction whose field it names.
  void MarkImport(Import::Type type, string name, string library, int extra);
  void MarkImport(Import::Type type, string name, int extra);

  // Records a handler event at the current end (a handler's resume point at
  // `resume`), and the line of the code written from here on.
  void MarkHandlerEvent(HandlerEventKind kind, int32_t resume = 0);
  void MarkRaiseLine(int32_t line);

  SimpleVector<Import> imports;
  // In ascending offsets, as written; the linker's handler table is made of them.
  SimpleVector<HandlerEvent> handlerEvents;
  SimpleVector<RaiseLineEntry> raiseLines;
  string name;
};

// One entry of a line index: code at `offset` and on was made from `line`.
struct cotlis {
  int32_t offset;
  int32_t line;
};

// Maps code offsets of one function to source lines, for the debugger.
class CodeOffsetToLineIndex {
public:
  // Appends unless the last entry has the same line: a run of one line keeps
  // only its first offset. Offsets must come in ascending order.
  void AddEntry(int offset, int line);
  // The line of the last entry whose offset is not above `offset`; -1 if none.
  int LookupLine(int offset) const;

  SimpleVector<cotlis> entries;
};

// What a code generator hands to the linker.
class CodeModule {
public:
  enum Family {
    kFamilyNone = 0,  // not yet set by a generator
    kFamilyPPC = 1,
    kFamilyIA32 = 2,
  };

  CodeModule() : family(kFamilyNone) {}
  CodeModule(CodeModule const&) = delete;
  CodeModule& operator=(CodeModule const&) = delete;

  // New blocks in the family's byte order; null while no family is set.
  Ref<FunctionBlock> MakeFunctionBlock() const;
  Ref<DataBlock> MakeDataBlock() const;

  // In order of generation; entry 0 is "% main", the entry point once linked.
  SimpleVector<Ref<FunctionBlock>> functions;
  // Link name to size in bytes of every global the code touches.
  StringMap<unsigned int> globalSizes;
  Family family;
};
