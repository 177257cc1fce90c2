// The plug-in entry and the wrapper layer: what gets registered with which
// host, how wrappers behave when the host lacks an entry, and the records
// that cross the boundary.
#include <gtest/gtest.h>

#include "engine/HostedFixture.h"
#include "engine/KVScript.h"
#include "engine/KVScriptInterface.h"

namespace {

// A host string is a string record read in place; null is the empty string.
TEST(VELDstringStruct, ReadsAStringRecordInPlace) {
  string s("abc");
  auto* hostView = AsHostString(s.Storage());
  EXPECT_STREQ("abc", VELDstringStruct::CString(hostView));
  EXPECT_EQ(3, VELDstringStruct::PString(hostView)[0]);
  EXPECT_EQ(0, VELDstringStruct::Length(nullptr));
  EXPECT_STREQ("", VELDstringStruct::CString(nullptr));
  EXPECT_EQ(0, VELDstringStruct::PString(nullptr)[0]);
}

using PluginMainTest = HostedTest;

TEST_F(PluginMainTest, AHostOfFourFiveOrLaterGetsTheThreeClasses) {
  for (char const* name : {"KvScript", "KvScriptException", "KvScriptAlreadyRunningException"})
    EXPECT_TRUE(StandInIsClassRegistered(name)) << name;
  VELDobjectStruct* e = VELDnewInstance("KvScriptAlreadyRunningException");
  EXPECT_TRUE(StandInIsA(e, "KvScriptException"));
  EXPECT_TRUE(StandInIsA(e, "RuntimeException"));
  VELDUnlockObject(e);
  // The host placed the instance data and the record says where.
  EXPECT_EQ(8, KvScriptClass.dataOffset);
}

TEST_F(PluginMainTest, AnOlderOrSilentHostGetsNoClass) {
  struct Case {
    char const* name;
    double version;
    bool withholdVersion;
  };
  Case const cases[] = {
      {"version 4.4", 4.4, false},
      {"version 0", 0.0, false},
      {"no VELDGetKVVersion entry", 9.0, true},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    StandInHostReset();
    StandInSetVersion(c.version);
    if (c.withholdVersion) StandInWithhold("VELDGetKVVersion");
    Reload();
    EXPECT_FALSE(StandInIsClassRegistered("KvScript"));
    EXPECT_FALSE(StandInIsClassRegistered("KvScriptException"));
    EXPECT_EQ(nullptr, VELDnewInstance("KvScript"));
  }
  EXPECT_EQ(0.0, VELDGetKVVersion());
}

TEST_F(PluginMainTest, AWrapperAsksAgainWhileItsEntryIsMissing) {
  StandInWithhold("VELDYieldToKV");
  Reload();
  VELDYieldToKV();
  EXPECT_EQ(0, StandInYieldCount()) << "a missing yield is a no-op";
  StandInProvide("VELDYieldToKV");
  VELDYieldToKV();
  EXPECT_EQ(1, StandInYieldCount()) << "found at the next call, without a reload";
}

TEST_F(PluginMainTest, WrappersOfMissingEntriesReturnNothing) {
  for (char const* name :
       {"PluginRegisterClass", "VELDGetKVVersion", "VELDBuildString", "VELDSetStringEncoding",
        "VELDConvertString", "VELDUnlockString", "VELDLockObject", "VELDUnlockObject",
        "PluginNewInstance", "RuntimeRaiseException", "GetEventInstance", "VELDGetStackLimit",
        "VELDCountClassMethods", "VELDGetClassMethod", "VELDCountClassProperties",
        "VELDGetClassProperty"})
    StandInWithhold(name);
  Reload();
  VELDstringStruct* s = StandInString("text", kEncodingASCII);
  EXPECT_EQ(0.0, VELDGetKVVersion());
  EXPECT_EQ(nullptr, VELDBuildString("x", 1));
  VELDSetStringEncoding(s, kEncodingUTF8);
  EXPECT_EQ(kEncodingASCII, s->mEncoding);
  EXPECT_EQ(nullptr, VELDConvertString(s, kEncodingUTF8));
  VELDUnlockString(s);
  EXPECT_EQ(1u, s->mRefCount);
  EXPECT_EQ(nullptr, VELDnewInstance("RuntimeException"));
  EXPECT_EQ(nullptr, VELDGetEventInstance(nullptr, &KvScriptEvents[0]));
  EXPECT_EQ(0u, VELDGetStackLimit());
  EXPECT_EQ(0u, VELDCountClassMethods(nullptr));
  EXPECT_EQ(0u, VELDCountClassProperties(nullptr));
  void* entry = &entry;
  string declaration;
  EXPECT_FALSE(VELDGetClassMethod(nullptr, 0, &entry, &declaration));
  EXPECT_FALSE(VELDGetClassProperty(nullptr, 0, &entry, &entry, nullptr, &declaration));
  EXPECT_EQ(&entry, entry) << "nothing was written";
  stringStorage::RemoveReference(AsStringStorage(s));
}

void Marker() {}

TEST_F(PluginMainTest, TheResolverFunctionsAskTheHostEveryTime) {
  EXPECT_EQ(nullptr, Resolver("NoSuchHostEntry"));
  StandInDefineEntry("NoSuchHostEntry", reinterpret_cast<void*>(&Marker));
  EXPECT_EQ(reinterpret_cast<void*>(&Marker), Resolver("NoSuchHostEntry"));
  EXPECT_EQ(reinterpret_cast<void*>(&Marker), CallResolver("NoSuchHostEntry"));
  EXPECT_EQ(reinterpret_cast<void*>(&Marker), HCallResolver("NoSuchHostEntry"));
  EXPECT_EQ(reinterpret_cast<void*>(&StandInResolve), reinterpret_cast<void*>(gResolver));
}

}  // namespace
