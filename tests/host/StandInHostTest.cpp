// What the engine's tests take from the stand-in host without checking it
// themselves: a derived class's data sits behind its parent's, initializers
// run root first and finalizers on the last unlock, and a raised object is
// held until the next raise. Its strings, events, methods and entries are
// exercised by the engine's tests through the plug-in layer.
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

VELDproperty sBaseProperties[] = {
    {nullptr, "Count", "Integer", 0, kHostAccessesField, kHostAccessesField, 4, {0, 0, 0}},
};

VELDclassDefinition sBase = {kPluginInterfaceVersion, "Base", nullptr, 10, 0, &BaseInit,
                             &BaseFinal, sBaseProperties, 1, nullptr, 0, nullptr, 0,
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

TEST_F(StandInHostTest, DerivedDataFollowsTheParentsAndLifetimeHooksRunInOrder) {
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
  // Initializers ran root first; finalizers run on the last unlock only.
  Lock(o);
  Unlock(o);
  EXPECT_EQ((std::vector<std::string>{"init Base", "init Derived"}), sCalls);
  Unlock(o);
  EXPECT_EQ((std::vector<std::string>{"init Base", "init Derived", "final Derived", "final Base"}), sCalls);
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

}  // namespace
