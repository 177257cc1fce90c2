// A fixture for tests that drive the engine through the stand-in host: each
// test starts with a fresh host and a freshly loaded plug-in, and ends by
// checking that no host object and no counted block was left behind.
#pragma once

#include <gtest/gtest.h>

#include "engine/PluginMain.h"
#include "foundation/TextEncodingUtil.h"
#include "foundation/utility.h"
#include "host/StandInHost.h"

class HostedTest : public ::testing::Test {
protected:
  void SetUp() override {
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

  // Loads the plug-in again, so that entries withheld since are missed.
  void Reload() { VELDPluginMain(StandInResolve); }

  long mAllocBefore = 0;
  long mObjectsBefore = 0;
};
