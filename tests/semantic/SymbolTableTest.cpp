// Symbol tables: lookup through the chain of scopes, storage layout, the
// index surviving its rebuilds, and link names through the scopes a
// compilation opens.
#include "foundation/Utility.h"
#include "tests/frontend/CompileFixture.h"

namespace {

Ref<SymbolTable> Table(StorageClass storage = LocalStorage, Ref<SymbolTable> parent = Ref<SymbolTable>()) {
  return SymbolTable::New(parent, storage, string(""));
}

// Names match by upperMap, as string's operator== has them match: the hash
// must fold the same letters, the Mac Roman accented ones too.
TEST(SymbolTableLookup, FindsEveryCaseFoldedSpelling) {
  struct {
    char const* stored;
    char const* looked;
  } const kNames[] = {{"count", "COUNT"}, {"caf\x8E", "CAF\x83"}, {"\x8A\x9A\xBF", "\x80\x85\xAF"}};
  Ref<SymbolTable> table = Table();
  for (auto const& n : kNames) table->Store(string(n.stored), IRDataType(kTypeInteger));
  for (auto const& n : kNames) {
    SymbolID found;
    ASSERT_TRUE(table->Lookup(string(n.looked), nullptr, &found)) << n.stored;
    EXPECT_EQ(Text(found.Name()), n.stored);
  }
}

TEST(SymbolTable, LookupIgnoresCaseAndTheOlderOfTwoEqualNamesWins) {
  Ref<SymbolTable> table = Table();
  SymbolID first = table->Store(string("foo"), IRDataType(kTypeInteger));
  table->Store(string("FOO"), IRDataType(kTypeDouble));
  SymbolID found;
  ASSERT_TRUE(table->Lookup(string("Foo"), nullptr, &found));
  EXPECT_TRUE(found == first);
  EXPECT_EQ(Text(found.Name()), "foo");
  EXPECT_FALSE(table->Lookup(string("fo"), nullptr, nullptr));
  EXPECT_FALSE(table->Lookup(string("fooo"), nullptr, nullptr));
}

// foundIn moves only when the search leaves the first table; a closed
// (hibernated) table passes the search on to its parent.
TEST(SymbolTable, LookupWalksUpThroughOpenAndClosedScopes) {
  Ref<SymbolTable> outer = Table(StaticStorage);
  Ref<SymbolTable> middle = Table(LocalStorage, outer);
  Ref<SymbolTable> inner = Table(LocalStorage, middle);
  SymbolID global = outer->Store(string("g"), IRDataType(kTypeString));
  SymbolID local = inner->Store(string("l"), IRDataType(kTypeInteger));
  middle->Store(string("m"), IRDataType(kTypeInteger));
  middle->Hibernate();

  Ref<SymbolTable> foundIn = inner;
  SymbolID found;
  ASSERT_TRUE(inner->Lookup(string("G"), &foundIn, &found));
  EXPECT_TRUE(foundIn == outer);
  EXPECT_TRUE(found == global);
  Ref<SymbolTable> untouched;
  ASSERT_TRUE(inner->Lookup(string("l"), &untouched, &found));
  EXPECT_FALSE(untouched);
  EXPECT_FALSE(inner->Lookup(string("m"), nullptr, nullptr)) << "a closed scope is out of the search";
  // A miss leaves the symbol alone but has walked to the top.
  foundIn = inner;
  found = local;
  EXPECT_FALSE(inner->Lookup(string("nothing"), &foundIn, &found));
  EXPECT_TRUE(foundIn == outer);
  EXPECT_TRUE(found == local);
  EXPECT_FALSE(outer->Lookup(string("l"), nullptr, nullptr)) << "a parent never sees its children's symbols";
}

// Names that all hash to the index's last slot probe round to its start;
// enough names to rebuild the index several times are still all found by
// either case, and the walk keeps the storing order and the offsets.
TEST(SymbolTable, EveryNameIsFoundAcrossWrapsAndRebuilds) {
  Ref<SymbolTable> table = Table();
  uint32_t last = (uint32_t)table->indexSize - 1;
  std::vector<std::string> colliding;
  for (int i = 0; colliding.size() < 3 && i < 100000; ++i) {
    std::string n = "n" + std::to_string(i);
    if (SymbolTable::hashString(string(n.c_str())) % (last + 1) == last) colliding.push_back(n);
  }
  for (auto const& n : colliding) table->Store(string(n.c_str()), IRDataType(kTypeInteger));
  for (auto const& n : colliding) EXPECT_TRUE(table->Lookup(string(n.c_str()), nullptr, nullptr)) << n;

  table = Table();
  const int kCount = 300;
  for (int i = 0; i < kCount; ++i) table->Store(string("v") + ultoa(i), IRDataType(kTypeInteger));
  for (int i = 0; i < kCount; ++i) {
    SymbolID found;
    ASSERT_TRUE(table->Lookup(string("V") + ultoa(i), nullptr, &found)) << i;
    EXPECT_EQ(found.StorageOffset(), 4 * i);
  }
  SymbolTableIterator it(table);
  int seen = 0;
  while (it.Next()) EXPECT_EQ(Text(it.Value().Name()), "v" + std::to_string(seen++));
  EXPECT_EQ(seen, kCount);
}

TEST(SymbolTable, StorageFollowsBySizeAndAnExplicitOffsetOnlyRaisesTheTotal) {
  Ref<SymbolTable> table = Table(ObjectStorage);
  EXPECT_EQ(table->Store(string("i"), IRDataType(kTypeInteger)).StorageOffset(), 0);
  EXPECT_EQ(table->Store(string("d"), IRDataType(kTypeDouble)).StorageOffset(), 4);
  SymbolID s = table->Store(string("s"), IRDataType(kTypeString));
  EXPECT_EQ(s.GetAddr()->StorageOffset(), 12);
  EXPECT_EQ(table->GetTotalStorage(), 16);
  SymbolID high = table->Store(string("high"), IRDataType(kTypeDouble), 20, false);
  SymbolID low = table->Store(string("low"), IRDataType(kTypeInteger), 0, true);
  EXPECT_EQ(table->GetTotalStorage(), 28);
  EXPECT_FALSE(high.FinalizationAllowed());
  EXPECT_TRUE(low.FinalizationAllowed());
  EXPECT_EQ(table->Store(string("next"), IRDataType(kTypeInteger)).StorageOffset(), 28);
  EXPECT_EQ(s.GetAddr()->GetStorageClass(), ObjectStorage);
  // Contains is by identity, not name.
  EXPECT_TRUE(table->Contains(s));
  EXPECT_FALSE(table->Contains(Table()->Store(string("s"), IRDataType(kTypeString))));
  EXPECT_FALSE(table->Contains(SymbolID()));
  EXPECT_EQ(SymbolID().GetAddr(), nilTacAddr);
}

class SymbolScopes : public CompileFixture {};

TEST_F(SymbolScopes, LinkNamesAreQualifiedByEveryNamedScopeButLocals) {
  const struct {
    StorageClass storage;
    char const* scope;
    char const* linkName;
    char const* printed;
  } kCases[] = {
      {StaticStorage, "Foo", "Foo.bar", "g_Foo.bar"},
      {StaticStorage, "", "bar", "g_bar"},
      {ObjectStorage, "Foo", "Foo.bar", "o_Foo.bar"},
      {LocalStorage, "Foo", "bar", "l_bar"},
  };
  for (auto const& c : kCases) {
    NewSymTable(c.storage, string(c.scope));
    SymbolID s = AddSymbol(Ident("bar"));
    EXPECT_EQ(Text(s.GetAddr()->LinkName()), c.linkName) << c.printed;
    EXPECT_EQ(Text(s.toString()), c.printed);
    PopSymTable();
  }
  NewSymTable(StaticStorage, string("Outer"));
  NewSymTable(StaticStorage, string(""));
  NewSymTable(StaticStorage, string("Inner"));
  EXPECT_EQ(Text(AddSymbol(Ident("v")).LinkName()), "Outer.Inner.v");
  NewSymTable(LocalStorage, string("Inner.Method"));
  EXPECT_EQ(Text(AddSymbol(Ident("v")).LinkName()), "v");
}

// A popped scope leaves the search, but the list keeps its table and its
// symbols for the code that uses them.
TEST_F(SymbolScopes, PopHibernatesAndTheListKeepsTheTable) {
  Ref<SymbolTableList> list = CurrentSymbolTableList();
  Ref<SymbolTable> global = CurrentSymbolTable();
  EXPECT_TRUE(list->GetGlobalTable() == global);
  unsigned long first = NewSymTable(LocalStorage, string("f"));
  unsigned long second = NewSymTable(LocalStorage, string("g"));
  SymbolID kept = AddSymbol(Ident("kept", IRDataType(kTypeDouble)));
  PopSymTable();
  EXPECT_TRUE(CurrentSymbolTable() == list->GetTable(first));
  EXPECT_FALSE(CurrentSymbolTable()->Lookup(string("kept"), nullptr, nullptr));
  EXPECT_TRUE(list->GetTable(second)->Contains(kept));
  EXPECT_EQ(list->GetTable(second)->GetTotalStorage(), 8);
  PopSymTable();
  EXPECT_TRUE(CurrentSymbolTable() == global);
  EXPECT_EQ(list->CountTables(), 3u);
}

}  // namespace
