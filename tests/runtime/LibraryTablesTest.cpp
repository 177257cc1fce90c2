// The run-time library's tables as the compiler and the linker meet them:
// the intrinsic list, the function table and the prefix module.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "engine/KVScriptInterface.h"
#include "engine/Compiler.h"
#include "frontend/Miner.h"
#include "frontend/SrcContext.h"
#include "ir/Intrinsics.h"
#include "runtime/KVScriptIntrinsics.h"
#include "semantic/ScriptLibrary.h"
#include "semantic/DeclarationTable.h"

namespace {

std::string Upper(string const& s) {
  std::string text = s.CString();
  for (char& c : text) c = (char)toupper((unsigned char)c);
  return text;
}

// Link names are told apart without regard to case, so none may repeat;
// no row of the function table holds a null address, which the linker
// would take for a function; and the intrinsics of the families that have
// landed (start and end, strings, pow, objects, the colour readers, yield,
// the stack and debug hooks) resolve.
TEST(LibraryTables, IntrinsicsAreUniqueAndTheLandedOnesResolve) {
  SimpleVector<string> const& names = IntrinsicFunctionNames();
  ASSERT_EQ(names.size(), (unsigned long)kIntrinsicFunctionCount);
  // The numbers the compilation context calls by.
  EXPECT_STREQ(names[kIntrinsicRuntimeInit].CString(), "RuntimeInit");
  EXPECT_STREQ(names[kIntrinsicRuntimeExit].CString(), "RuntimeExit");
  EXPECT_STREQ(names[kIntrinsicRuntimeDebugEntry].CString(), "RuntimeDebugEntry");
  std::set<std::string> seen;
  for (unsigned long i = 0; i < names.size(); ++i)
    if (names[i].Length()) EXPECT_TRUE(seen.insert(Upper(names[i])).second) << names[i].CString();

  StringMap<void*>* table = MakeKvScriptRuntimeFunctionTable();
  StringMapIterator<void*>* it = table->NewIterator();
  void* entry = nullptr;
  while (it->Next(entry)) EXPECT_NE(entry, nullptr) << it->Key().CString();
  delete it;
  for (int number : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 30, 54, 55, 56, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 45, 46, 47, 51, 52, 53})
    EXPECT_TRUE(table->HasEntry(names[number])) << number << " " << names[number].CString();
  void* found = nullptr;
  EXPECT_TRUE(table->GetEntry("RuntimeExit", found));
  EXPECT_EQ(found, reinterpret_cast<void*>(&ExitKvScriptRuntime));
  delete table;
}

// Every library exception derives from RuntimeException and has one class
// retriever of its own; a script's classes and methods join the library's.
TEST(LibraryTables, PrefixModuleTakesTheScriptsDeclarations) {
  ModuleDeclaration* module = MakeKvScriptRuntimeDeclarations();
  module->Lock();
  ClassDeclaration* root = module->LookupClass("RuntimeException");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->GetParent(), nullptr);
  for (unsigned i = 0; i < module->CountClasses(); ++i) {
    ClassDeclaration* c = module->GetClass(i);
    if (c == root || c->GetName() == "Variant") continue;
    EXPECT_EQ(c->GetParent(), root) << c->GetName().CString();
    EXPECT_EQ(c->GetStorageSize(), root->GetStorageSize()) << c->GetName().CString();
    Ref<SimpleVector<FunctionDeclaration*>> lookups = c->LookupMethodsByBase("__Lookup", kFilterPlain);
    ASSERT_TRUE(lookups && lookups->size() == 1) << c->GetName().CString();
    EXPECT_EQ((*lookups.Get())[0]->GetType().GetMainType(), kTypeClassRef);
  }
  EXPECT_EQ(module->LookupMethodsByBase("UBOUND", kFilterAll)->size(), 2u) << "overloads by script name";

  bool failed = false;
  ModuleDeclaration* mined = ExtractDeclarations(
      "Class Oops\nInherits NilObjectException\nEnd Class\nSub Print(n As Integer)\nEnd Sub\n", failed, module);
  EXPECT_EQ(mined, module);
  EXPECT_FALSE(failed);
  ClassDeclaration* oops = module->LookupClass("Oops");
  ASSERT_NE(oops, nullptr);
  EXPECT_EQ(oops->GetParent(), module->LookupClass("NilObjectException"));
  EXPECT_EQ(module->LookupMethodsByBase("Print", kFilterAll)->size(), 2u) << "the script's Print beside the library's";
  module->Unlink();
  module->Unlock();
}

}  // namespace
