// IA-32 code generation, run on the processor: labels and jumps, calls in
// and out, the register cache's invariants, reference counting calls, the
// frame and its prolog, and the exception marker blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "backend/CodeGeneratorFixture.h"
#include "runtime/RuntimeObjectFoundation.h"

// Written in assembly so that no code of the compiler's stands between.
// KvTestStackAtCall gives esp as it was at the call instruction, 4 bytes
// above its own entry. KvTestCallKeepingRegisters calls `fn` with ebx, esi
// and edi holding known values, and gives its result, or -1 if any of the
// three came back changed.
extern "C" uintptr_t KvTestStackAtCall(...);
extern "C" int KvTestCallKeepingRegisters(int (*fn)());
asm(".text\n"
    ".globl KvTestStackAtCall\n"
    ".hidden KvTestStackAtCall\n"
    "KvTestStackAtCall:\n"
    "  lea 4(%esp), %eax\n"
    "  ret\n"
    ".globl KvTestCallKeepingRegisters\n"
    ".hidden KvTestCallKeepingRegisters\n"
    "KvTestCallKeepingRegisters:\n"
    "  push %ebp\n"
    "  mov %esp, %ebp\n"
    "  push %ebx\n"
    "  push %esi\n"
    "  push %edi\n"
    "  sub $12, %esp\n"  // back on the 16-byte boundary for the call
    "  mov $0x11111111, %ebx\n"
    "  mov $0x22222222, %esi\n"
    "  mov $0x33333333, %edi\n"
    "  call *8(%ebp)\n"
    "  cmp $0x11111111, %ebx\n"
    "  jne 1f\n"
    "  cmp $0x22222222, %esi\n"
    "  jne 1f\n"
    "  cmp $0x33333333, %edi\n"
    "  je 2f\n"
    "1:mov $-1, %eax\n"
    "2:lea -12(%ebp), %esp\n"
    "  pop %edi\n"
    "  pop %esi\n"
    "  pop %ebx\n"
    "  pop %ebp\n"
    "  ret\n");

namespace {

typedef int (*IntFn)(int);
typedef int (*IntIntFn)(int, int);

// ---------------------------------------------------------------------------
// Labels and jumps

// ---------------------------------------------------------------------------
// A comparison whose result only the branch behind it reads becomes cmp and
// one conditional jump, with no setcc and no store.

struct FusedTest {
  TacOpcode op;
  char const* name;
  bool floats;
  bool (*holds)(double, double);
};

const FusedTest kFusedTests[] = {
    {tac_EQI, "eq", false, [](double a, double b) { return a == b; }},
    {tac_NEI, "ne", false, [](double a, double b) { return a != b; }},
    {tac_LTI, "lt", false, [](double a, double b) { return a < b; }},
    {tac_LEI, "le", false, [](double a, double b) { return a <= b; }},
    {tac_EQD, "eqd", true, [](double a, double b) { return a == b; }},
    {tac_NED, "ned", true, [](double a, double b) { return !(a == b); }},
    {tac_LTD, "ltd", true, [](double a, double b) { return a < b; }},
    {tac_LED, "led", true, [](double a, double b) { return !(b < a); }},
};

// The branch: its opcode, the Boolean it tests against, and whether that
// Boolean is its first operand.
struct BranchShape {
  TacOpcode op;
  bool against;
  bool constantFirst;
};
const BranchShape kBranchShapes[] = {
    {tac_IfEQI, false, false}, {tac_IfNEI, false, false}, {tac_IfEQI, true, false}, {tac_IfNEI, true, true}};

bool Taken(BranchShape const& shape, bool holds) { return (shape.op == tac_IfEQI) == (holds == shape.against); }

// Signed edges, and the ends of the sign-extended byte.
const int32_t kEdgeInts[] = {INT32_MIN, -129, -128, -1, 0, 1, 127, 128, INT32_MAX};
const double kEdgeDoubles[] = {-2.5, -0.0, 0.0, 1.0, HUGE_VAL, NAN};

// Any setcc: 0F 90 to 0F 9F. The operands here are small frame offsets and
// the constants above, none of which holds that pair.
bool HasSetcc(Ref<FunctionBlock> code) {
  for (unsigned i = 0; i + 1 < code->Length(); ++i) {
    if (code->Get8(i) == 0x0F && (code->Get8(i + 1) & 0xF0) == 0x90) return true;
  }
  return false;
}

// Each function gives 1 when its branch is taken, else 0; a "kept" one also
// reads the comparison's result afterwards and gives 2 * taken + result.
// Integer operands are two parameters, or one and a constant `k` on either
// side. The result is a local, a temporary of the main program (a static
// named by a counter), or a global that other code may read, never fused.
TEST(Flow, ACompareFusedWithItsBranchJumpsTheSameWayAndAReadResultIsKept) {
  struct Defined {
    std::string name;
    FusedTest const* test;
    BranchShape const* shape;
    bool kept;
    int side;  // 0: two parameters; 1: the constant second; 2: first
    int32_t k;
    int storage;  // 0: local; 1: static temporary; 2: global
  };
  TacProgram program;
  std::vector<Defined> defined;
  auto define = [&](FusedTest const& test, BranchShape const& shape, bool kept, int side, int32_t k) {
    int storage = (int)(defined.size() % 3);
    defined.push_back({"f" + std::to_string(defined.size()), &test, &shape, kept, side, k, storage});
    program.Function(defined.back().name.c_str());
    SimpleDataType type = test.floats ? kTypeDouble : kTypeInteger;
    auto p = program.Params({{"a", type}, {"b", type}});
    TacAddr const* t = storage == 0 ? program.Local("t", kTypeBoolean)
                       : storage == 1 ? program.Global("Mod.0000001A", kTypeBoolean)
                                      : program.Global("flag", kTypeBoolean);
    TacAddr const* r = program.Local("r", kTypeInteger);
    TacAddr const* taken = program.Int(1);
    TacAddr const* done = program.Int(2);
    program.Add(test.op, side == 2 ? program.Int(k) : p[0], side == 1 ? program.Int(k) : p[1], t);
    TacAddr const* against = program.Bool(shape.against);
    program.Add(shape.op, shape.constantFirst ? against : t, shape.constantFirst ? t : against, taken);
    program.Add(tac_Store, program.Int(0), nullptr, r);
    program.Add(tac_Jump, nullptr, nullptr, done);
    program.Add(tac_Label, taken);
    program.Add(tac_Store, program.Int(1), nullptr, r);
    program.Add(tac_Label, done);
    if (kept) {
      program.Add(tac_AddI, r, r, r);
      program.Add(tac_AddI, r, t, r);
    }
    program.Return(r);
  };
  for (FusedTest const& test : kFusedTests) {
    for (BranchShape const& shape : kBranchShapes) {
      for (bool kept : {false, true}) {
        define(test, shape, kept, 0, 0);
        if (test.floats) continue;
        for (int32_t k : {INT32_MIN, -129, -1, 0, 127, 128}) {
          define(test, shape, kept, 1, k);
          define(test, shape, kept, 2, k);
        }
      }
    }
  }
  Ref<CodeModule> module = GenerateIA32(program);
  LinkedModule image(module);
  ASSERT_TRUE(image);

  for (Defined const& f : defined) {
    EXPECT_EQ(HasSetcc(FindFunction(module, f.name.c_str())), f.kept || f.storage == 2) << f.test->name;
    auto check = [&](double a, double b, int got) {
      bool holds = f.test->holds(a, b);
      int taken = Taken(*f.shape, holds);
      EXPECT_EQ(got, f.kept ? 2 * taken + holds : taken)
          << f.test->name << " " << f.shape->op << " " << f.shape->against << " " << f.kept << ": " << a << ", " << b;
    };
    if (f.test->floats) {
      auto fn = image.Entry<int (*)(double, double)>(f.name.c_str());
      for (double a : kEdgeDoubles) {
        for (double b : kEdgeDoubles) check(a, b, fn(a, b));
      }
      continue;
    }
    auto fn = image.Entry<IntIntFn>(f.name.c_str());
    for (int32_t x : kEdgeInts) {
      for (int32_t y : kEdgeInts) {
        int32_t a = f.side == 2 ? f.k : x;
        int32_t b = f.side == 1 ? f.k : y;
        check(a, b, fn(x, y));
      }
    }
  }
}

TEST(Flow, AJumpToALabelNeverPlacedIsError94) {
  struct Case {
    char const* what;
    long label;
    TacOpcode op;
  } const cases[] = {
      {"GoTo a missing label", 77, tac_Jump},
      {"a return placeholder left unpatched", kFunctionReturnTarget, tac_Jump},
      {"a conditional jump", 78, tac_IfEQI},
  };
  for (Case const& c : cases) {
    TacProgram program;
    program.Function("f");
    TacAddr const* x = program.Local("x", kTypeInteger);
    program.Add(tac_Store, program.Int(1), nullptr, x);
    program.Add(c.op, c.op == tac_Jump ? nullptr : x, c.op == tac_Jump ? nullptr : x, program.Int(c.label));
    program.Add(tac_Label, program.Int(5));  // another label does not help
    program.Return();
    BackendRecorder delegate;
    EXPECT_FALSE(GenerateIA32(program, &delegate)) << c.what;
    // Reported at the function's closing line.
    EXPECT_EQ(DescribeErrors(delegate.errors), " UndefinedLabel@" + std::to_string(program.line)) << c.what;
  }
}

// ---------------------------------------------------------------------------
// Calls

int TestDigits(int a, int b, int c) { return a * 100 + b * 10 + c; }
double TestMix(int a, double b, float c) { return a + b * 10 + c * 100; }
int TestJunkHigh(int low) { return (int)0x7FFFFF00 | low; }
int TestSumVarargs(int n, ...) {
  va_list args;
  va_start(args, n);
  int total = 0;
  for (int i = 0; i < n; ++i) total += va_arg(args, int);
  va_end(args);
  return total;
}

TEST(Calls, ArgumentsGoInOrderAndResultsComeBackByType) {
  TacProgram program;
  program.Function("digits");
  auto p = program.Params({{"a", kTypeInteger}});
  TacAddr const* r = program.Local("r", kTypeInteger);
  program.Add(tac_PutParam, p[0]);
  program.Add(tac_PutParam, program.Int(2));
  program.Add(tac_PutParam, program.Int(3));
  program.Add(tac_Call, program.Text("TestDigits"), nullptr, r);
  program.Return(r);

  program.Function("mix");
  auto q = program.Params({{"b", kTypeDouble}});
  TacAddr const* single = program.Local("single", kTypeSingle);
  TacAddr const* d = program.Local("d", kTypeDouble);
  program.Add(tac_Store, program.Sgl(0.5f), nullptr, single);
  program.Add(tac_PutParam, program.Int(7));
  program.Add(tac_PutParam, q[0]);
  program.Add(tac_PutParam, single);
  program.Add(tac_Call, program.Text("TestMix"), program.Text("lib"), d);
  program.Return(d);

  // Only the low bit of a returned Boolean counts.
  program.Function("junk");
  auto j = program.Params({{"low", kTypeInteger}});
  TacAddr const* flag = program.Local("flag", kTypeBoolean);
  program.Add(tac_PutParam, j[0]);
  program.Add(tac_Call, program.Text("TestJunkHigh"), nullptr, flag);
  program.Return(flag);

  // Generated calling generated, through a name, a pointer and an intrinsic;
  // a result nobody takes is dropped.
  program.Function("outer");
  auto o = program.Params({{"x", kTypeInteger}});
  TacAddr const* ptr = program.Local("ptr", kTypeInteger);
  TacAddr const* via = program.Local("via", kTypeInteger);
  TacAddr const* total = program.Local("total", kTypeInteger);
  program.Add(tac_PutParam, o[0]);
  program.Add(tac_PutParam, program.Int(1));
  program.Add(tac_PutParam, program.Int(0));
  program.Add(tac_Call, program.Text("TestDigits"));  // result dropped
  program.Add(tac_FuncPtr, program.Text("digits"), nullptr, ptr);
  program.Add(tac_PutParam, o[0]);
  program.Add(tac_CallPtr, ptr, nullptr, via);
  program.Add(tac_PutParam, o[0]);
  program.Add(tac_PutParam, o[0]);
  program.Add(tac_PutParam, o[0]);
  program.Add(tac_Intrinsic, IntrinsicTacAddr(3), nullptr, total);
  program.Add(tac_AddI, total, via, total);
  program.Return(total);

  program.Function("varargs");
  TacAddr const* fp = program.Local("fp", kTypeInteger);
  TacAddr const* v = program.Local("v", kTypeInteger);
  program.Add(tac_FuncPtr, program.Text("TestSumVarargs"), nullptr, fp);
  program.Add(tac_PutParam, program.Int(3));
  program.Add(tac_PutParam, program.Int(10));
  program.Add(tac_PutParam, program.Int(20));
  program.Add(tac_PutParam, program.Int(30));
  program.Add(tac_CallPtrVarargs, fp, nullptr, v);
  program.Return(v);

  Ref<CodeModule> module = GenerateIA32(program, nullptr, TestIntrinsicNames({{3, "TestDigits"}}));
  LinkedModule image(module, {{"TestDigits", (void*)TestDigits},
                                  {"TestMix", (void*)TestMix},
                                  {"TestJunkHigh", (void*)TestJunkHigh},
                                  {"TestSumVarargs", (void*)TestSumVarargs}});
  ASSERT_TRUE(image);
  EXPECT_EQ(image.Entry<IntFn>("digits")(1), 123);
  EXPECT_EQ(image.Entry<double (*)(double)>("mix")(0.25), 7 + 2.5 + 50);
  EXPECT_EQ(image.Entry<IntFn>("junk")(1), 1);
  EXPECT_EQ(image.Entry<IntFn>("junk")(0), 0);
  EXPECT_EQ(image.Entry<IntFn>("outer")(4), (400 + 23) + 444);
  EXPECT_EQ(image.Entry<int (*)()>("varargs")(), 60);
  EXPECT_EQ(image.Uses("digits"), 1);
}

// The i386 ABI's 16-byte boundary at every call out of generated code, for
// each number of arguments (Integers and Doubles by turns, so the block's
// size takes every value mod 16) and each mix of locals of 4 and 8 bytes,
// with 0 to 3 callee-saved registers in use; the callee is a C function or
// a generated one that calls out in turn.
TEST(Calls, EveryCallFindsTheStackOnTheABIsBoundary) {
  auto argType = [](int i) { return i % 2 ? kTypeDouble : kTypeInteger; };
  TacProgram program;
  TacAddr const* recorder = program.Text("KvTestStackAtCall");
  constexpr int kMaxArgs = 8, kMaxLocals = 5;
  std::vector<TacAddr const*> probes;
  for (int n = 0; n <= kMaxArgs; ++n) {
    std::string name = "probe" + std::to_string(n);
    probes.push_back(program.Text(name.c_str()));
    program.Function(name.c_str());
    std::vector<std::pair<char const*, SimpleDataType>> params;
    for (int i = 0; i < n; ++i) params.push_back({"p", argType(i)});
    program.Params(params);
    TacAddr const* r = program.Local("r", kTypeInteger);
    program.Add(tac_Call, recorder, nullptr, r);
    program.Return(r);
  }
  std::vector<std::string> callers;
  for (int args = 0; args <= kMaxArgs; ++args)
    for (int ints = 0; ints <= kMaxLocals; ++ints)
      for (int doubles = 0; doubles <= kMaxLocals; ++doubles)
        for (int strings = 0; strings <= kMaxLocals; ++strings)
          for (bool generated : {false, true}) {
            char name[64];
            snprintf(name, sizeof name, "a%d i%d d%d s%d %s", args, ints, doubles, strings,
                     generated ? "generated" : "C");
            callers.push_back(name);
            program.Function(name);
            std::vector<TacAddr const*> words;
            for (int i = 0; i < ints; ++i) words.push_back(program.Local(("i" + std::to_string(i)).c_str(), kTypeInteger));
            for (int i = 0; i < strings; ++i) words.push_back(program.Local(("s" + std::to_string(i)).c_str(), kTypeString));
            for (int i = 0; i < doubles; ++i) program.Local(("d" + std::to_string(i)).c_str(), kTypeDouble);
            // Each word read takes a register of its own: eax, ecx, edx, then
            // the callee-saved ebx, esi and edi.
            for (TacAddr const* w : words) program.Add(tac_Store, w, nullptr, w);
            for (int i = 0; i < args; ++i)
              program.Add(tac_PutParam, argType(i) == kTypeDouble ? program.Dbl(0.5) : program.Int(i));
            TacAddr const* r = program.Local("r", kTypeInteger);
            program.Add(tac_Call, generated ? probes[args] : recorder, nullptr, r);
            program.Return(r);
          }
  LinkedModule image(GenerateIA32(program), {{"KvTestStackAtCall", (void*)KvTestStackAtCall}});
  ASSERT_TRUE(image);
  std::vector<std::string> misaligned;
  for (std::string const& name : callers) {
    uintptr_t esp = image.Entry<uintptr_t (*)()>(name.c_str())();
    if (esp == 0 || esp % 16 != 0) misaligned.push_back(name);
  }
  EXPECT_EQ(misaligned.size(), 0u) << "first: " << (misaligned.empty() ? "" : misaligned[0]);
}

// ---------------------------------------------------------------------------
// The register cache

int32_t* gSharedGlobal;
void TestBumpGlobal() { *gSharedGlobal += 1000; }
int TestReadGlobal() { return *gSharedGlobal; }
int TestDeref(int32_t* p) { return *p; }

TEST(RegisterCache, ACallForgetsWhatRegistersHeldAndMemoryIsCurrentBeforeIt) {
  TacProgram program;
  program.Function("bump");
  auto p = program.Params({{"a", kTypeInteger}});
  TacAddr const* g = program.Global("shared", kTypeInteger);
  TacAddr const* x = program.Local("x", kTypeInteger);
  TacAddr const* seen = program.Local("seen", kTypeInteger);
  program.Add(tac_MulI, p[0], program.Int(3), g);   // g in a register and in memory
  program.Add(tac_Call, program.Text("TestReadGlobal"), nullptr, seen);
  program.Add(tac_Call, program.Text("TestBumpGlobal"));
  program.Add(tac_AddI, g, seen, x);               // g must be read again
  program.Return(x);

  program.Function("local");
  auto q = program.Params({{"a", kTypeInteger}});
  TacAddr const* local = program.Local("local", kTypeInteger);
  TacAddr const* ptr = program.Local("ptr", kTypeInteger);
  TacAddr const* r = program.Local("r", kTypeInteger);
  program.Add(tac_Varptr, local, nullptr, ptr);
  program.Add(tac_AddI, q[0], program.Int(1), local);
  program.Add(tac_PutParam, ptr);
  program.Add(tac_Call, program.Text("TestDeref"), nullptr, r);
  program.Return(r);

  LinkedModule image(GenerateIA32(program), {{"TestReadGlobal", (void*)TestReadGlobal},
                                             {"TestBumpGlobal", (void*)TestBumpGlobal},
                                             {"TestDeref", (void*)TestDeref}});
  ASSERT_TRUE(image);
  gSharedGlobal = (int32_t*)image.Address("shared");
  EXPECT_EQ(image.Entry<IntFn>("bump")(5), (15 + 1000) + 15);
  EXPECT_EQ(*gSharedGlobal, 1015);
  EXPECT_EQ(image.Entry<IntFn>("local")(41), 42);
}

// Each register lists the operands it holds, up to a cap: seventy copies of
// one value, each stored from the same register, run past it.
TEST(RegisterCache, CopiesPastTheListsCapStillReadBack) {
  TacProgram program;
  program.Function("copies");
  auto p = program.Params({{"a", kTypeInteger}});
  std::vector<TacAddr const*> copies = {p[0]};
  for (int i = 0; i < 70; ++i) {
    copies.push_back(program.Local(("c" + std::to_string(i)).c_str(), kTypeInteger));
    program.Add(tac_Store, copies[i], nullptr, copies[i + 1]);
  }
  TacAddr const* r = program.Local("r", kTypeInteger);
  program.Add(tac_AddI, copies[1], copies.back(), r);
  program.Return(r);
  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);
  EXPECT_EQ(image.Entry<IntFn>("copies")(21), 42);
}

// ---------------------------------------------------------------------------
// Reference counts

std::vector<std::string> gLockCalls;
void Note(char const* what, void* a, void* b = nullptr) {
  char text[64];
  snprintf(text, sizeof text, "%s %p %p", what, a, b);
  gLockCalls.push_back(text);
}
std::string Noted(char const* what, void const* a, void const* b = nullptr) {
  char text[64];
  snprintf(text, sizeof text, "%s %p %p", what, a, b);
  return text;
}

// An object header as far as the lock count.
struct FakeObject {
  uint32_t words[kObjectLockCountOffset / 4 + 1] = {};
  explicit FakeObject(uint32_t count) { words[kObjectLockCountOffset / 4] = count; }
  int Count() const { return (int)words[kObjectLockCountOffset / 4]; }
};

TEST(Locks, TheCallFollowsTheTypeAndUnlockingClearsTheVariable) {
  gLockCalls.clear();
  TacProgram program;
  program.Function("locks");
  auto p = program.Params({{"s", kTypeString}, {"o", kTypeObject}, {"a", kTypeArray}, {"old", kTypeString}});
  TacAddr const* sum = program.Local("sum", kTypeInteger);
  program.Add(tac_Lock, p[0]);
  program.Add(tac_Lock, p[1]);
  program.Add(tac_Lock, p[2]);
  program.Add(tac_Lock, program.Text("hello"));
  program.Add(tac_Lock, program.Text(""));
  program.Add(tac_SwapLocks, p[0], p[3]);
  program.Add(tac_Unlock, p[1]);
  program.Add(tac_Unlock, p[2]);
  // Zero left behind in each: sum of the three.
  program.Add(tac_AddI, p[1], p[2], sum);
  program.Add(tac_AddI, sum, p[3], sum);
  program.Return(sum);

  std::map<int, char const*> names = {
      {kIntrinsicRuntimeLockString, "LS"}, {kIntrinsicRuntimeUnlockString, "US"}, {kIntrinsicRuntimeLockUnlockStrings, "SS"},
      {kIntrinsicRuntimeLockObject, "LO"}, {kIntrinsicRuntimeUnlockObject, "UO"}, {kIntrinsicRuntimeLockUnlockObjects, "SO"},
      {kIntrinsicRuntimeLockArray, "LA"},  {kIntrinsicRuntimeUnlockArray, "UA"},  {kIntrinsicRuntimeLockUnlockArrays, "SA"},
  };
  Ref<CodeModule> module = GenerateIA32(program, nullptr, TestIntrinsicNames(names));
  void (*ls)(void*) = [](void* a) { Note("LS", a); };
  void (*lo)(void*) = [](void* a) { Note("LO", a); };
  void (*la)(void*) = [](void* a) { Note("LA", a); };
  void (*uo)(void*) = [](void* a) { Note("UO", a); };
  void (*ua)(void*) = [](void* a) { Note("UA", a); };
  void (*ss)(void*, void*) = [](void* a, void* b) { Note("SS", a, b); };
  LinkedModule image(module, {{"LS", (void*)ls}, {"LO", (void*)lo}, {"LA", (void*)la},
                                  {"UO", (void*)uo}, {"UA", (void*)ua}, {"SS", (void*)ss}});
  ASSERT_TRUE(image);
  auto* hello = (stringStorage*)image.Address("hello", Import::kStringIA32);
  ASSERT_NE(hello, nullptr);
  EXPECT_STREQ(stringStorage::CString(hello), "hello");
  // An object's count changes in place while it stays above 0.
  int s = 0, a = 0, old = 0;
  FakeObject o(2);
  auto fn = image.Entry<int (*)(int*, uint32_t*, int*, int*)>("locks");
  EXPECT_EQ(fn(&s, o.words, &a, &old), 0);
  std::vector<std::string> expected = {
      Noted("LS", &s), Noted("LA", &a), Noted("LS", hello),
      Noted("LS", nullptr),  // "" is the nil string
      Noted("SS", &s, &old), Noted("UA", &a),
  };
  EXPECT_EQ(gLockCalls, expected);
  EXPECT_EQ(o.Count(), 2);
  EXPECT_EQ(image.Uses(""), 0);
}

// Unlocking nil and swapping a value for itself change no count, so those
// calls are stepped over; the calls still made find the stack on the boundary.
int gMisalignedCounts;
void NoteAligned(char const* what, void* frame, void* a, void* b = nullptr) {
  gMisalignedCounts += ((uintptr_t)frame + 8) % 16 != 0;
  Note(what, a, b);
}

TEST(Locks, NilUnlocksAndSameValueSwapsMakeNoCall) {
  TacProgram program;
  program.Function("release");
  auto p = program.Params({{"s", kTypeString}, {"o", kTypeObject}, {"a", kTypeArray}, {"x", kTypeString}, {"y", kTypeString}});
  TacAddr const* sum = program.Local("sum", kTypeInteger);
  program.Add(tac_Unlock, p[0]);
  program.Add(tac_Unlock, p[1]);
  program.Add(tac_Unlock, p[2]);
  program.Add(tac_SwapLocks, p[3], p[4]);
  program.Add(tac_AddI, p[0], p[1], sum);
  program.Add(tac_AddI, sum, p[2], sum);
  program.Add(tac_AddI, sum, p[4], sum);
  program.Return(sum);
  std::map<int, char const*> names = {{kIntrinsicRuntimeUnlockString, "US"}, {kIntrinsicRuntimeUnlockObject, "UO"},
                                      {kIntrinsicRuntimeUnlockArray, "UA"}, {kIntrinsicRuntimeLockUnlockStrings, "SS"}};
  void (*us)(void*) = [](void* a) { NoteAligned("US", __builtin_frame_address(0), a); };
  void (*uo)(void*) = [](void* a) { NoteAligned("UO", __builtin_frame_address(0), a); };
  void (*ua)(void*) = [](void* a) { NoteAligned("UA", __builtin_frame_address(0), a); };
  void (*ss)(void*, void*) = [](void* a, void* b) { NoteAligned("SS", __builtin_frame_address(0), a, b); };
  LinkedModule image(GenerateIA32(program, nullptr, TestIntrinsicNames(names)),
                     {{"US", (void*)us}, {"UO", (void*)uo}, {"UA", (void*)ua}, {"SS", (void*)ss}});
  ASSERT_TRUE(image);
  auto fn = image.Entry<int (*)(int*, uint32_t*, int*, int*, int*)>("release");
  int s = 0, a = 0, x = 0, y = 0;
  // The library hears of an object only when its last lock goes; an object
  // being destroyed (count 0) is left alone.
  FakeObject last(1), shared(3), dying(0);
  struct {
    int* s;
    FakeObject* o;
    int *a, *x, *y;
    std::vector<std::string> calls;
  } const cases[] = {
      {nullptr, nullptr, nullptr, nullptr, nullptr, {}},
      {&s, &last, &a, &x, &y, {Noted("US", &s), Noted("UO", last.words), Noted("UA", &a), Noted("SS", &x, &y)}},
      {nullptr, &shared, nullptr, &x, &x, {}},
      {&s, &dying, &a, &x, nullptr, {Noted("US", &s), Noted("UA", &a), Noted("SS", &x, nullptr)}},
      {nullptr, nullptr, nullptr, nullptr, &y, {Noted("SS", nullptr, &y)}},
  };
  for (auto const& c : cases) {
    gLockCalls.clear();
    gMisalignedCounts = 0;
    EXPECT_EQ(fn(c.s, c.o ? c.o->words : nullptr, c.a, c.x, c.y), 0);  // each cleared, nil or not
    EXPECT_EQ(gLockCalls, c.calls);
    EXPECT_EQ(gMisalignedCounts, 0);
  }
  EXPECT_EQ(last.Count(), 1);  // the library's business
  EXPECT_EQ(shared.Count(), 2);
  EXPECT_EQ(dying.Count(), 0);
}

// ---------------------------------------------------------------------------
// The frame

// Six values live at once fill eax, ecx, edx and the callee-saved ebx, esi
// and edi; a caller must find the last three as it left them. Every
// function ends in pop ebp; ret, where the exception scan stops.
TEST(Frame, CalleeSavedRegistersSurviveAndEveryFunctionEndsWhereTheScanStops) {
  TacProgram program;
  program.Function("many");
  std::vector<TacAddr const*> v;
  for (int i = 0; i < 12; ++i) v.push_back(program.Local(("v" + std::to_string(i)).c_str(), kTypeInteger));
  for (int i = 0; i < 6; ++i) program.Add(tac_Store, v[i], nullptr, v[i + 6]);
  program.Return(program.Int(7));
  program.Function("real");
  program.Return(program.Dbl(3.0));
  Ref<CodeModule> module = GenerateIA32(program);
  ASSERT_TRUE(module);
  for (unsigned long i = 0; i < module->functions.size(); ++i) {
    Ref<FunctionBlock> f = module->functions[i];
    EXPECT_EQ(f->Get16(f->Length() - 2), 0xC35Du) << f->name.CString();
  }
  LinkedModule image(module);
  ASSERT_TRUE(image);
  EXPECT_EQ(KvTestCallKeepingRegisters(image.Entry<int (*)()>("many")), 7);
}

}  // namespace
