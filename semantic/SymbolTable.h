// Symbol tables: the variables of one scope each (a function's locals, a
// class's fields, the program's globals), with their storage offsets. A
// name is searched from the innermost open table outward through `parent`.
// Methods, properties, constants and classes are not here: they live in the
// declaration tables.
//
// Invariants:
// - A table owns its entries. Every SymbolID and every SymbolAddr pointer
//   taken from a table lives exactly as long as the table; the compilation
//   keeps every table in its SymbolTableList, so TAC operands stay valid
//   until the context goes.
// - Storage is packed: a symbol sits at the offset it was given, totalStorage
//   is the largest offset + size so far, and nothing is aligned or padded.
// - The index is open-addressed and at most half full; its size starts at 17
//   and doubles when a symbol would take it past half. A closed (hibernated)
//   table has no index: it keeps its symbols for the back end but is neither
//   searched nor stored into.
// - Names compare without regard to case, as string's operator== does, and
//   the hash folds case by the same table to match; it is keyed (KeyedHash.h),
//   so no script can crowd its names into one probe run. The name keeps its
//   declared spelling.
#pragma once

#include <cstdint>

#include "ir/ThreeAddressCode.h"
#include "foundation/Ref.h"
#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "semantic/SemBase.h"
#include "ir/DataTypes.h"

// One symbol. The TAC operand is embedded, so its address is the symbol's
// identity for the code generators.
struct SymbolTableEntry {
  SymbolTableEntry(string const& declaredName, SymbolAddr const& address)
      : name(declaredName),
        addr(address),
        initializationAllowed(true),
        finalizationAllowed(true),
        userVisible(true) {}

  string name;
  SymbolAddr addr;
  // Cleared for parameters, whose values the initialisation of locals
  // must leave alone.
  bool initializationAllowed;
  bool finalizationAllowed;
  // False for temporaries, which the debugger symbols leave out.
  bool userVisible;
};

// The slots of a new index: a prime, so that the probe sequence spreads.
constexpr int32_t kInitialIndexSize = 17;

class SymbolTable {
public:
  SymbolTable();
  SymbolTable(Ref<SymbolTable> parentTable, StorageClass storage, string scopeName);
  SymbolTable(SymbolTable const&) = delete;
  SymbolTable& operator=(SymbolTable const&) = delete;
  // Deletes every entry, so every SymbolID and SymbolAddr of this table dies.
  virtual ~SymbolTable();

  static Ref<SymbolTable> New(Ref<SymbolTable> parentTable, StorageClass storage,
                              string scopeName);

  // At offset totalStorage, with finalization allowed.
  SymbolID Store(string name, IRDataType const& type);
  // Does not look for duplicates: of two equal names, Lookup finds the older.
  SymbolID Store(string name, IRDataType const& type, int offset, bool finalizationAllowed);
  // Searches this table, then its ancestors. Either out-parameter may be
  // null. `foundIn` is written only when the search moves to a parent, so a
  // caller who wants the table of the hit presets it to this table.
  bool Lookup(string name, Ref<SymbolTable>* foundIn, SymbolID* symbol);
  // Makes `symbol`, an entry of this table, unreachable by name: a later
  // entry of the same name takes its place for lookups. The entry keeps its
  // storage and is still initialised and finalised with the table's others.
  void Retire(SymbolID symbol);
  // By identity, in this table alone.
  bool Contains(SymbolID symbol) const;
  void ResizeIndex(int newSize);
  void AddToIndex(SymbolID const& symbol);
  static uint32_t hashString(string const& s);
  // Frees the index: the state of a closed scope.
  void Hibernate();
  int32_t GetTotalStorage() const { return totalStorage; }
  void DebugPrint();

  Ref<SymbolTable> parent;
  // The class of every symbol stored here.
  StorageClass storageClass;
  // Qualifies the link names of non-local symbols; empty for most scopes.
  string name;
  int32_t totalStorage;
  // In order of storing; the back end walks them in this order.
  SimpleVector<SymbolID> symbols;
  // A null SymbolID marks a free slot.
  SymbolID* index;
  int32_t indexSize;
};

// Every table of one compilation, so that tables outlive their scopes.
class SymbolTableList {
public:
  // The new table's position, from 0.
  unsigned long AddTable(Ref<SymbolTable> table);
  Ref<SymbolTable> GetTable(unsigned long at) const;
  // The program's globals: the first table entered.
  Ref<SymbolTable> GetGlobalTable() const;
  unsigned long CountTables() const { return tables.size(); }

  SimpleVector<Ref<SymbolTable>> tables;
};

// while (it.Next()) use(it.Value());
class SymbolTableIterator {
public:
  explicit SymbolTableIterator(Ref<SymbolTable> table) : mTable(table), mPosition(-1) {}
  bool Next();
  SymbolID Value() const;

private:
  Ref<SymbolTable> mTable;
  long mPosition;
};

// The symbol tables of the compilation that gContext names: its innermost
// open table and its list of all tables. The first use for a context makes
// the list with a global table (StaticStorage, no name) at index 0. Null
// handles while there is no compilation.
Ref<SymbolTable> CurrentSymbolTable();
Ref<SymbolTableList> CurrentSymbolTableList();
// Starts the tables of the compilation `gContext` afresh: a new list whose
// only table is the global one, which is also made current. A compilation
// calls this once at its start, so that a context made at the address of a
// dead one does not inherit the dead one's tables.
void ResetSymbolTables();

// Opens a scope under the current table and makes it current; returns its
// position in the list.
unsigned long NewSymTable(StorageClass storage, string name);
// Closes the innermost scope: hibernates it and makes its parent current.
void PopSymTable();
// Stores the identifier, by its name and type, in the current table; a null
// SymbolID without an identifier or a compilation.
SymbolID AddSymbol(Ref<SemBase> identifier);
