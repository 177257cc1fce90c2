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
