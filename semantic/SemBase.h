// The semantic values: everything that the grammar's actions receive and
// hand up is a Ref<SemBase>. There is no syntax tree; an action emits
// three-address code at once and joins pieces of code by moving lines.
//
// Invariants:
// - SemIdentifier, SemList, SemValue and SemCode derive from SemBase and
//   nothing derives further. A plain SemBase is the value of tokens that
//   have none (kNullSemBase), which is not the same as a null handle.
// - An expression is a SemValue (no code needed) or a SemCode whose result
//   names what its lines leave. GetType and GetAddr forward through a
//   SemCode's result; IsConstant, IsSymbol and GetValue do not.
// - Lists chain their elements through the elements' own `next`, so a value
//   stands in at most one list at a time.
// - A wrong-kind operation is a silent no-op that yields a null handle, a
//   null pointer or the null type: every routine tolerates any kind.
// - A SemValue's address is not owned: it lives as long as its symbol
//   table or the literal pool of the compilation.
#pragma once

#include <cstdint>

#include "ir/ThreeAddressCode.h"
#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "diag/SourceLocation.h"
#include "ir/DataTypes.h"

struct SymbolTableEntry;

// A handle on one symbol-table entry, copied freely; equality is identity
// of the entry. The entry and the operations that read it belong to the
// symbol tables; the handle is declared here because code keeps lists of
// its temporaries by SymbolID.
class SymbolID {
public:
  SymbolID() : mEntry(nullptr) {}
  explicit SymbolID(SymbolTableEntry* entry) : mEntry(entry) {}

  bool IsNull() const { return mEntry == nullptr; }
  bool operator==(SymbolID const& other) const { return mEntry == other.mEntry; }
  bool operator!=(SymbolID const& other) const { return mEntry != other.mEntry; }
  SymbolTableEntry* Entry() const { return mEntry; }

  // These need a non-null handle.
  string Name() const;
  IRDataType GetType() const;
  string LinkName() const;
  long StorageOffset() const;
  StorageClass GetStorageClass() const;
  // nilTacAddr for a null handle.
  TacAddr const* GetAddr() const;
  // False for a null handle.
  bool UserVisible() const;
  // No effect on a null handle.
  void SetUserVisible(bool visible) const;
  bool InitializationAllowed() const;
  bool FinalizationAllowed() const;
  void ProhibitInitialization() const;
  // Storage-class prefix and link name; empty for a null handle.
  string toString() const;

private:
  SymbolTableEntry* mEntry;
};

// Four-character kind tags, set by each constructor.
constexpr uint32_t kSemBaseTag = 0x42617365;        // 'Base'
constexpr uint32_t kSemIdentifierTag = 0x4964656E;  // 'Iden'
constexpr uint32_t kSemListTag = 0x4C697374;        // 'List'
constexpr uint32_t kSemValueTag = 0x56616C75;       // 'Valu'
constexpr uint32_t kSemCodeTag = 0x436F6465;        // 'Code'

class SemBase {
public:
  // A plain value with no contents.
  static Ref<SemBase> New();

  virtual ~SemBase();
  virtual string toString() const;
  virtual bool IsList() const;
  virtual bool IsSymbol() const;
  virtual bool IsIdentifier() const;
  virtual bool IsConstant() const;
  virtual void Append(Ref<SemBase> item);
  virtual Ref<SemBase> GetContents() const;
  virtual Ref<SemBase> GetNext() const;
  virtual Ref<SemBase> Clone() const;
  // The lines of a SemCode; null for every other kind.
  virtual TacBlock* Code();
  virtual void AddLine(TacOpcode op, TacAddr const* a, TacAddr const* b, TacAddr const* c);
  virtual Ref<SemBase> NewTemp(IRDataType const& type, SourceLocation const* loc);
  // The temporaries of a SemCode; null for every other kind.
  virtual SimpleVector<SymbolID>* Temporaries();
  virtual void SetType(IRDataType type);
  virtual IRDataType GetType() const;
  virtual IRValue GetValue() const;
  virtual TacAddr const* GetAddr() const;

  SourceLocation& Location() { return location; }
  SourceLocation const& Location() const { return location; }
  // Widens this value's range to cover `loc` as well.
  void IncludeLocation(SourceLocation const& loc) { location = location + loc; }
  // Where wrong-kind calls report; it ignores them.
  void Error(char const* message) const;

  uint32_t tag;
  SourceLocation location;
  // The following element while this value stands in a list.
  Ref<SemBase> next;

protected:
  // Starts at the lexer's current line, offsets unknown.
  SemBase();
};

class SemIdentifier : public SemBase {
public:
  // At the lexer's current line.
  static Ref<SemBase> New(string name);
  static Ref<SemBase> New(string name, SourceLocation const& loc);

  string toString() const override;
  bool IsIdentifier() const override { return true; }
  // A new identifier with the same name and location and the null type.
  Ref<SemBase> Clone() const override;
  void SetType(IRDataType type) override { dataType = type; }
  IRDataType GetType() const override { return dataType; }

  IRDataType dataType;
  string name;

protected:
  explicit SemIdentifier(string name);
};

class SemList : public SemBase {
public:
  // A list of the one element `first` (and whatever chain follows it).
  static Ref<SemBase> New(Ref<SemBase> first);

  ~SemList() override;
  string toString() const override;
  bool IsList() const override { return true; }
  // Links `item`, and any chain behind it, at the end.
  void Append(Ref<SemBase> item) override;
  Ref<SemBase> GetContents() const override { return head; }
  // Deep: every element is cloned. The list must have a first element.
  Ref<SemBase> Clone() const override;
  void SetType(IRDataType type) override;

  Ref<SemBase> head;
  // Where Append starts walking towards the end.
  Ref<SemBase> tail;

protected:
  explicit SemList(Ref<SemBase> first);
};

class SemValue : public SemBase {
public:
  // `loc` may be null, which keeps the lexer's current line.
  static Ref<SemBase> New(TacAddr const* addr, SourceLocation const* loc);

  // The constant's text, or "Symbol" and the operand's identity.
  string toString() const override;
  bool IsSymbol() const override;
  bool IsConstant() const override;
  Ref<SemBase> Clone() const override;
  // A value's type is its operand's; asking to change it is refused.
  void SetType(IRDataType type) override;
  IRDataType GetType() const override;
  IRValue GetValue() const override;
  TacAddr const* GetAddr() const override { return addr; }

  TacAddr const* addr;

protected:
  explicit SemValue(TacAddr const* addr);
};

class SemCode : public SemBase {
public:
  // Code whose result is a fresh temporary of `type`; with the null type
  // there is no result. `loc` may be null.
  static Ref<SemBase> New(IRDataType const& type, SourceLocation const* loc);
  // Code with no lines whose result is `result`; makes no temporary.
  static Ref<SemBase> NewValueWrapper(Ref<SemBase> result, SourceLocation const* loc);

  ~SemCode() override;
  string toString() const override;
  // Moves the lines of `other` (a SemCode) to the end of this code and adds
  // its temporaries to this list; `other` keeps its temporaries and its
  // result, and this code keeps its own result.
  void Append(Ref<SemBase> other) override;
  // Shares the result object; copies the lines and the temporaries list.
  Ref<SemBase> Clone() const override;
  TacBlock* Code() override { return &code; }
  // The line takes this code's start line.
  void AddLine(TacOpcode op, TacAddr const* a, TacAddr const* b, TacAddr const* c) override;
  // Stores a hidden symbol in the current symbol table, adds it to this
  // code's temporaries and returns a value for it. The result is untouched.
  Ref<SemBase> NewTemp(IRDataType const& type, SourceLocation const* loc) override;
  SimpleVector<SymbolID>* Temporaries() override { return &temporaries; }
  IRDataType GetType() const override;
  TacAddr const* GetAddr() const override;

  TacBlock code;
  // What the code leaves, usually a SemValue; null for code that leaves nothing.
  Ref<SemBase> result;
  // Made for this code and not yet finalised by the statement around it.
  SimpleVector<SymbolID> temporaries;

protected:
  explicit SemCode(SourceLocation const* loc);
};

// The value of tokens that carry none: a plain SemBase that the lexer binds
// afresh at the start of each run.
extern Ref<SemBase> kNullSemBase;

// The name of the next temporary: eight upper-case hexadecimal digits of a
// counter, which then moves on; it wraps at 2^32. Each compilation counts
// from 0 (see CompileScope), so a text compiles to the same names whatever
// was compiled before it.
string NextTemporaryName();
// Sets the counter to `next` and returns what it was, so that a compilation
// can give back the counter it found.
uint32_t ExchangeTemporaryCounter(uint32_t next);
// The spelling NextTemporaryName uses for `number`.
string TemporaryName(uint32_t number);

// Join list elements. A null operand yields the other one unchanged, so a
// one-element "list" may be a bare value. A list on the right is spliced,
// never nested. The first operand may be changed in place and returned.
Ref<SemBase> ConcatList(Ref<SemBase> a, Ref<SemBase> b);
// As ConcatList, but a SemCode on the left takes in the right operand's
// lines instead of starting a list.
Ref<SemBase> ConcatSemBase(Ref<SemBase> a, Ref<SemBase> b);
// Appends the code of `b` to `a` and returns `a` (or `b` if `a` is null).
Ref<SemBase> ConcatCode(Ref<SemBase> a, Ref<SemBase> b);
