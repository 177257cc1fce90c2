#include <gtest/gtest.h>

#include "foundation/utility.h"
#include "symbols_fixture.h"

namespace {

Ref<SymbolTable> Table(StorageClass storage = LocalStorage, char const* name = "",
                       Ref<SymbolTable> parent = Ref<SymbolTable>()) {
  return SymbolTable::New(parent, storage, string(name));
}

string Numbered(int i) { return string("v") + ultoa(i); }

TEST(SymbolTableHash, FoldsCaseAndCountsBytesAsSigned) {
  const struct {
    char const* text;
    uint32_t hash;
  } kCases[] = {
      {"", 0u},
      {"A", 65u},
      {"a", 65u},
      {"ab", 65u * 31u + 66u},
      {"AB", 65u * 31u + 66u},
      // Only ASCII letters fold: '{' (0x7B) and '`' (0x60) sit just outside.
      {"{", 0x7Bu},
      {"`", 0x60u},
      // A byte above 0x7F counts as negative.
      {"\xC3", 0xFFFFFFC3u},
      {"\xC3" "a", 0xFFFFFFC3u * 31u + 65u},
  };
  for (auto const& c : kCases)
    EXPECT_EQ(SymbolTable::hashString(string(c.text)), c.hash) << c.text;
  // Long names wrap silently instead of saturating.
  EXPECT_EQ(SymbolTable::hashString(string("ZZZZZZZZ")),
            SymbolTable::hashString(string("zzzzzzzz")));
}

TEST(SymbolTableLookup, IgnoresCaseAndKeepsTheDeclaredSpelling) {
  Ref<SymbolTable> table = Table();
  SymbolID stored = table->Store(string("foo"), IRDataType(kTypeInteger));
  SymbolID found;
  ASSERT_TRUE(table->Lookup(string("FOO"), nullptr, &found));
  EXPECT_TRUE(found == stored);
  EXPECT_EQ(Text(found.Name()), "foo");
  EXPECT_FALSE(table->Lookup(string("fo"), nullptr, nullptr));
  EXPECT_FALSE(table->Lookup(string("fooo"), nullptr, nullptr));
}

TEST(SymbolTableLookup, OfTwoEqualNamesTheOlderWins) {
  Ref<SymbolTable> table = Table();
  SymbolID first = table->Store(string("x"), IRDataType(kTypeInteger));
  SymbolID second = table->Store(string("X"), IRDataType(kTypeDouble));
  SymbolID found;
  ASSERT_TRUE(table->Lookup(string("x"), nullptr, &found));
  EXPECT_TRUE(found == first);
  EXPECT_TRUE(found != second);
}

TEST(SymbolTableLookup, FoundInMovesOnlyWhenTheSearchLeavesTheTable) {
  Ref<SymbolTable> outer = Table(StaticStorage);
  Ref<SymbolTable> middle = Table(LocalStorage, "", outer);
  Ref<SymbolTable> inner = Table(LocalStorage, "", middle);
  SymbolID global = outer->Store(string("g"), IRDataType(kTypeString));
  SymbolID local = inner->Store(string("l"), IRDataType(kTypeInteger));

  Ref<SymbolTable> foundIn = inner;
  SymbolID found;
  ASSERT_TRUE(inner->Lookup(string("G"), &foundIn, &found));
  EXPECT_TRUE(foundIn == outer);
  EXPECT_TRUE(found == global);

  // A hit in the first table leaves whatever the caller put there.
  Ref<SymbolTable> untouched;
  ASSERT_TRUE(inner->Lookup(string("l"), &untouched, &found));
  EXPECT_FALSE(untouched);
  EXPECT_TRUE(found == local);

  // A miss leaves the symbol alone but has walked to the top.
  foundIn = inner;
  SymbolID sentinel = local;
  EXPECT_FALSE(inner->Lookup(string("nothing"), &foundIn, &sentinel));
  EXPECT_TRUE(foundIn == outer);
  EXPECT_TRUE(sentinel == local);
  // A parent never sees its children's symbols.
  EXPECT_FALSE(outer->Lookup(string("l"), nullptr, nullptr));
}

TEST(SymbolTableLookup, EmptyOrClosedTablePassesTheSearchOn) {
  Ref<SymbolTable> parent = Table(StaticStorage);
  SymbolID x = parent->Store(string("x"), IRDataType(kTypeInteger));
  Ref<SymbolTable> child = Table(LocalStorage, "", parent);
  child->Hibernate();
  EXPECT_EQ(child->indexSize, 0);
  Ref<SymbolTable> foundIn = child;
  SymbolID found;
  ASSERT_TRUE(child->Lookup(string("x"), &foundIn, &found));
  EXPECT_TRUE(found == x);
  EXPECT_TRUE(foundIn == parent);
}

TEST(SymbolTableIndex, GrowsAtTheNinthAndEighteenthSymbol) {
  Ref<SymbolTable> table = Table();
  EXPECT_EQ(table->indexSize, 17);
  const struct {
    int symbols;
    int indexSize;
  } kSteps[] = {{1, 17}, {8, 17}, {9, 34}, {17, 34}, {18, 68}, {34, 68}, {35, 136}};
  int stored = 0;
  for (auto const& step : kSteps) {
    while (stored < step.symbols) table->Store(Numbered(stored++), IRDataType(kTypeInteger));
    EXPECT_EQ(table->indexSize, step.indexSize) << "after " << step.symbols << " symbols";
  }
  // Every symbol survives the rebuilds, at its own slot, by either case.
  for (int i = 0; i < stored; ++i) {
    SymbolID found;
    ASSERT_TRUE(table->Lookup(string("V") + ultoa(i), nullptr, &found)) << i;
    EXPECT_EQ(Text(found.Name()), Text(Numbered(i)));
  }
}

TEST(SymbolTableIndex, CollidingNamesProbeAndWrapAround) {
  Ref<SymbolTable> table = Table();
  // Names hashing to the last slot (16 of 17) force the probe to wrap to 0.
  std::vector<std::string> names;
  for (int i = 0; names.size() < 4 && i < 100000; ++i) {
    std::string n = "n" + std::to_string(i);
    if (SymbolTable::hashString(string(n.c_str())) % 17u == 16u) names.push_back(n);
  }
  ASSERT_EQ(names.size(), 4u);
  for (auto const& n : names) table->Store(string(n.c_str()), IRDataType(kTypeInteger));
  EXPECT_EQ(table->indexSize, 17);
  EXPECT_FALSE(table->index[0].IsNull());
  for (auto const& n : names) {
    SymbolID found;
    ASSERT_TRUE(table->Lookup(string(n.c_str()), nullptr, &found)) << n;
    EXPECT_EQ(Text(found.Name()), n);
  }
}

TEST(SymbolTableStorage, OffsetsFollowBySizeWithoutAlignment) {
  Ref<SymbolTable> table = Table();
  SymbolID i = table->Store(string("i"), IRDataType(kTypeInteger));
  SymbolID d = table->Store(string("d"), IRDataType(kTypeDouble));
  SymbolID s = table->Store(string("s"), IRDataType(kTypeString));
  EXPECT_EQ(i.StorageOffset(), 0);
  EXPECT_EQ(d.StorageOffset(), 4);
  EXPECT_EQ(s.StorageOffset(), 12);
  EXPECT_EQ(table->GetTotalStorage(), 16);
  EXPECT_EQ(d.GetAddr()->StorageOffset(), 4);
}

TEST(SymbolTableStorage, ExplicitOffsetOnlyEverRaisesTheTotal) {
  Ref<SymbolTable> table = Table(ObjectStorage);
  SymbolID high = table->Store(string("high"), IRDataType(kTypeDouble), 20, false);
  EXPECT_EQ(table->GetTotalStorage(), 28);
  SymbolID low = table->Store(string("low"), IRDataType(kTypeInteger), 0, true);
  EXPECT_EQ(table->GetTotalStorage(), 28);
  EXPECT_EQ(low.StorageOffset(), 0);
  EXPECT_FALSE(high.FinalizationAllowed());
  EXPECT_TRUE(low.FinalizationAllowed());
  // The short form stores at the running total.
  EXPECT_EQ(table->Store(string("next"), IRDataType(kTypeInteger)).StorageOffset(), 28);
}

TEST(SymbolTableEntries, CarryTheTableStorageClassAndFlags) {
  Ref<SymbolTable> table = Table(ObjectStorage, "Bar");
  SymbolID s = table->Store(string("name"), IRDataType(kTypeString));
  EXPECT_EQ(s.GetStorageClass(), ObjectStorage);
  EXPECT_EQ(s.GetAddr()->GetStorageClass(), ObjectStorage);
  EXPECT_FALSE(s.GetAddr()->IsConstant());
  EXPECT_TRUE(s.GetType() == IRDataType(kTypeString));
  EXPECT_TRUE(s.InitializationAllowed());
  EXPECT_TRUE(s.UserVisible());
  s.ProhibitInitialization();
  s.SetUserVisible(false);
  EXPECT_FALSE(s.InitializationAllowed());
  EXPECT_FALSE(s.UserVisible());
  EXPECT_EQ(Text(s.toString()), "o_Bar.name");
}

TEST(SymbolTableEntries, NullSymbolIsHarmless) {
  SymbolID none;
  EXPECT_TRUE(none.IsNull());
  EXPECT_EQ(none.GetAddr(), nilTacAddr);
  EXPECT_FALSE(none.UserVisible());
  none.SetUserVisible(true);
  EXPECT_FALSE(none.UserVisible());
  EXPECT_EQ(none.toString().Length(), 0);
}

TEST(SymbolTableEntries, ContainsIsByIdentityNotName) {
  Ref<SymbolTable> a = Table();
  Ref<SymbolTable> b = Table();
  SymbolID inA = a->Store(string("x"), IRDataType(kTypeInteger));
  SymbolID inB = b->Store(string("x"), IRDataType(kTypeInteger));
  EXPECT_TRUE(a->Contains(inA));
  EXPECT_FALSE(a->Contains(inB));
  EXPECT_FALSE(a->Contains(SymbolID()));
}

TEST(SymbolTableIterator, WalksInStoringOrder) {
  Ref<SymbolTable> table = Table();
  // Enough names to rebuild the index, which must not reorder the walk.
  for (int i = 0; i < 12; ++i) table->Store(Numbered(11 - i), IRDataType(kTypeInteger));
  SymbolTableIterator it(table);
  EXPECT_TRUE(it.Value().IsNull());
  int seen = 0;
  while (it.Next()) {
    EXPECT_EQ(Text(it.Value().Name()), Text(Numbered(11 - seen)));
    EXPECT_EQ(it.Value().StorageOffset(), 4 * seen);
    ++seen;
  }
  EXPECT_EQ(seen, 12);
  EXPECT_FALSE(it.Next());
  SymbolTableIterator none{Ref<SymbolTable>()};
  EXPECT_FALSE(none.Next());
}

// Link names, through the scopes the compilation opens.
class SymbolScopes : public SymbolsFixture {};

TEST_F(SymbolScopes, GlobalsAreQualifiedByEveryNamedScope) {
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
    EXPECT_EQ(Text(s.LinkName()), c.linkName) << c.scope << " " << c.storage;
    EXPECT_EQ(Text(s.GetAddr()->LinkName()), c.linkName);
    EXPECT_EQ(Text(s.toString()), c.printed);
    PopSymTable();
  }
}

TEST_F(SymbolScopes, NestedScopesQualifyFromTheOutermostIn) {
  NewSymTable(StaticStorage, string("Outer"));
  NewSymTable(StaticStorage, string(""));
  NewSymTable(StaticStorage, string("Inner"));
  EXPECT_EQ(Text(AddSymbol(Ident("v")).LinkName()), "Outer.Inner.v");
  // A local scope anywhere below keeps its plain names.
  NewSymTable(LocalStorage, string("Inner.Method"));
  EXPECT_EQ(Text(AddSymbol(Ident("v")).LinkName()), "v");
}

TEST_F(SymbolScopes, PopHibernatesAndTheListKeepsTheTable) {
  Ref<SymbolTableList> list = CurrentSymbolTableList();
  Ref<SymbolTable> global = CurrentSymbolTable();
  ASSERT_TRUE(global);
  EXPECT_TRUE(list->GetGlobalTable() == global);
  EXPECT_EQ(global->storageClass, StaticStorage);

  unsigned long first = NewSymTable(LocalStorage, string("f"));
  unsigned long second = NewSymTable(LocalStorage, string("g"));
  EXPECT_EQ(first, 1u);
  EXPECT_EQ(second, 2u);
  Ref<SymbolTable> inner = CurrentSymbolTable();
  SymbolID kept = AddSymbol(Ident("kept", IRDataType(kTypeDouble)));
  EXPECT_TRUE(inner->parent == list->GetTable(first));

  PopSymTable();
  EXPECT_TRUE(CurrentSymbolTable() == list->GetTable(first));
  EXPECT_EQ(inner->indexSize, 0);
  // The closed scope is out of the search but its symbols live on.
  EXPECT_FALSE(CurrentSymbolTable()->Lookup(string("kept"), nullptr, nullptr));
  EXPECT_TRUE(list->GetTable(second)->Contains(kept));
  EXPECT_EQ(kept.GetAddr()->StorageOffset(), 0);
  EXPECT_EQ(list->GetTable(second)->GetTotalStorage(), 8);

  PopSymTable();
  EXPECT_TRUE(CurrentSymbolTable() == global);
  EXPECT_EQ(list->CountTables(), 3u);
}

TEST_F(SymbolScopes, AnotherContextStartsWithFreshTables) {
  AddSymbol(Ident("old"));
  Ref<SymbolTable> oldGlobal = CurrentSymbolTable();
  {
    CompileScope other;
    Ref<SymbolTable> fresh = CurrentSymbolTable();
    EXPECT_TRUE(fresh != oldGlobal);
    EXPECT_FALSE(fresh->Lookup(string("old"), nullptr, nullptr));
    EXPECT_EQ(CurrentSymbolTableList()->CountTables(), 1u);
  }
  EXPECT_TRUE(CurrentSymbolTable() == oldGlobal) << "the outer compilation is current again";
}

}  // namespace
