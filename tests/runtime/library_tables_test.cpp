#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "engine/KVScriptInterface.h"
#include "engine/Compiler.h"
#include "frontend/Miner.h"
#include "ir/Intrinsics.h"
#include "runtime/KVScriptIntrinsics.h"
#include "semantic/ScriptLibrary.h"
#include "runtime/RuntimeStringFoundation.h"
#include "semantic/DeclarationTable.h"

namespace {

// ---------------------------------------------------------------------------
// The intrinsic list

TEST(IntrinsicList, NumbersNameTheirFunctions) {
  SimpleVector<string> const& names = IntrinsicFunctionNames();
  ASSERT_EQ(names.size(), (unsigned long)kIntrinsicFunctionCount);
  EXPECT_EQ(&IntrinsicFunctionNames(), &names);  // made once
  struct {
    int number;
    char const* name;
  } const kRows[] = {
      {0, ""},
      {1, "RuntimeInit"},
      {2, "RuntimeExit"},
      {5, "StringToPString"},
      {9, "RuntimePow"},
      {11, "RuntimeNewClass"},
      {29, "RuntimeCreateArrayCastWrapper"},
      {33, "readColorRed"},
      {41, "readColorYellow"},
      {42, "VELDYieldToKV"},
      {43, "RuntimeDebugEntry"},
      {44, ""},
      {45, "RuntimeCheckStack"},
      {48, "RuntimeLockArray"},
      {52, "RuntimeUnlockString"},
      {56, "RuntimeLockUnlockObjects"},
  };
  for (auto const& row : kRows) {
    EXPECT_EQ(names[row.number].CompareWithCase(row.name), 0) << row.number << " is " << names[row.number].CString();
  }
  // Link names are told apart without regard to case: none may repeat.
  std::set<std::string> seen;
  for (unsigned long i = 0; i < names.size(); ++i) {
    std::string upper = names[i].CString();
    for (char& c : upper) c = (char)toupper((unsigned char)c);
    if (!upper.empty()) {
      EXPECT_TRUE(seen.insert(upper).second) << upper;
    }
  }
  EXPECT_EQ(seen.size(), (size_t)kIntrinsicFunctionCount - 2);
}

TEST(IntrinsicList, WhichCallsMayRaise) {
  std::set<int> const raising = {10, 11, 12, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27,
                                 28, 29, 30, 31, 32, 45, 49, 50, 55, 56};
  for (int i = -1; i <= kIntrinsicFunctionCount; ++i)
    EXPECT_EQ(IntrinsicFunctionRaisesExceptions(i), raising.count(i) == 1) << i;
}

// ---------------------------------------------------------------------------
// The function table

TEST(RuntimeFunctionTable, RowsBindTheirFunctions) {
  StringMap<void*>* table = MakeKvScriptRuntimeFunctionTable();
  struct {
    char const* name;
    void* function;
  } const kRows[] = {
      {"Input", reinterpret_cast<void*>(&Input)},
      {"Print", reinterpret_cast<void*>(&Print)},
      {"RuntimeInit", reinterpret_cast<void*>(&RuntimeInit)},
      {"RuntimeExit", reinterpret_cast<void*>(&ExitKvScriptRuntime)},
      {"RuntimeStringCompare", reinterpret_cast<void*>(&CompareStringsInternal)},
      {"RuntimeAddString", reinterpret_cast<void*>(&RuntimeAddString)},
      {"RuntimeLockUnlockStrings", reinterpret_cast<void*>(&RuntimeLockUnlockStrings)},
      {"VELDYieldToKV", reinterpret_cast<void*>(&RuntimeYield)},
      {"RuntimeCheckStack", reinterpret_cast<void*>(&RuntimeStackCheck)},
      {"RuntimeStackCheck", reinterpret_cast<void*>(&RuntimeStackCheck)},
      {"StringToOSType", reinterpret_cast<void*>(&StringToOSType)},
  };
  for (auto const& row : kRows) {
    void* found = nullptr;
    EXPECT_TRUE(table->GetEntry(row.name, found)) << row.name;
    EXPECT_EQ(found, row.function) << row.name;
  }
  // No row holds a null address: the linker would take it for a function.
  StringMapIterator<void*>* it = table->NewIterator();
  void* entry = nullptr;
  while (it->Next(entry)) EXPECT_NE(entry, nullptr) << it->Key().CString();
  delete it;
  delete table;
}

TEST(RuntimeFunctionTable, TheIntrinsicsOfTheStringAndStartFamiliesResolve) {
  StringMap<void*>* table = MakeKvScriptRuntimeFunctionTable();
  // Intrinsics whose run-time functions exist: start and end, strings,
  // yield, stack and debug hooks, pow (9) and the colour readers (33-41).
  for (int number : {1, 2, 3, 4, 5, 6, 7, 8, 9, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 45, 46,
                     47, 51, 52, 53}) {
    EXPECT_TRUE(table->HasEntry(IntrinsicFunctionNames()[number])) << number;
  }
  delete table;
}

// ---------------------------------------------------------------------------
// The prefix module

struct ExpectedFunction {
  char const* linkName;
  char const* scriptName;
  SimpleDataType result;
  std::vector<SimpleDataType> parameters;
};

TEST(PrefixModule, FunctionsInOrder) {
  ModuleDeclaration* module = MakeKvScriptRuntimeDeclarations();
  ExpectedFunction const kFunctions[] = {
      {"Input", "Input", kTypeString, {kTypeString}},
      {"Print", "Print", kTypeNull, {kTypeString}},
      {"RuntimeUbound", "Ubound", kTypeInteger, {kTypeArray}},
      {"RuntimeUbound2Param", "Ubound", kTypeInteger, {kTypeArray, kTypeInteger}},
      {"VarType", "VarType", kTypeInteger, {kTypeObject}},
      {"VariantClassLookup", "Variant.__Lookup", kTypeClassRef, {}},
      {"VarType", "Type", kTypeInteger, {kTypeObject}},
      {"IsNumeric", "IsNumeric", kTypeBoolean, {kTypeObject}},
      {"IsNull", "IsNull", kTypeBoolean, {kTypeObject}},
      {"VariantHash", "Hash", kTypeInteger, {kTypeObject}},
      {"VariantEqual", "Equals", kTypeBoolean, {kTypeObject, kTypeObject}},
      {"variantToInt", "IntegerValue", kTypeInteger, {kTypeObject}},
      {"variantToColor", "ColorValue", kTypeColor, {kTypeObject}},
      {"variantToDouble", "DoubleValue", kTypeDouble, {kTypeObject}},
      {"variantToObject", "ObjectValue", kTypeObject, {kTypeObject}},
      {"variantToString", "StringValue", kTypeString, {kTypeObject}},
      {"variantToBoolean", "BooleanValue", kTypeBoolean, {kTypeObject}},
  };
  ASSERT_EQ(module->CountMethods(), std::size(kFunctions));
  for (unsigned int i = 0; i < module->CountMethods(); ++i) {
    FunctionDeclaration* f = module->GetMethod(i);
    ExpectedFunction const& e = kFunctions[i];
    SCOPED_TRACE(e.scriptName);
    EXPECT_EQ(f->GetName().CompareWithCase(e.linkName), 0);
    EXPECT_EQ(f->GetBaseName().CompareWithCase(e.scriptName), 0);
    EXPECT_EQ(f->GetType().GetMainType(), e.result);
    EXPECT_EQ(f->GetDispatchMethod(), FunctionDeclaration::kDispatchNormal);
    ASSERT_EQ(f->CountParameters(), e.parameters.size());
    for (unsigned int p = 0; p < f->CountParameters(); ++p) {
      EXPECT_EQ(f->GetParameter(p)->GetType().GetMainType(), e.parameters[p]) << p;
      EXPECT_EQ(f->GetParameter(p)->GetName(), string((std::string("Parameter") + char('1' + p)).c_str()));
      // A Variant parameter is the class by name.
      if (e.parameters[p] == kTypeObject) {
        EXPECT_EQ(f->GetParameter(p)->GetType().GetClass(), string("Variant"));
      }
    }
  }
  // Overloads are found by their script name.
  Ref<SimpleVector<FunctionDeclaration*>> ubound = module->LookupMethodsByBase("UBOUND", kFilterAll);
  ASSERT_TRUE(ubound);
  EXPECT_EQ(ubound->size(), 2u);
  module->Unlink();
  delete module;
}

TEST(PrefixModule, MissingParameterTypesSkipOnlyTheirOwnPlace) {
  FunctionDeclaration* f = MakeRuntimeMethodDeclaration("Link", "Script", IRDataType(), IRDataType(),
                                                        IRDataType(kTypeDouble), IRDataType(kTypeString));
  ASSERT_EQ(f->CountParameters(), 2u);
  EXPECT_EQ(f->GetParameter(0)->GetName(), string("Parameter2"));
  EXPECT_EQ(f->GetParameter(1)->GetType().GetMainType(), kTypeString);
  EXPECT_TRUE(f->GetType().Null());
  delete f;
}

TEST(PrefixModule, LibraryClasses) {
  ModuleDeclaration* module = MakeKvScriptRuntimeDeclarations();
  ClassDeclaration* variant = module->LookupClass("variant");
  ASSERT_NE(variant, nullptr);
  EXPECT_EQ(variant->GetStorageSize(), 16);
  EXPECT_EQ(variant->GetType().GetMainType(), kTypeObject);
  EXPECT_EQ(variant->GetParent(), nullptr);

  ClassDeclaration* root = module->LookupClass("RuntimeException");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->GetParent(), nullptr);
  struct {
    char const* name;
    char const* lookup;
  } const kExceptions[] = {
      {"RuntimeException", "RuntimeExceptionLookup"},
      {"OutOfMemoryException", "OutOfMemoryExceptionLookup"},
      {"NilObjectException", "NilObjectExceptionLookup"},
      {"IllegalCastException", "IllegalCastExceptionLookup"},
      {"TypeMismatchException", "TypeMismatchExceptionLookup"},
      {"OutOfBoundsException", "OutOfBoundsExceptionLookup"},
      {"StackOverflowException", "StackOverflowExceptionLookup"},
  };
  EXPECT_EQ(module->CountClasses(), 1u + std::size(kExceptions));
  for (auto const& e : kExceptions) {
    SCOPED_TRACE(e.name);
    ClassDeclaration* c = module->LookupClass(e.name);
    ASSERT_NE(c, nullptr);
    if (c != root) {
      EXPECT_EQ(c->GetParent(), root);
      EXPECT_EQ(c->GetType().GetClass(), string("RuntimeException"));
    }
    EXPECT_EQ(c->GetStorageSize(), root->GetStorageSize());
    Ref<SimpleVector<FunctionDeclaration*>> lookups = c->LookupMethodsByBase("__Lookup", kFilterPlain);
    ASSERT_TRUE(lookups);
    ASSERT_EQ(lookups->size(), 1u);
    FunctionDeclaration* lookup = (*lookups.Get())[0];
    EXPECT_EQ(lookup->GetName().CompareWithCase(e.lookup), 0);
    EXPECT_EQ(lookup->GetType().GetMainType(), kTypeClassRef);
    EXPECT_EQ(lookup->CountParameters(), 0u);
  }
  module->Unlink();
  delete module;
}

TEST(PrefixModule, AScriptsClassesJoinTheLibrarys) {
  ModuleDeclaration* module = MakeKvScriptRuntimeDeclarations();
  module->Lock();
  bool failed = false;
  ModuleDeclaration* mined = ExtractDeclarations(
      "Class Oops\nInherits NilObjectException\nEnd Class\n"
      "Sub Print(n As Integer)\nEnd Sub\n",
      failed, module);
  EXPECT_EQ(mined, module);
  EXPECT_FALSE(failed);
  ClassDeclaration* oops = module->LookupClass("Oops");
  ASSERT_NE(oops, nullptr);
  EXPECT_EQ(oops->GetParent(), module->LookupClass("NilObjectException"));
  // The script's own Print stands beside the library's.
  Ref<SimpleVector<FunctionDeclaration*>> prints = module->LookupMethodsByBase("Print", kFilterAll);
  ASSERT_TRUE(prints);
  EXPECT_EQ(prints->size(), 2u);
  module->Unlink();
  module->Unlock();
}

}  // namespace
