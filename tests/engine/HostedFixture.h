// A fixture for tests that drive the engine through the stand-in host: each
// test starts with a fresh host and a freshly loaded plug-in, and ends by
// checking that no host object and no counted block was left behind.
#pragma once

#include <gtest/gtest.h>

#include "backend/CodeStorage.h"
#include "engine/PluginMain.h"
#include "engine/KVScriptInterface.h"
#include "engine/Compiler.h"
#include "foundation/TextEncodingUtil.h"
#include "foundation/Utility.h"
#include "host/StandInHost.h"
#include "runtime/RuntimeObjectFoundation.h"

class HostedTest : public ::testing::Test {
protected:
  void SetUp() override {
    WarmUpCompiler();
    StandInHostReset();
    VELDPluginMain(StandInResolve);
    ClearConvertEncodingCache();
    mAllocBefore = gTotalAllocLen;
    mObjectsBefore = StandInLiveObjectCount();
  }

  void TearDown() override {
    StandInHostReset();
    ClearConvertEncodingCache();
    EXPECT_EQ(mObjectsBefore, StandInLiveObjectCount()) << "host objects leaked";
    EXPECT_EQ(mAllocBefore, gTotalAllocLen) << "counted blocks leaked";
  }

  // The first compilation of a process makes the values that compilations
  // share for good (type identifiers, constant addresses, tables); they are
  // no leak, so they are made before anything is counted.
  static void WarmUpCompiler() {
    static bool sWarm = false;
    if (sWarm) return;
    sWarm = true;
    KVScriptInterface engine;
    char const kWarmUp[] = "#pragma BoundsChecking False\nDim a As Integer\nPrint \"x\" + Str(a)\n";
    engine.SetSource(kWarmUp, sizeof kWarmUp - 1);
    engine.Precompile();
  }

  // Loads the plug-in again, so that entries withheld since are missed.
  void Reload() { VELDPluginMain(StandInResolve); }

  long mAllocBefore = 0;
  long mObjectsBefore = 0;
};

// A KvScript object's State property.
inline long StateOf(VELDobjectStruct* script) {
  long state = -1;
  EXPECT_TRUE(StandInGetIntegerProperty(script, "State", &state));
  return state;
}

inline void SetSourceProperty(VELDobjectStruct* script, char const* text) {
  VELDstringStruct* s = StandInString(text, kEncodingUTF8);
  EXPECT_TRUE(StandInSetStringProperty(script, "Source", s));
  VELDUnlockString(s);
}

// A class record as the object run-time makes it, with a counted name, put
// at the head of the class list.
inline RuntimeClass* MakeClass(char const* name, uint32_t methods = 0, uint32_t properties = 0) {
  uint32_t size = RuntimeClassAllocationSize(methods, 0, 0, 0, properties);
  auto* c = reinterpret_cast<RuntimeClass*>(OSalloclen((int)size, 0));
  umemzero(c, (int)size);
  c->mMethodCount = methods;
  c->mPropertyCount = properties;
  c->mName = string(name).ExtractStringStorage();
  c->mNext = mClassList;
  mClassList = c;
  return c;
}
