// Registered host methods and properties become functions of the prefix
// module, with the context object and the property's value passed hidden.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "diag/CompileError.h"
#include "engine/HostedFixture.h"
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

// A method that would trade objects with the host, that declares no
// parameter to take the context, or whose declaration doesn't parse, is
// dropped; overloads stay overloads.
TEST_F(EncodedModule, MethodsThatCannotBeCalledAsDeclaredAreDropped) {
  struct Dropped {
    bool hasSelf;
    char const* declaration;
  } const kDropped[] = {
      {false, "Function Make() As Object"},   {false, "this is no declaration"},
      {false, "Sub Take(o As Object)"},       {false, "Sub Fill(ByRef o As Object)"},
      {false, "Sub Each(items() As Object)"}, {true, "Sub Take(ctx As Integer, o As Object)"},
      {true, "Sub Beep()"},
  };
  for (Dropped const& row : kDropped)
    mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryA), row.hasSelf, row.declaration);
  // The context's own parameter may be declared as anything: it is replaced.
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryA), true, "Sub Attach(ctx As Object)");
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryB), false, "Function Pick(a As Integer) As Integer");
  mEngine.RegisterHostMethod(reinterpret_cast<void*>(&EntryC), false, "Function Pick(a As String) As Integer");
  Encode();
  ASSERT_EQ(mModule->CountMethods(), 3u);
  EXPECT_STREQ(Method(0)->GetBaseName().CString(), "Attach");
  EXPECT_EQ(Method(0)->GetParameter(0)->GetType().GetMainType(), kTypeInteger);
  Ref<SimpleVector<FunctionDeclaration*> > found = mModule->LookupMethodsByBase(string("pick"), MethodFilter());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->size(), 2u);
  EXPECT_EQ(Method(2)->GetDispatchID(), AddressOf(&EntryC));
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

// ---------------------------------------------------------------------------
// Through a run: a script calls the members of a host context object.

// What reached the host: each call's context and row parameter, in order.
struct ContextCalls {
  std::vector<std::string> printed;
  std::vector<long> errors;
  std::vector<VELDobjectStruct*> selves;
  std::vector<long> params;
  long level = 0;
};
ContextCalls sCalls;

long HostTwice(VELDobjectStruct* self, long n) {
  sCalls.selves.push_back(self);
  return 2 * n;
}
long HostGetLevel(VELDobjectStruct* self, long param) {
  sCalls.selves.push_back(self);
  sCalls.params.push_back(param);
  return sCalls.level;
}
void HostSetLevel(VELDobjectStruct* self, long param, long value) {
  HostGetLevel(self, param);
  sCalls.level = value;
}

VELDmethodDefinition sCallbackMethods[] = {
    {reinterpret_cast<void*>(&HostTwice), 0,
     "Function Twice(ctx As Integer, n As Integer) As Integer"},
};
VELDproperty sCallbackProperties[] = {
    {nullptr, "Level", "Integer", 0, reinterpret_cast<void*>(&HostGetLevel),
     reinterpret_cast<void*>(&HostSetLevel), 17, {0, 0, 0}},
    // Served by the host from the field: nothing a script could call.
    {nullptr, "Stored", "Integer", 0, kHostAccessesField, kHostAccessesField, 0, {0, 0, 0}},
};
VELDclassDefinition sCallbackClass = {
    kPluginInterfaceVersion, "CallbackContext", nullptr, 4, 0, nullptr, nullptr,
    sCallbackProperties, 2, sCallbackMethods, 1, nullptr, 0, {0, 0, 0, 0, 0, 0, 0},
};

void OnPrint(VELDobjectStruct*, VELDstringStruct* msg) {
  sCalls.printed.emplace_back(VELDstringStruct::CString(msg),
                              (size_t)VELDstringStruct::Length(msg));
}
void OnCompilerError(VELDobjectStruct*, long, long number, VELDstringStruct*) {
  sCalls.errors.push_back(number);
}

class ContextRun : public HostedTest {
protected:
  void SetUp() override {
    HostedTest::SetUp();
    sCalls = ContextCalls();
    ASSERT_TRUE(StandInRegisterClass(&sCallbackClass));
    mScript = VELDnewInstance("KvScript");
    mFirst = VELDnewInstance("CallbackContext");
    mSecond = VELDnewInstance("CallbackContext");
    ASSERT_TRUE(mScript && mFirst && mSecond);
    StandInSetEventHandler(mScript, "Print", reinterpret_cast<void*>(&OnPrint));
    StandInSetEventHandler(mScript, "CompilerError", reinterpret_cast<void*>(&OnCompilerError));
  }
  void TearDown() override {
    VELDUnlockObject(mScript);
    VELDUnlockObject(mFirst);
    VELDUnlockObject(mSecond);
    HostedTest::TearDown();
  }
  void Call(char const* method, VELDobjectStruct* context) {
    ASSERT_TRUE(StandInSetObjectProperty(mScript, "Context", context));
    StandInCallMethod(mScript, method);
  }

  VELDobjectStruct* mScript = nullptr;
  VELDobjectStruct* mFirst = nullptr;
  VELDobjectStruct* mSecond = nullptr;
};

TEST_F(ContextRun, MembersReceiveTheContextAndTheirParameter) {
  SetSourceProperty(mScript, "Level = Twice(21)\nPrint Str(Level + 1)\n");
  Call("Run", mFirst);
  EXPECT_EQ(std::vector<long>(), sCalls.errors);
  EXPECT_EQ(std::vector<std::string>{"43"}, sCalls.printed);
  EXPECT_EQ(std::vector<VELDobjectStruct*>(3, mFirst), sCalls.selves);
  EXPECT_EQ((std::vector<long>{17, 17}), sCalls.params);
  // A side the host serves from the field is no call of address -1.
  SetSourceProperty(mScript, "Print Str(Stored)\nStored = 1\n");
  Call("Run", mFirst);
  EXPECT_EQ((std::vector<long>{UnknownName, UnknownName}), sCalls.errors);
}

// Each change of context reaches the next run: the members appear and go,
// and the context's address compiled into the calls is never stale.
TEST_F(ContextRun, ANewContextAfterACompileCompilesAgain) {
  SetSourceProperty(mScript, "Print Str(Twice(4))\n");
  Call("Precompile", nullptr);
  Call("Precompile", mFirst);
  Call("Run", mSecond);
  EXPECT_EQ(std::vector<std::string>{"8"}, sCalls.printed);
  EXPECT_EQ(std::vector<VELDobjectStruct*>{mSecond}, sCalls.selves);
  Call("Run", nullptr);
  EXPECT_EQ((std::vector<long>{UnknownName, UnknownName}), sCalls.errors);
}

}  // namespace
