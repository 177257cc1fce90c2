// The stand-in host on its own terms: its classes and objects, its strings,
// its events and raised exceptions, and how it answers the resolver. These
// are what the engine's tests rely on, so they are checked through the
// entries the resolver hands out, as the plug-in layer calls them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/PluginMain.h"
#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"
#include "host/StandInHost.h"

namespace {

template <class Proc>
Proc Entry(char const* name) {
  return reinterpret_cast<Proc>(StandInResolve(name));
}

std::vector<std::string> sCalls;

void BaseInit(VELDobjectStruct*) { sCalls.push_back("init Base"); }
void BaseFinal(VELDobjectStruct*) { sCalls.push_back("final Base"); }
void DerivedInit(VELDobjectStruct*) { sCalls.push_back("init Derived"); }
void DerivedFinal(VELDobjectStruct*) { sCalls.push_back("final Derived"); }

VELDevent sBaseEvents[] = {{"Changed(value As Integer)", 0}};
VELDproperty sBaseProperties[] = {
    {nullptr, "Count", "Integer", 0, kHostAccessesField, kHostAccessesField, 4, {0, 0, 0}},
};

VELDclassDefinition sBase = {kPluginInterfaceVersion, "Base", nullptr, 10, 0, &BaseInit,
                             &BaseFinal, sBaseProperties, 1, nullptr, 0, sBaseEvents, 1,
                             {0, 0, 0, 0, 0, 0, 0}};
VELDclassDefinition sDerived = {kPluginInterfaceVersion, "Derived", "base", 8, 0, &DerivedInit,
                                &DerivedFinal, nullptr, 0, nullptr, 0, nullptr, 0,
                                {0, 0, 0, 0, 0, 0, 0}};
VELDclassDefinition sOrphan = {kPluginInterfaceVersion, "Orphan", "NoSuchClass", 4, 0, nullptr,
                               nullptr, nullptr, 0, nullptr, 0, nullptr, 0,
                               {0, 0, 0, 0, 0, 0, 0}};

class StandInHostTest : public ::testing::Test {
protected:
  void SetUp() override {
    StandInHostReset();
    ClearConvertEncodingCache();
    sCalls.clear();
    mAllocBefore = gTotalAllocLen;
    mObjectsBefore = StandInLiveObjectCount();
  }
  void TearDown() override {
    StandInHostReset();
    ClearConvertEncodingCache();
    EXPECT_EQ(mObjectsBefore, StandInLiveObjectCount());
    EXPECT_EQ(mAllocBefore, gTotalAllocLen);
  }
  VELDobjectStruct* New(char const* name) {
    return Entry<VELDobjectStruct* (*)(char const*)>("PluginNewInstance")(name);
  }
  void Lock(VELDobjectStruct* o) { Entry<void (*)(VELDobjectStruct*)>("VELDLockObject")(o); }
  void Unlock(VELDobjectStruct* o) { Entry<void (*)(VELDobjectStruct*)>("VELDUnlockObject")(o); }

  long mAllocBefore = 0;
  long mObjectsBefore = 0;
};

TEST_F(StandInHostTest, AnswersTheEntriesOfItsTableAndNothingElse) {
  for (char const* name :
       {"RegisterPluginVersion", "PluginRegisterClass", "VELDGetKVVersion", "VELDBuildString",
        "VELDSetStringEncoding", "VELDConvertString", "VELDUnlockString", "VELDLockObject",
        "VELDUnlockObject", "PluginNewInstance", "RuntimeRaiseException", "GetEventInstance",
        "VELDYieldToKV", "VELDGetStackLimit", "VELDSetStackLimit", "VELDInitStackChecker",
        "VELDCountClassMethods", "VELDGetClassMethod", "VELDCountClassProperties",
        "VELDGetClassProperty"})
    EXPECT_NE(nullptr, StandInResolve(name)) << name;
  EXPECT_EQ(nullptr, StandInResolve("StringJoin"));
  EXPECT_EQ(nullptr, StandInResolve("pluginnewinstance")) << "entry names are exact";
  EXPECT_EQ(nullptr, StandInResolve(nullptr));
}

TEST_F(StandInHostTest, WithheldAndDefinedEntriesLastUntilReset) {
  int marker;
  StandInWithhold("VELDYieldToKV");
  StandInDefineEntry("StringJoin", &marker);
  EXPECT_EQ(nullptr, StandInResolve("VELDYieldToKV"));
  EXPECT_EQ(&marker, StandInResolve("StringJoin"));
  StandInProvide("VELDYieldToKV");
  EXPECT_NE(nullptr, StandInResolve("VELDYieldToKV"));
  StandInWithhold("VELDYieldToKV");
  StandInHostReset();
  EXPECT_NE(nullptr, StandInResolve("VELDYieldToKV"));
  EXPECT_EQ(nullptr, StandInResolve("StringJoin"));
}

TEST_F(StandInHostTest, VersionIsFourFiveUnlessSet) {
  auto version = Entry<double (*)()>("VELDGetKVVersion");
  EXPECT_EQ(4.5, version());
  StandInSetVersion(5.25);
  EXPECT_EQ(5.25, version());
  StandInHostReset();
  EXPECT_EQ(4.5, version());
}

TEST_F(StandInHostTest, BuiltInExceptionClassesExistFromTheStart) {
  for (char const* name : {"RuntimeException", "stackOverflowException", "OutOfBoundsException"}) {
    SCOPED_TRACE(name);
    VELDobjectStruct* o = New(name);
    ASSERT_NE(nullptr, o);
    EXPECT_STREQ(name, StandInClassName(o));
    EXPECT_TRUE(StandInIsA(o, "runtimeexception"));
    Unlock(o);
  }
  EXPECT_EQ(nullptr, New("NilObjectException"));
}

TEST_F(StandInHostTest, DerivedDataFollowsTheParentsAndClassesAreFoundIgnoringCase) {
  ASSERT_TRUE(StandInRegisterClass(&sBase));
  ASSERT_TRUE(StandInRegisterClass(&sDerived));
  EXPECT_FALSE(StandInRegisterClass(&sOrphan));
  EXPECT_FALSE(StandInIsClassRegistered("Orphan"));
  EXPECT_EQ(8, sBase.dataOffset) << "after the lock count and the class word";
  EXPECT_EQ(20, sDerived.dataOffset) << "base data 8..18, rounded to a word";

  VELDobjectStruct* o = New("DERIVED");
  ASSERT_NE(nullptr, o);
  EXPECT_EQ(1, StandInLockCount(o));
  EXPECT_TRUE(StandInIsA(o, "Base"));
  EXPECT_FALSE(StandInIsA(o, "RuntimeException"));
  // Instance data come cleared; the engine's arithmetic reaches them.
  auto* derivedData = static_cast<unsigned char*>(VELDGetClassData(o, &sDerived));
  EXPECT_EQ(reinterpret_cast<unsigned char*>(o) + 20, derivedData);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(0, derivedData[i]);
  // A property of the parent, written and read by the host itself.
  EXPECT_TRUE(StandInSetIntegerProperty(o, "count", 31));
  long value = 0;
  EXPECT_TRUE(StandInGetIntegerProperty(o, "Count", &value));
  EXPECT_EQ(31, value);
  EXPECT_EQ(31, *reinterpret_cast<long*>(static_cast<char*>(VELDGetClassData(o, &sBase)) + 4));
  Unlock(o);
  StandInHostReset();
  EXPECT_FALSE(StandInIsClassRegistered("Base"));
  EXPECT_TRUE(StandInIsClassRegistered("RuntimeException"));
}

TEST_F(StandInHostTest, InitializersRunRootFirstAndFinalizersOnTheLastUnlock) {
  ASSERT_TRUE(StandInRegisterClass(&sBase));
  ASSERT_TRUE(StandInRegisterClass(&sDerived));
  long before = StandInLiveObjectCount();
  VELDobjectStruct* o = New("Derived");
  EXPECT_EQ(before + 1, StandInLiveObjectCount());
  Lock(o);
  Unlock(o);
  EXPECT_EQ((std::vector<std::string>{"init Base", "init Derived"}), sCalls);
  Unlock(o);
  EXPECT_EQ((std::vector<std::string>{"init Base", "init Derived", "final Derived", "final Base"}),
            sCalls);
  EXPECT_EQ(before, StandInLiveObjectCount());
  Lock(nullptr);
  Unlock(nullptr);
}

TEST_F(StandInHostTest, StringsAreCountedRecordsAndConvertToUTF8) {
  auto build = Entry<VELDstringStruct* (*)(char const*, int)>("VELDBuildString");
  auto setEncoding = Entry<void (*)(VELDstringStruct*, unsigned long)>("VELDSetStringEncoding");
  auto convert = Entry<VELDstringStruct* (*)(VELDstringStruct*, unsigned long)>("VELDConvertString");
  auto unlock = Entry<void (*)(VELDstringStruct*)>("VELDUnlockString");

  VELDstringStruct* s = build("gr\xFC\xDF", 4);
  ASSERT_NE(nullptr, s);
  EXPECT_EQ(1u, s->mRefCount);
  EXPECT_EQ(4, VELDstringStruct::Length(s));
  EXPECT_EQ(4, VELDstringStruct::PString(s)[0]) << "the Pascal length byte";
  setEncoding(s, 513);
  VELDstringStruct* utf8 = convert(s, kEncodingUTF8);
  ASSERT_NE(nullptr, utf8);
  EXPECT_EQ(kEncodingUTF8, utf8->mEncoding);
  EXPECT_STREQ("gr\xC3\xBC\xC3\x9F", VELDstringStruct::CString(utf8));
  // Converting to the tag it already has hands out another lock on the same record.
  uint32_t locks = utf8->mRefCount;
  VELDstringStruct* again = convert(utf8, kEncodingUTF8);
  EXPECT_EQ(utf8, again);
  EXPECT_EQ(locks + 1, utf8->mRefCount);
  unlock(again);
  unlock(utf8);
  unlock(s);
  EXPECT_EQ(nullptr, build("", 0)) << "the empty string is the null record";
  EXPECT_EQ(nullptr, convert(nullptr, kEncodingUTF8));
  unlock(nullptr);
  ClearConvertEncodingCache();
}

VELDobjectStruct* sSeenObject;
long sSeenValue;
void OnChanged(VELDobjectStruct* o, long value) {
  sSeenObject = o;
  sSeenValue = value;
}

TEST_F(StandInHostTest, EventHandlersAreFoundByTheirRowOnThatObjectOnly) {
  ASSERT_TRUE(StandInRegisterClass(&sBase));
  ASSERT_TRUE(StandInRegisterClass(&sDerived));
  auto getEvent = Entry<void* (*)(VELDobjectStruct*, VELDevent*)>("GetEventInstance");
  VELDobjectStruct* a = New("Derived");
  VELDobjectStruct* b = New("Base");
  EXPECT_FALSE(StandInSetEventHandler(a, "Closed", reinterpret_cast<void*>(&OnChanged)));
  EXPECT_TRUE(StandInSetEventHandler(a, "changed", reinterpret_cast<void*>(&OnChanged)));
  EXPECT_EQ(reinterpret_cast<void*>(&OnChanged), getEvent(a, &sBaseEvents[0]));
  EXPECT_EQ(nullptr, getEvent(b, &sBaseEvents[0]));
  VELDevent foreign = {"Changed(value As Integer)", 0};
  EXPECT_EQ(nullptr, getEvent(a, &foreign)) << "a row of no class of the object";
  reinterpret_cast<void (*)(VELDobjectStruct*, long)>(getEvent(a, &sBaseEvents[0]))(a, 5);
  EXPECT_EQ(a, sSeenObject);
  EXPECT_EQ(5, sSeenValue);
  EXPECT_TRUE(StandInSetEventHandler(a, "Changed", nullptr));
  EXPECT_EQ(nullptr, getEvent(a, &sBaseEvents[0]));
  Unlock(a);
  Unlock(b);
}

TEST_F(StandInHostTest, ARaisedObjectKeepsTheRaisersLockUntilTheNextRaiseOrClear) {
  auto raise = Entry<void (*)(VELDobjectStruct*)>("RuntimeRaiseException");
  VELDobjectStruct* first = New("RuntimeException");
  VELDobjectStruct* second = New("OutOfBoundsException");
  long live = StandInLiveObjectCount();
  raise(first);
  EXPECT_EQ(first, StandInRaisedException());
  EXPECT_EQ(1, StandInLockCount(first));
  raise(second);
  EXPECT_EQ(live - 1, StandInLiveObjectCount()) << "the first one was released";
  EXPECT_EQ(second, StandInRaisedException());
  EXPECT_EQ(2, StandInRaiseCount());
  StandInClearRaisedException();
  EXPECT_EQ(nullptr, StandInRaisedException());
  // The fixture's live count shows both objects are gone.
}

void Ping(VELDobjectStruct*) { sCalls.push_back("Ping"); }
void Wait(VELDobjectStruct*, long n) { sCalls.push_back("Wait " + std::to_string(n)); }

TEST_F(StandInHostTest, MethodsAreCalledByNameAndDescribedByIndex) {
  static VELDmethodDefinition methods[] = {
      {reinterpret_cast<void*>(&Ping), 0, "Ping()"},
      {reinterpret_cast<void*>(&Wait), 0, "Sub Wait(n As Integer)"},
  };
  static VELDclassDefinition withMethods = {kPluginInterfaceVersion, "Pinger", nullptr, 0, 0,
                                            nullptr, nullptr, sBaseProperties, 1, methods, 2,
                                            nullptr, 0, {0, 0, 0, 0, 0, 0, 0}};
  ASSERT_TRUE(StandInRegisterClass(&withMethods));
  VELDobjectStruct* o = New("Pinger");
  EXPECT_TRUE(StandInCallMethod(o, "ping"));
  EXPECT_TRUE(StandInCallMethod(o, "Wait", 3));
  EXPECT_FALSE(StandInCallMethod(o, "Pong"));
  EXPECT_EQ((std::vector<std::string>{"Ping", "Wait 3"}), sCalls);

  auto count = Entry<unsigned long (*)(VELDclassRefStruct*)>("VELDCountClassMethods");
  auto get = Entry<bool (*)(VELDclassRefStruct*, unsigned long, void**, string*)>(
      "VELDGetClassMethod");
  auto getProperty =
      Entry<bool (*)(VELDclassRefStruct*, unsigned long, void**, void**, long*, string*)>(
          "VELDGetClassProperty");
  VELDclassRefStruct* classRef = VELDClassOf(o);
  EXPECT_EQ(2u, count(classRef));
  void* entry = nullptr;
  string declaration;
  EXPECT_TRUE(get(classRef, 1, &entry, &declaration));
  EXPECT_EQ(reinterpret_cast<void*>(&Wait), entry);
  EXPECT_STREQ("Sub Wait(n As Integer)", declaration.CString());
  EXPECT_FALSE(get(classRef, 2, &entry, &declaration));
  void* getter = nullptr;
  void* setter = nullptr;
  long param = 0;
  EXPECT_TRUE(getProperty(classRef, 0, &getter, &setter, &param, &declaration));
  EXPECT_STREQ("Count As Integer", declaration.CString());
  EXPECT_EQ(4, param);
  EXPECT_FALSE(getProperty(classRef, 1, &getter, &setter, &param, &declaration));
  declaration = string();
  Unlock(o);
}

}  // namespace
