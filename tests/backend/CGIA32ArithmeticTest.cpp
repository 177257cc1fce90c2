// IA-32 code generation, run on the processor: integer and float arithmetic,
// comparisons, conversions and the traps of division.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include "backend/CodeGeneratorFixture.h"

namespace {

typedef int (*IntIntFn)(int, int);
typedef int (*IntFn)(int);
typedef double (*DblDblFn)(double, double);
typedef int (*DblCmpFn)(double, double);
typedef double (*DblFn)(double);
typedef int (*DblToIntFn)(double);
typedef double (*IntToDblFn)(int);

struct IntOp {
  TacOpcode op;
  char const* name;
  bool boolean;  // the result is a Boolean
  int32_t (*reference)(int32_t, int32_t);
};

int32_t Wrap(int64_t v) { return (int32_t)(uint32_t)(uint64_t)v; }

// By zero: quotient 0, remainder the dividend. By -1: the wrapped negation,
// remainder 0, so the smallest integer divided by -1 gives itself.
IntOp const kIntOps[] = {
    {tac_AddI, "add", false, [](int32_t a, int32_t b) { return Wrap((int64_t)a + b); }},
    {tac_SubI, "sub", false, [](int32_t a, int32_t b) { return Wrap((int64_t)a - b); }},
    {tac_MulI, "mul", false, [](int32_t a, int32_t b) { return Wrap((int64_t)a * b); }},
    {tac_DivI, "div", false, [](int32_t a, int32_t b) { return b == 0 ? 0 : Wrap((int64_t)a / b); }},
    {tac_ModI, "mod", false, [](int32_t a, int32_t b) { return b == 0 ? a : (int32_t)((int64_t)a % b); }},
    {tac_EQI, "eq", true, [](int32_t a, int32_t b) { return (int32_t)(a == b); }},
    {tac_NEI, "ne", true, [](int32_t a, int32_t b) { return (int32_t)(a != b); }},
    {tac_LTI, "lt", true, [](int32_t a, int32_t b) { return (int32_t)(a < b); }},
    {tac_LEI, "le", true, [](int32_t a, int32_t b) { return (int32_t)(a <= b); }},
};

int32_t const kIntValues[] = {0, 1, -1, 2, -2, 7, -7, 3, 100000, -65536, INT_MAX, INT_MIN};
// Both ends of the sign-extended byte and just past them.
int32_t const kConstants[] = {0, -1, 5, 127, 128, -128, -129, INT_MIN};

// Four shapes per operation: two parameters; a parameter with a constant,
// on either side; the same variable on both sides. And negation.
class IntegerOps : public ::testing::Test {
protected:
  void SetUp() override {
    for (IntOp const& op : kIntOps) {
      SimpleDataType result = op.boolean ? kTypeBoolean : kTypeInteger;
      std::string name = std::string("v_") + op.name;
      program.Function(name.c_str());
      auto p = program.Params({{"a", kTypeInteger}, {"b", kTypeInteger}});
      TacAddr const* c = program.Local("c", result);
      program.Add(op.op, p[0], p[1], c);
      program.Return(c);

      for (int32_t k : kConstants) {
        name = std::string("k_") + op.name + std::to_string(k);
        program.Function(name.c_str());
        auto q = program.Params({{"a", kTypeInteger}});
        TacAddr const* r = program.Local("r", result);
        program.Add(op.op, q[0], program.Int(k), r);
        program.Return(r);

        name = std::string("j_") + op.name + std::to_string(k);
        program.Function(name.c_str());
        q = program.Params({{"b", kTypeInteger}});
        r = program.Local("r", result);
        program.Add(op.op, program.Int(k), q[0], r);
        program.Return(r);
      }

      name = std::string("s_") + op.name;
      program.Function(name.c_str());
      auto s = program.Params({{"a", kTypeInteger}});
      TacAddr const* r = program.Local("r", result);
      program.Add(op.op, s[0], s[0], r);
      program.Return(r);
    }
    program.Function("neg");
    auto n = program.Params({{"a", kTypeInteger}});
    TacAddr const* r = program.Local("r", kTypeInteger);
    program.Add(tac_NegI, n[0], nullptr, r);
    program.Return(r);
    image = std::make_unique<LinkedModule>(GenerateIA32(program));
    ASSERT_TRUE(*image);
  }

  TacProgram program;
  std::unique_ptr<LinkedModule> image;
};

TEST_F(IntegerOps, MatchTheLanguageOnEveryPairIncludingTheTraps) {
  for (IntOp const& op : kIntOps) {
    IntIntFn fn = image->Entry<IntIntFn>((std::string("v_") + op.name).c_str());
    ASSERT_NE(fn, nullptr) << op.name;
    for (int32_t a : kIntValues) {
      for (int32_t b : kIntValues) EXPECT_EQ(fn(a, b), op.reference(a, b)) << a << " " << op.name << " " << b;
    }
  }
}

TEST_F(IntegerOps, ConstantOperandsTheSameVariableTwiceAndNegation) {
  for (IntOp const& op : kIntOps) {
    for (int32_t k : kConstants) {
      IntFn fn = image->Entry<IntFn>((std::string("k_") + op.name + std::to_string(k)).c_str());
      ASSERT_NE(fn, nullptr);
      for (int32_t a : kIntValues) EXPECT_EQ(fn(a), op.reference(a, k)) << a << " " << op.name << " " << k;
      fn = image->Entry<IntFn>((std::string("j_") + op.name + std::to_string(k)).c_str());
      for (int32_t b : kIntValues) EXPECT_EQ(fn(b), op.reference(k, b)) << k << " " << op.name << " " << b;
    }
    IntFn same = image->Entry<IntFn>((std::string("s_") + op.name).c_str());
    for (int32_t a : kIntValues) EXPECT_EQ(same(a), op.reference(a, a)) << a << " " << op.name;
  }
  IntFn neg = image->Entry<IntFn>("neg");
  for (int32_t a : kIntValues) EXPECT_EQ(neg(a), Wrap(-(int64_t)a)) << "neg " << a;  // INT_MIN stays
}

// ---------------------------------------------------------------------------
// Floats

struct DblOp {
  TacOpcode op;
  char const* name;
  double (*reference)(double, double);
};

DblOp const kDblOps[] = {
    {tac_AddD, "addd", [](double a, double b) { return a + b; }},
    {tac_SubD, "subd", [](double a, double b) { return a - b; }},
    {tac_MulD, "muld", [](double a, double b) { return a * b; }},
    {tac_DivD, "divd", [](double a, double b) { return a / b; }},
};

struct DblCmp {
  TacOpcode op;
  char const* name;
  bool (*reference)(double, double);
};

// Unordered: EQ and LT false, NE and LE true.
DblCmp const kDblCmps[] = {
    {tac_EQD, "eqd", [](double a, double b) { return a == b; }},
    {tac_NED, "ned", [](double a, double b) { return !(a == b); }},
    {tac_LTD, "ltd", [](double a, double b) { return a < b; }},
    {tac_LED, "led", [](double a, double b) { return !(b < a); }},
};

double const kNaN = std::numeric_limits<double>::quiet_NaN();
double const kInf = std::numeric_limits<double>::infinity();
double const kDblValues[] = {0.0, -0.0, 1.5, -2.25, 3.0, 1e300, -1e-300, 0.1, kInf, -kInf, kNaN};

bool SameDouble(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

TEST(FloatOps, ArithmeticAndComparisonsIncludingNaN) {
  TacProgram program;
  for (DblOp const& op : kDblOps) {
    program.Function(op.name);
    auto p = program.Params({{"a", kTypeDouble}, {"b", kTypeDouble}});
    TacAddr const* c = program.Local("c", kTypeDouble);
    program.Add(op.op, p[0], p[1], c);
    program.Return(c);
  }
  for (DblCmp const& op : kDblCmps) {
    program.Function(op.name);
    auto p = program.Params({{"a", kTypeDouble}, {"b", kTypeDouble}});
    TacAddr const* c = program.Local("c", kTypeBoolean);
    program.Add(op.op, p[0], p[1], c);
    program.Return(c);
  }
  program.EmptyMain();
  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);

  for (DblOp const& op : kDblOps) {
    DblDblFn fn = image.Entry<DblDblFn>(op.name);
    for (double a : kDblValues) {
      for (double b : kDblValues) {
        volatile double expected = op.reference(a, b);
        EXPECT_TRUE(SameDouble(fn(a, b), expected)) << a << " " << op.name << " " << b;
      }
    }
  }
  for (DblCmp const& op : kDblCmps) {
    DblCmpFn fn = image.Entry<DblCmpFn>(op.name);
    for (double a : kDblValues) {
      for (double b : kDblValues) EXPECT_EQ(fn(a, b), (int)op.reference(a, b)) << a << " " << op.name << " " << b;
    }
  }
}

TEST(FloatOps, ConstantsNegationAndSingleWidth) {
  TacProgram program;
  // (a * 2.5 - (-a)) as Double, then through a Single and back.
  program.Function("mix");
  auto p = program.Params({{"a", kTypeDouble}});
  TacAddr const* t = program.Local("t", kTypeDouble);
  TacAddr const* n = program.Local("n", kTypeDouble);
  TacAddr const* s = program.Local("s", kTypeSingle);
  TacAddr const* r = program.Local("r", kTypeDouble);
  program.Add(tac_MulD, p[0], program.Dbl(2.5), t);
  program.Add(tac_NegD, p[0], nullptr, n);
  program.Add(tac_SubD, t, n, t);
  program.Add(tac_Store, t, nullptr, s);
  program.Add(tac_Store, s, nullptr, r);
  program.Return(r);

  // A Single parameter takes four bytes: the Integer behind it is at +12.
  program.Function("single");
  auto q = program.Params({{"x", kTypeSingle}, {"k", kTypeInteger}});
  TacAddr const* d = program.Local("d", kTypeDouble);
  TacAddr const* kd = program.Local("kd", kTypeDouble);
  program.Add(tac_AddD, q[0], program.Sgl(0.25f), d);
  program.Add(tac_ItoD, q[1], nullptr, kd);
  program.Add(tac_AddD, d, kd, d);
  program.Return(d);
  program.EmptyMain();

  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);
  DblFn mix = image.Entry<DblFn>("mix");
  EXPECT_EQ(mix(2.0), 7.0);
  EXPECT_EQ(mix(-4.0), -14.0);
  volatile double scaled = 0.1 * 2.5;
  volatile double sum = scaled + 0.1;
  EXPECT_EQ(mix(0.1), (double)(float)sum);
  auto single = image.Entry<double (*)(float, int)>("single");
  EXPECT_EQ(single(1.5f, 40), 41.75);
  EXPECT_EQ(single(-0.5f, -3), -3.25);
}

uint16_t ControlWord() {
  uint16_t cw;
  __asm__ volatile("fnstcw %0" : "=m"(cw));
  return cw;
}

TEST(FloatOps, ConversionsTruncateAndLeaveTheRoundingModeAlone) {
  TacProgram program;
  program.Function("dtoi");
  auto p = program.Params({{"a", kTypeDouble}});
  TacAddr const* r = program.Local("r", kTypeInteger);
  program.Add(tac_DtoI, p[0], nullptr, r);
  program.Return(r);
  program.Function("itod");
  auto q = program.Params({{"a", kTypeInteger}});
  TacAddr const* d = program.Local("d", kTypeDouble);
  program.Add(tac_ItoD, q[0], nullptr, d);
  program.Add(tac_MulD, d, program.Dbl(0.5), d);
  program.Return(d);
  // A constant through DtoI, with ecx holding a live value across the line.
  program.Function("dtoik");
  auto k = program.Params({{"a", kTypeInteger}});
  TacAddr const* x = program.Local("x", kTypeInteger);
  TacAddr const* y = program.Local("y", kTypeInteger);
  program.Add(tac_AddI, k[0], program.Int(1), x);
  program.Add(tac_DtoI, program.Dbl(-7.75), nullptr, y);
  program.Add(tac_AddI, x, y, y);
  program.Return(y);
  program.EmptyMain();

  LinkedModule image(GenerateIA32(program));
  ASSERT_TRUE(image);
  DblToIntFn dtoi = image.Entry<DblToIntFn>("dtoi");
  uint16_t before = ControlWord();
  struct { double in; int out; } const cases[] = {
      {2.9, 2}, {-2.9, -2}, {0.5, 0}, {-0.5, 0}, {1e9, 1000000000}, {-2147483648.0, INT_MIN}, {7.0, 7},
  };
  for (auto const& c : cases) EXPECT_EQ(dtoi(c.in), c.out) << c.in;
  EXPECT_EQ(ControlWord(), before);
  // Round-to-nearest is in force again: 2.5 + 0.5 rounds as before.
  IntToDblFn itod = image.Entry<IntToDblFn>("itod");
  EXPECT_EQ(itod(5), 2.5);
  EXPECT_EQ(itod(INT_MIN), -1073741824.0);
  EXPECT_EQ(image.Entry<IntFn>("dtoik")(10), 11 - 7);
}

}  // namespace
