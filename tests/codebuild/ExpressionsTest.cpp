// What no condition of conditional compilation shows: the common type of
// operand types that no constant has, the exact bits of folded floats, and
// the words of TypeMismatch. Which folds happen is end-to-end scripts.

#include <cmath>
#include <cstring>

#include "codebuild/Expressions.h"
#include "tests/frontend/CompileFixture.h"

namespace {

struct CommonTypeCase {
  IRDataType a, b, common;
};

TEST(ComputeCommonType, MeetsByTheTable) {
  IRDataType integer(kTypeInteger), dbl(kTypeDouble), object{string("")};
  CommonTypeCase cases[] = {
      {IRDataType(kTypeShort), IRDataType(kTypeShort), integer},
      {IRDataType(kTypeSingle), IRDataType(kTypeSingle), dbl},
      {IRDataType(kTypeShort), IRDataType(kTypeSingle), dbl},
      {integer.AsReference(), IRDataType(kTypeDouble).AsReference(), dbl},
      {IRDataType(string("Variant")), IRDataType(kTypeString), IRDataType(kTypeString)},
      {IRDataType(kTypeColor), IRDataType(string("Variant")), IRDataType(kTypeColor)},
      {IRDataType(string("Foo")), IRDataType(string("Bar")), object},
      {integer.AsArray(1), integer.AsArray(1), integer.AsArray(1)},
      {integer.AsArray(1), integer.AsArray(2), IRDataType()},
      {integer.AsArray(1), integer, IRDataType()},
      {IRDataType(kTypeBoolean), integer, IRDataType()},
      {IRDataType(kTypeColor), integer, IRDataType()},
      {IRDataType(kTypeString), IRDataType(string("Foo")), IRDataType()},
      {IRDataType(kTypeClassRef), IRDataType(kTypeClassRef), IRDataType()},
  };
  for (CommonTypeCase const& c : cases) {
    IRDataType got = ComputeCommonType(c.a, c.b);
    EXPECT_TRUE(got == c.common && got.GetClass() == c.common.GetClass())
        << c.a.ToString().CString() << " with " << c.b.ToString().CString() << " gave " << got.ToString().CString();
  }
}

// Records the words of each error.
class WordsDelegate : public CompilerDelegate {
public:
  bool CompilerError(CompileError error) override {
    std::string text = CompileErrorName(error.Type());
    for (unsigned long i = 0; i < error.Params().size(); ++i) text += std::string(" ") + error.Params()[i].CString();
    errors.push_back(text);
    return false;
  }
  std::vector<std::string> errors;
};

class Folding : public CompileFixture {
protected:
  static Ref<SemBase> Constant(IRValue value, SimpleDataType type) {
    return SemValue::New(CurrentTLP()->GetLiteral(value, IRDataType(type)), nullptr);
  }
  static uint64_t Bits(double d) {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return bits;
  }
};

TEST_F(Folding, NegationFlipsOnlyTheSignBit) {
  double nan = std::nan("0x123");
  Ref<SemBase> negated = CompileNegation(Constant(IRValue::Real64(nan), kTypeDouble));
  ASSERT_TRUE(negated && negated->IsConstant());
  EXPECT_EQ(Bits(negated->GetValue().real64), Bits(nan) ^ 0x8000000000000000ull);
  negated = CompileNegation(Constant(IRValue::Real64(0.0), kTypeDouble));
  EXPECT_TRUE(std::signbit(negated->GetValue().real64));
  negated = CompileNegation(Constant(IRValue::Real32(1.5f), kTypeSingle));
  EXPECT_EQ(negated->GetType().GetMainType(), kTypeSingle);
  EXPECT_EQ(negated->GetValue().real32, -1.5f);
}

TEST_F(Folding, SinglesMeetInDouble) {
  Ref<SemBase> sum = CompileBinop(Constant(IRValue::Real32(0.5f), kTypeSingle), kOpAdd,
                                  Constant(IRValue::Real32(0.25f), kTypeSingle));
  ASSERT_TRUE(sum && sum->IsConstant());
  EXPECT_EQ(sum->GetType().GetMainType(), kTypeDouble);
  EXPECT_EQ(sum->GetValue().real64, 0.75);
}

TEST_F(Folding, TypeMismatchNamesBothTypes) {
  WordsDelegate words;
  mContext->delegate = &words;
  CompileBinop(Constant(IRValue::SInt32(1), kTypeBoolean), kOpEqual, Constant(IRValue::SInt32(1), kTypeInteger));
  EXPECT_EQ(words.errors, std::vector<std::string>{"TypeMismatch Boolean Integer"});
  mContext->delegate = &mDelegate;
}

}  // namespace
