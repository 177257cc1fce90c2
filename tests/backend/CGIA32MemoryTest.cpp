// IA-32 code generation, run on the processor: loads and stores of locals,
// globals and object fields, addresses, and the Peek and Poke families.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "backend/CodeGeneratorFixture.h"

namespace {

TEST(Memory, GlobalsAreStoredThroughAndSizedForTheLinker) {
  TacProgram program;
  program.Function("globals");
  auto p = program.Params({{"a", kTypeInteger}, {"x", kTypeDouble}});
  TacAddr const* g = program.Global("g", kTypeInteger);
  TacAddr const* d = program.Global("d", kTypeDouble);
  TacAddr const* flag = program.Global("flag", kTypeBoolean);
  TacAddr const* r = program.Local("r", kTypeInteger);
  program.Add(tac_AddI, p[0], program.Int(1), g);
  program.Add(tac_MulD, p[1], program.Dbl(2.0), d);
  program.Add(tac_LTI, p[0], program.Int(0), flag);
  program.Add(tac_AddI, g, g, r);  // read back: 2a + 2
  program.Return(r);

  Ref<CodeModule> module = GenerateIA32(program);
  ASSERT_TRUE(module);
  unsigned int size = 0;
  ASSERT_TRUE(module->globalSizes.GetEntry(string("g"), size));
  EXPECT_EQ(size, 4u);
  ASSERT_TRUE(module->globalSizes.GetEntry(string("d"), size));
  EXPECT_EQ(size, 8u);
  LinkedModule image(module);
  ASSERT_TRUE(image);
  auto fn = image.Entry<int (*)(int, double)>("globals");
  EXPECT_EQ(fn(20, 1.25), 42);
  EXPECT_EQ(*(int32_t*)image.Address("g"), 21);
  EXPECT_EQ(*(double*)image.Address("d"), 2.5);
  EXPECT_EQ(*(int32_t*)image.Address("flag"), 0);
  EXPECT_EQ(fn(-3, 0.0), -4);
  EXPECT_EQ(*(int32_t*)image.Address("flag"), 1);
}

// An object: the holder is a parameter, fields at base offset 8.
struct TestObject {
  int32_t header[2];
  int32_t count;
  double weight;
  int32_t flag;
  int32_t other;
};
constexpr int kFieldBase = offsetof(TestObject, count);

TEST(Memory, ObjectFieldsGoThroughTheBaseReference) {
  TacProgram program;
  program.Function("method");
  auto p = program.Params({{"me", kTypeObject}});
  TacAddr const* count = program.Field("T.count", kTypeInteger, offsetof(TestObject, count) - kFieldBase);
  TacAddr const* weight = program.Field("T.weight", kTypeDouble, offsetof(TestObject, weight) - kFieldBase);
  TacAddr const* flag = program.Field("T.flag", kTypeBoolean, offsetof(TestObject, flag) - kFieldBase);
  TacAddr const* other = program.Field("T.other", kTypeInteger, offsetof(TestObject, other) - kFieldBase);
  TacAddr const* ptr = program.Local("ptr", kTypeInteger);
  program.Add(tac_Baseref, p[0], program.Int(kFieldBase));
  program.Add(tac_AddI, count, program.Int(5), count);
  program.Add(tac_MulD, weight, weight, weight);
  program.Add(tac_EQI, count, program.Int(47), flag);
  // The address of a field, written through.
  program.Add(tac_Varptr, other, nullptr, ptr);
  program.Add(tac_PokeI, count, nullptr, ptr);
  program.Return(count);

  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);
  auto fn = image.Entry<int (*)(TestObject*)>("method");
  TestObject object = {{-1, -1}, 42, 1.5, 0x7A7B7C00, 0};
  EXPECT_EQ(fn(&object), 47);
  EXPECT_EQ(object.count, 47);
  EXPECT_EQ(object.weight, 2.25);
  // A Boolean field takes one byte of its slot.
  EXPECT_EQ(object.flag, 0x7A7B7C01);
  EXPECT_EQ(object.other, 47);
  EXPECT_EQ(object.header[0], -1);
  EXPECT_EQ(object.header[1], -1);
  object.count = 0;
  fn(&object);
  EXPECT_EQ(object.flag, 0x7A7B7C00);
}

// Constants go straight into variables of every kind, a Boolean field still
// one byte, and a register that held the old value forgets it.
TEST(Memory, ConstantsAreStoredWithNoRegisterBetween) {
  TacProgram program;
  program.Function("constants");
  auto p = program.Params({{"me", kTypeObject}});
  TacAddr const* count = program.Field("T.count", kTypeInteger, offsetof(TestObject, count) - kFieldBase);
  TacAddr const* flag = program.Field("T.flag", kTypeBoolean, offsetof(TestObject, flag) - kFieldBase);
  TacAddr const* g = program.Global("g", kTypeInteger);
  TacAddr const* r = program.Local("r", kTypeInteger);
  program.Add(tac_Baseref, p[0], program.Int(kFieldBase));
  program.Add(tac_Store, program.Int(-129), nullptr, g);
  program.Add(tac_Store, program.Int(128), nullptr, count);
  program.Add(tac_Store, program.Bool(true), nullptr, flag);
  program.Add(tac_Store, program.Int(127), nullptr, r);
  program.Add(tac_AddI, r, g, r);  // -2, left in a register
  program.Add(tac_Store, program.Int(1000), nullptr, r);
  program.Add(tac_AddI, r, count, r);
  program.Return(r);

  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);
  TestObject object = {{-1, -1}, 0, 0.0, 0x7A7B7C00, 0};
  EXPECT_EQ(image.Entry<int (*)(TestObject*)>("constants")(&object), 1128);
  EXPECT_EQ(*(int32_t*)image.Address("g"), -129);
  EXPECT_EQ(object.count, 128);
  EXPECT_EQ(object.flag, 0x7A7B7C01);
}

TEST(Memory, AddressesOfLocalsAndGlobals) {
  TacProgram program;
  program.Function("addresses");
  auto p = program.Params({{"a", kTypeInteger}});
  TacAddr const* local = program.Local("local", kTypeInteger);
  TacAddr const* ptr = program.Local("ptr", kTypeInteger);
  TacAddr const* g = program.Global("target", kTypeInteger);
  TacAddr const* r = program.Local("r", kTypeInteger);
  program.Add(tac_Varptr, local, nullptr, ptr);
  program.Add(tac_PokeI, p[0], nullptr, ptr);
  program.Add(tac_Label, program.Int(1));  // the cache must not answer for `local`
  program.Add(tac_AddI, local, program.Int(100), r);
  program.Add(tac_Varptr, g, nullptr, ptr);
  program.Add(tac_PokeI, r, program.Int(0), ptr);
  program.Add(tac_PeekI, ptr, nullptr, r);
  program.Return(r);

  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);
  EXPECT_EQ(image.Entry<int (*)(int)>("addresses")(7), 107);
  EXPECT_EQ(*(int32_t*)image.Address("target"), 107);
}

// One function per Peek or Poke shape: offset none, constant, or variable.
struct Buffer {
  uint8_t bytes[64];
};

enum OffsetShape { kNoOffset, kConstantOffset, kVariableOffset };

struct PeekCase {
  TacOpcode op;
  SimpleDataType result;
  OffsetShape shape;
  char const* name;
};

PeekCase const kPeeks[] = {
    {tac_PeekI, kTypeInteger, kNoOffset, "peeki0"},   {tac_PeekI, kTypeInteger, kConstantOffset, "peekik"},
    {tac_PeekI, kTypeInteger, kVariableOffset, "peekiv"}, {tac_PeekS, kTypeString, kConstantOffset, "peeks"},
    {tac_PeekO, kTypeObject, kVariableOffset, "peeko"}, {tac_PeekB, kTypeInteger, kNoOffset, "peekb0"},
    {tac_PeekB, kTypeInteger, kConstantOffset, "peekbk"}, {tac_PeekB, kTypeInteger, kVariableOffset, "peekbv"},
};

constexpr int kConstantDisplacement = 200;  // past the 8-bit displacement

TEST(Memory, PeekReadsWordsAndZeroExtendedBytes) {
  TacProgram program;
  for (PeekCase const& c : kPeeks) {
    program.Function(c.name);
    auto p = program.Params({{"p", kTypeInteger}, {"i", kTypeInteger}});
    TacAddr const* r = program.Local("r", c.result);
    TacAddr const* offset = c.shape == kNoOffset         ? nullptr
                            : c.shape == kConstantOffset ? program.Int(kConstantDisplacement)
                                                         : p[1];
    // For the no-offset shape, `p` already points at the word.
    program.Add(c.op, p[0], offset, r);
    program.Return(r);
  }
  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);

  uint8_t memory[512];
  for (int i = 0; i < 512; ++i) memory[i] = (uint8_t)(0xF0 + i);
  uint8_t* base = memory + 16;
  for (PeekCase const& c : kPeeks) {
    auto fn = image.Entry<int (*)(uint8_t*, int)>(c.name);
    int index = 9;
    uint8_t* at = c.shape == kNoOffset         ? base
                  : c.shape == kConstantOffset ? base + kConstantDisplacement
                                               : base + index;
    int32_t expected;
    if (c.op == tac_PeekB) expected = *at;
    else memcpy(&expected, at, 4);
    EXPECT_EQ(fn(base, index), expected) << c.name;
  }
}

TEST(Memory, FloatPeeksAndPokesKeepTheirWidth) {
  TacProgram program;
  // Reads a Double at p + i and a Single at p + 200, writes their sum as a
  // Double at p + 16 and as a Single at p + i + 4, and returns the sum.
  program.Function("floats");
  auto p = program.Params({{"p", kTypeInteger}, {"i", kTypeInteger}});
  TacAddr const* d = program.Local("d", kTypeDouble);
  TacAddr const* s = program.Local("s", kTypeSingle);
  TacAddr const* q = program.Local("q", kTypeInteger);
  program.Add(tac_PeekD, p[0], p[1], d);
  program.Add(tac_PeekF, p[0], program.Int(kConstantDisplacement), s);
  program.Add(tac_AddD, d, s, d);
  program.Add(tac_PokeD, d, program.Int(16), p[0]);
  program.Add(tac_AddI, p[0], program.Int(4), q);
  program.Add(tac_PokeF, d, p[1], q);
  program.Add(tac_PeekD, p[0], program.Int(16), d);
  program.Return(d);
  // No offset at all.
  program.Function("floats0");
  auto z = program.Params({{"p", kTypeInteger}});
  TacAddr const* e = program.Local("e", kTypeDouble);
  TacAddr const* f = program.Local("f", kTypeSingle);
  program.Add(tac_PeekD, z[0], nullptr, e);
  program.Add(tac_PokeF, e, nullptr, z[0]);
  program.Add(tac_PeekF, z[0], nullptr, f);
  program.Add(tac_Store, f, nullptr, e);
  program.Return(e);

  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);
  alignas(8) uint8_t memory[256] = {};
  double in = 1.25;
  float single = 0.5f;
  memcpy(memory + 24, &in, 8);
  memcpy(memory + kConstantDisplacement, &single, 4);
  auto fn = image.Entry<double (*)(uint8_t*, int)>("floats");
  EXPECT_EQ(fn(memory, 24), 1.75);
  double written;
  memcpy(&written, memory + 16, 8);
  EXPECT_EQ(written, 1.75);
  float writtenSingle;
  memcpy(&writtenSingle, memory + 28, 4);
  EXPECT_EQ(writtenSingle, 1.75f);

  alignas(8) uint8_t cell[8];
  double third = 1.0 / 3.0;
  memcpy(cell, &third, 8);
  EXPECT_EQ(image.Entry<double (*)(uint8_t*)>("floats0")(cell), (double)(float)third);
}

struct PokeCase {
  TacOpcode op;
  OffsetShape shape;
  char const* name;
};

PokeCase const kPokes[] = {
    {tac_PokeI, kNoOffset, "pokei0"}, {tac_PokeI, kConstantOffset, "pokeik"}, {tac_PokeI, kVariableOffset, "pokeiv"},
    {tac_PokeS, kConstantOffset, "pokes"}, {tac_PokeO, kVariableOffset, "pokeo"}, {tac_PokeB, kNoOffset, "pokeb0"},
    {tac_PokeB, kConstantOffset, "pokebk"}, {tac_PokeB, kVariableOffset, "pokebv"},
};

TEST(Memory, PokeWritesWordsAndSingleBytes) {
  TacProgram program;
  for (PokeCase const& c : kPokes) {
    program.Function(c.name);
    auto p = program.Params({{"v", kTypeInteger}, {"p", kTypeInteger}, {"i", kTypeInteger}});
    TacAddr const* offset = c.shape == kNoOffset         ? nullptr
                            : c.shape == kConstantOffset ? program.Int(kConstantDisplacement)
                                                         : p[2];
    program.Add(c.op, p[0], offset, p[1]);
    program.Return();
  }
  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);

  for (PokeCase const& c : kPokes) {
    uint8_t memory[512];
    uint8_t expected[512];
    memset(memory, 0xEE, sizeof memory);
    memset(expected, 0xEE, sizeof expected);
    int index = 33;
    int value = 0x11223344;
    uint8_t* base = memory + 8;
    int at = 8 + (c.shape == kNoOffset ? 0 : c.shape == kConstantOffset ? kConstantDisplacement : index);
    if (c.op == tac_PokeB) expected[at] = 0x44;
    else memcpy(expected + at, &value, 4);
    image.Entry<void (*)(int, uint8_t*, int)>(c.name)(value, base, index);
    EXPECT_EQ(memcmp(memory, expected, sizeof memory), 0) << c.name;
  }
}

}  // namespace
