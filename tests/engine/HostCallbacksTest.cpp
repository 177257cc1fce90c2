// Registered host methods and properties become functions of the prefix
// module, with the context object and the property's value passed hidden.
#include <gtest/gtest.h>

#include <cstdint>

#include "engine/KVScriptInterface.h"
#include "semantic/DeclarationTable.h"

namespace {

void EntryA() {}
void EntryB() {}
void EntryC() {}

int32_t AddressOf(void (*f)()) { return (int32_t)reinterpret_cast<intptr_t>(f); }

class EncodedModule : public ::testing::Test {
protected:
  void SetUp() override {
    mModule = ModuleDeclaration::New();
    mModule->Lock();
  }
  void TearDown() override {
    mModule->Unlink();
    mModule->Unlock();
  }
  void Encode() { mEngine.EncodeHostCallbacks(mModule); }
  FunctionDeclaration* Method(unsigned i) { return mModule->GetMethod(i); }

  KVScriptInterface mEngine;
  ModuleDeclaration* mModule = nullptr;
  int mContextObject = 0;
};

TEST_F(EncodedModule, AMethodWithSelfTakesTheContextHidden) {
  mEngine.SetContext(&mContextObject);
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryA), true,
                             "Function Scale(obj As Integer, by As Double) As Double");
  Encode();
  ASSERT_EQ(mModule->CountMethods(), 1u);
  FunctionDeclaration* f = Method(0);
  EXPECT_STREQ(f->GetBaseName().CString(), "Scale");
  EXPECT_EQ(f->GetDispatchMethod(), FunctionDeclaration::kDispatchHardCoded);
  EXPECT_EQ(f->GetDispatchID(), AddressOf(&EntryA));
  EXPECT_EQ(f->GetType().GetMainType(), kTypeDouble);
  ASSERT_EQ(f->CountParameters(), 2u);
  ParameterDeclaration* self = f->GetParameter(0);
  EXPECT_STREQ(self->GetName().CString(), "self");
  EXPECT_EQ(self->GetMode(), ParameterDeclaration::kParamHidden);
  EXPECT_EQ(self->GetType().GetMainType(), kTypeInteger);
  EXPECT_EQ(self->GetDefaultValue().sint32, (int32_t)reinterpret_cast<intptr_t>(&mContextObject));
  EXPECT_EQ(f->GetParameter(1)->GetMode(), ParameterDeclaration::kParamRequired);
}

// A method that returns an object, or whose declaration doesn't parse, is
// dropped; overloads stay overloads.
TEST_F(EncodedModule, MethodsThatReturnObjectsOrDoNotParseAreDropped) {
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryA), false, "Function Make() As Object");
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryB), false, "this is no declaration");
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryB), false, "Function Pick(a As Integer) As Integer");
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryC), false, "Function Pick(a As String) As Integer");
  Encode();
  ASSERT_EQ(mModule->CountMethods(), 2u);
  Ref<SimpleVector<FunctionDeclaration*> > found = mModule->LookupMethodsByBase(string("pick"), MethodFilter());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->size(), 2u);
  EXPECT_EQ(Method(1)->GetDispatchID(), AddressOf(&EntryC));
}

TEST_F(EncodedModule, APropertyBecomesAGetterAndASetter) {
  mEngine.SetContext(&mContextObject);
  mEngine.RegisterHostProperty(reinterpret_cast<void*>(&EntryA), reinterpret_cast<void*>(&EntryB), 77,
                               "Width As Integer");
  Encode();
  ASSERT_EQ(mModule->CountMethods(), 2u);
  FunctionDeclaration* get = Method(0);
  FunctionDeclaration* set = Method(1);
  EXPECT_STREQ(get->GetBaseName().CString(), "Width");
  EXPECT_EQ(get->GetType().GetMainType(), kTypeInteger);
  EXPECT_EQ(get->GetDispatchID(), AddressOf(&EntryA));
  ASSERT_EQ(get->CountParameters(), 2u);
  EXPECT_EQ(get->GetParameter(1)->GetDefaultValue().sint32, 77);
  EXPECT_TRUE(set->GetType().Null());
  EXPECT_EQ(set->GetDispatchID(), AddressOf(&EntryB));
  ASSERT_EQ(set->CountParameters(), 3u);
  EXPECT_STREQ(set->GetParameter(2)->GetName().CString(), "value");
  EXPECT_EQ(set->GetParameter(2)->GetDesignator(), ParameterDeclaration::kDesignatorAssigns);
  EXPECT_TRUE(set->Assigns());
  EXPECT_EQ(set->GetParameter(0)->GetDefaultValue().sint32,
            (int32_t)reinterpret_cast<intptr_t>(&mContextObject));
}

TEST_F(EncodedModule, ReadOnlyAndEmptyProperties) {
  mEngine.RegisterHostProperty(reinterpret_cast<void*>(&EntryA), nullptr, 0, "Height As Integer");
  mEngine.RegisterHostProperty(nullptr, nullptr, 0, "Depth As Integer");
  mEngine.RegisterHostProperty(reinterpret_cast<void*>(&EntryA), reinterpret_cast<void*>(&EntryB), 0,
                               "Owner As Object");
  Encode();
  ASSERT_EQ(mModule->CountMethods(), 1u);  // no Assigns form: assignment fails to compile
  EXPECT_FALSE(Method(0)->Assigns());
  EXPECT_STREQ(Method(0)->GetBaseName().CString(), "Height");
}

TEST_F(EncodedModule, ClearingEmptiesBothLists) {
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryA), false, "Sub Beep()");
  mEngine.RegisterHostProperty(reinterpret_cast<void*>(&EntryA), nullptr, 0, "Height As Integer");
  mEngine.ClearHostCallbacks();
  Encode();
  EXPECT_EQ(mModule->CountMethods(), 0u);
}

}  // namespace
