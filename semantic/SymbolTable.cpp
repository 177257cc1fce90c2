#include "semantic/SymbolTable.h"

#include <cstdio>

#include "foundation/KeyedHash.h"
#include "foundation/KvAssert.h"
#include "semantic/NameScope.h"
#include "semantic/NameMangler.h"

NameScope* gNameScope = nullptr;

// SymbolID: the entry's data. The handle is declared beside the semantic
// values, which keep lists of temporaries by it.

string SymbolID::Name() const { return mEntry->name; }
IRDataType SymbolID::GetType() const { return mEntry->addr.type; }
string SymbolID::LinkName() const { return mEntry->addr.linkName; }
long SymbolID::StorageOffset() const { return mEntry->addr.StorageOffset(); }
StorageClass SymbolID::GetStorageClass() const { return mEntry->addr.storageClass; }

TacAddr const* SymbolID::GetAddr() const {
  if (!mEntry) return nilTacAddr;
  return &mEntry->addr;
}

bool SymbolID::UserVisible() const { return mEntry && mEntry->userVisible; }

void SymbolID::SetUserVisible(bool visible) const {
  if (mEntry) mEntry->userVisible = visible;
}

bool SymbolID::InitializationAllowed() const { return mEntry->initializationAllowed; }
bool SymbolID::FinalizationAllowed() const { return mEntry->finalizationAllowed; }
void SymbolID::ProhibitInitialization() const { mEntry->initializationAllowed = false; }

// The debugger and listings tell the storage classes apart by these.
static char const* const kStoragePrefixes[] = {"g_", "l_", "o_"};
static_assert(sizeof(kStoragePrefixes) / sizeof(kStoragePrefixes[0]) == ObjectStorage + 1,
              "one prefix per storage class");

string SymbolID::toString() const {
  if (!mEntry) return string();
  unsigned storage = (unsigned)mEntry->addr.storageClass;
  KV_ASSERT(storage <= ObjectStorage);
  char const* prefix = storage <= ObjectStorage ? kStoragePrefixes[storage] : "";
  return string(prefix) + mEntry->addr.linkName;
}

// SymbolTable

SymbolTable::SymbolTable()
    : storageClass(StaticStorage),
      totalStorage(0),
      index(new SymbolID[kInitialIndexSize]),
      indexSize(kInitialIndexSize) {}

SymbolTable::SymbolTable(Ref<SymbolTable> parentTable, StorageClass storage, string scopeName)
    : SymbolTable() {
  parent = parentTable;
  storageClass = storage;
  name = scopeName;
}

SymbolTable::~SymbolTable() {
  for (unsigned long i = 0; i < symbols.size(); ++i) delete symbols[i].Entry();
  delete[] index;
}

Ref<SymbolTable> SymbolTable::New(Ref<SymbolTable> parentTable, StorageClass storage,
                                  string scopeName) {
  Ref<SymbolTable> table;
  table.BindNewObject(new SymbolTable(parentTable, storage, scopeName));
  return table;
}

SymbolID SymbolTable::Store(string symbolName, IRDataType const& type) {
  return Store(symbolName, type, totalStorage, true);
}

SymbolID SymbolTable::Store(string symbolName, IRDataType const& type, int offset,
                            bool finalizationAllowed) {
  // Locals are reached through the frame, so only statics and fields carry
  // the path of the scopes that hold them.
  string linkName = symbolName;
  if (storageClass != LocalStorage) {
    linkName = QualifyName(name, linkName);
    for (SymbolTable* up = parent.Get(); up; up = up->parent.Get())
      linkName = QualifyName(up->name, linkName);
  }
  SymbolTableEntry* entry =
      new SymbolTableEntry(symbolName, SymbolAddr(storageClass, type, linkName, (unsigned)offset));
  entry->finalizationAllowed = finalizationAllowed;
  int32_t end = offset + type.StorageSize();
  if (end > totalStorage) totalStorage = end;

  SymbolID symbol(entry);
  symbols.push_back(symbol);
  // A closed scope keeps what it is given but has no index to enter it in.
  KV_ASSERT(index);
  if (!index) return symbol;
  if ((long)symbols.size() > indexSize / 2) ResizeIndex(indexSize * 2);
  AddToIndex(symbol);
  return symbol;
}

bool SymbolTable::Lookup(string symbolName, Ref<SymbolTable>* foundIn, SymbolID* symbol) {
  if (symbols.size() > 0 && index) {
    uint32_t slot = hashString(symbolName) % (uint32_t)indexSize;
    while (!index[slot].IsNull()) {
      if (index[slot].Entry()->name == symbolName) {
        if (symbol) *symbol = index[slot];
        return true;
      }
      if (++slot == (uint32_t)indexSize) slot = 0;
    }
  }
  if (!parent) return false;
  if (foundIn) *foundIn = parent;
  return parent->Lookup(symbolName, foundIn, symbol);
}

// A name no identifier can spell, so no lookup finds the entry again; the
// index is built anew, as it is keyed by names.
void SymbolTable::Retire(SymbolID symbol) {
  if (symbol.IsNull() || !Contains(symbol)) return;
  symbol.Entry()->name = symbol.Entry()->name + string("#retired");
  if (index) ResizeIndex(indexSize);
}

bool SymbolTable::Contains(SymbolID symbol) const {
  SimpleVector<SymbolID> const& all = symbols;
  for (unsigned long i = 0; i < all.size(); ++i)
    if (all[i] == symbol) return true;
  return false;
}

void SymbolTable::ResizeIndex(int newSize) {
  KV_ASSERT(newSize > 0);
  // Made before the old one goes, so a failed allocation leaves the table whole.
  SymbolID* grown = new SymbolID[newSize];
  delete[] index;
  index = grown;
  indexSize = newSize;
  SimpleVector<SymbolID> const& all = symbols;
  for (unsigned long i = 0; i < all.size(); ++i) AddToIndex(all[i]);
}

void SymbolTable::AddToIndex(SymbolID const& symbol) {
  uint32_t slot = hashString(symbol.Entry()->name) % (uint32_t)indexSize;
  while (!index[slot].IsNull())
    if (++slot == (uint32_t)indexSize) slot = 0;
  index[slot] = symbol;
}

uint32_t SymbolTable::hashString(string const& s) {
  return KeyedHashFoldingCase(s.CString(), s.Length());
}

void SymbolTable::Hibernate() {
  if (!index) return;
  delete[] index;
  index = nullptr;
  indexSize = 0;
}

void SymbolTable::DebugPrint() {
  printf("[%d bytes total]\n", (int)totalStorage);
  SimpleVector<SymbolID> const& all = symbols;
  for (unsigned long i = 0; i < all.size(); ++i) {
    SymbolTableEntry const* entry = all[i].Entry();
    printf("%5d. SYMBOL: %s ", (int)i, entry->name.CString());
    printf("(type %d, offset %d)\n", (int)entry->addr.type.GetMainType(), (int)entry->addr.offset);
  }
  if (parent) {
    printf("\nInherited symbols:");
    parent->DebugPrint();
  }
}

// SymbolTableList

unsigned long SymbolTableList::AddTable(Ref<SymbolTable> table) {
  tables.push_back(table);
  return tables.size() - 1;
}

Ref<SymbolTable> SymbolTableList::GetTable(unsigned long at) const {
  SimpleVector<Ref<SymbolTable>> const& all = tables;
  KV_ASSERT(at < all.size());
  return at < all.size() ? all[at] : Ref<SymbolTable>();
}

Ref<SymbolTable> SymbolTableList::GetGlobalTable() const { return GetTable(0); }

// SymbolTableIterator

bool SymbolTableIterator::Next() {
  if (!mTable) return false;
  ++mPosition;
  return mPosition < (long)mTable->symbols.size();
}

SymbolID SymbolTableIterator::Value() const {
  SimpleVector<SymbolID> const& all = mTable->symbols;
  if (mPosition < 0 || mPosition >= (long)all.size()) return SymbolID();
  return all[(unsigned long)mPosition];
}

void ResetSymbolTables() {
  if (!gNameScope) return;
  gNameScope->tables.BindNewObject(new SymbolTableList());
  gNameScope->currentTable = SymbolTable::New(Ref<SymbolTable>(), StaticStorage, string());
  gNameScope->tables->AddTable(gNameScope->currentTable);
}

Ref<SymbolTable> CurrentSymbolTable() {
  return gNameScope ? gNameScope->currentTable : Ref<SymbolTable>();
}

Ref<SymbolTableList> CurrentSymbolTableList() {
  return gNameScope ? gNameScope->tables : Ref<SymbolTableList>();
}

unsigned long NewSymTable(StorageClass storage, string name) {
  KV_ASSERT(gNameScope);
  if (!gNameScope) return 0;
  Ref<SymbolTable> table = SymbolTable::New(gNameScope->currentTable, storage, name);
  unsigned long at = gNameScope->tables->AddTable(table);
  gNameScope->currentTable = table;
  return at;
}

void PopSymTable() {
  KV_ASSERT(gNameScope);
  if (!gNameScope) return;
  Ref<SymbolTable>& current = gNameScope->currentTable;
  KV_ASSERT(current->parent);
  // The outermost table stays current: there is nothing to return to.
  if (!current->parent) return;
  current->Hibernate();
  current = Ref<SymbolTable>(current->parent);
}

SymbolID AddSymbol(Ref<SemBase> identifier) {
  Ref<SymbolTable> table = CurrentSymbolTable();
  if (!identifier || !table) return SymbolID();
  return table->Store(identifier->toString(), identifier->GetType());
}
