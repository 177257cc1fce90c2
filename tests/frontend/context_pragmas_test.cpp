// Pragmas: each word's effect on the option flags, matched ignoring case,
// and the saving and restoring of the flags around a method.

#include <cstring>

#include "tests/frontend/context_Fixture.h"

namespace {

// The flags as one text, in the order of LanguageOptions: bounds,
// background, nil, stack, debug, wait cursor disabled.
std::string Flags(LanguageOptions const& o) {
  char text[7] = {char('0' + o.boundsChecking),        char('0' + o.backgroundTasks), char('0' + o.nilObjectChecking),
                  char('0' + o.stackOverflowChecking), char('0' + o.debug),           char('0' + o.autoWaitCursorDisabled),
                  0};
  return text;
}

struct PragmaCase {
  char const* text;
  char const* flags;  // after the text, starting from the defaults
};

const PragmaCase kPragmas[] = {
    {"", "111100"},
    {"#pragma disableBoundsChecking\n", "011100"},
    {"#pragma disableBackgroundTasks\n", "101100"},
    {"#pragma disableAutoWaitCursor\n", "111101"},
    {"#pragma BoundsChecking\n", "011100"},
    {"#pragma BoundsChecking False\n", "011100"},
    {"#pragma BoundsChecking True\n", "111100"},
    {"#pragma disableBoundsChecking\n#pragma BoundsChecking True\n", "111100"},
    {"#pragma BackgroundTasks False\n", "101100"},
    {"#pragma NilObjectChecking\n", "110100"},
    {"#pragma StackOverflowChecking False\n", "111000"},
    {"#pragma Debug True\n", "111110"},
    {"#pragma Debug True\n#pragma Debug\n", "111100"},
    {"#pragma BindingPart\n#pragma BindingSpecification x, \"a\", \"b\"\n", "111100"},
    // Words match without regard to ASCII case.
    {"#pragma BOUNDSCHECKING\n#pragma debug true\n#pragma DisableBackgroundTasks\n", "001110"},
    // In the main program nothing was pushed: Reset leaves the flags alone.
    {"#pragma disableBoundsChecking\n#pragma Reset\n", "011100"},
};

void PrintTo(PragmaCase const& c, std::ostream* os) { *os << testing::PrintToString(c.text); }

class ContextPragmas : public ContextFixture, public ::testing::WithParamInterface<PragmaCase> {};

TEST_P(ContextPragmas, ChangeTheFlags) {
  ASSERT_EQ(Parse(GetParam().text), 0) << Errors();
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
  EXPECT_EQ(Flags(mContext->options), GetParam().flags);
}

INSTANTIATE_TEST_SUITE_P(Texts, ContextPragmas, ::testing::ValuesIn(kPragmas));

TEST_F(ContextFixture, UnknownPragmaIsReportedAtItsLine) {
  ASSERT_EQ(Parse("a = 1\n#pragma BoundsCheck True\n#pragma NilObjectChecking\n"), 0);
  EXPECT_EQ(LineOf(UnknownPragma), 1) << Errors();
  EXPECT_EQ(mDelegate.errors.size(), 1u) << Errors();
  // The statement after it still has its effect.
  EXPECT_EQ(Flags(mContext->options), "110100");
}

TEST_F(ContextFixture, PushPopAndResetRestoreTheFlags) {
  mContext->options.debug = 1;
  PushPragmas();
  mContext->options.boundsChecking = 0;
  PushPragmas();
  mContext->options.nilObjectChecking = 0;
  mContext->options.debug = 0;
  ResetPragmas();
  EXPECT_EQ(Flags(mContext->options), "011110");
  EXPECT_EQ(mContext->optionStack.size(), 2u);  // Reset does not pop
  mContext->options.stackOverflowChecking = 0;
  PopPragmas();
  EXPECT_EQ(Flags(mContext->options), "011110");
  PopPragmas();
  EXPECT_EQ(Flags(mContext->options), "111110");
  EXPECT_EQ(mContext->optionStack.size(), 0u);
  // Unpaired: nothing to restore, the flags stay.
  mContext->options.backgroundTasks = 0;
  PopPragmas();
  ResetPragmas();
  EXPECT_EQ(Flags(mContext->options), "101110");
}

// What a method's routines do around its body: a pragma inside lasts until
// Reset or the method's end.
TEST_F(ContextFixture, ResetInsideAMethodRestoresItsStartingFlags) {
  InitLexer("");
  auto pragma = [](char const* word, bool on) {
    CompilePragma(SemIdentifier::New(string(word)), on ? SemValue::New(gTacOne, nullptr) : Ref<SemBase>());
  };
  pragma("disableBackgroundTasks", false);
  PushPragmas();
  pragma("disableBoundsChecking", false);
  pragma("Debug", true);
  EXPECT_EQ(Flags(mContext->options), "001110");
  pragma("Reset", false);
  EXPECT_EQ(Flags(mContext->options), "101100");
  pragma("NilObjectChecking", false);
  PopPragmas();
  EXPECT_EQ(Flags(mContext->options), "101100");
  EXPECT_TRUE(mDelegate.errors.empty()) << Errors();
}

TEST(ContextPragmaTable, EveryWordByItsNumber) {
  CompileScope scope;
  StringMap<pragmas> const* table = PragmaTable();
  ASSERT_NE(table, nullptr);
  struct {
    char const* word;
    pragmas value;
  } const kWords[] = {
      {"disableBoundsChecking", kPragmaDisableBoundsChecking}, {"DISABLEBACKGROUNDTASKS", kPragmaDisableBackgroundTasks},
      {"disableautowaitcursor", kPragmaDisableAutoWaitCursor}, {"BoundsChecking", kPragmaBoundsChecking},
      {"BackgroundTasks", kPragmaBackgroundTasks},             {"StackOverflowChecking", kPragmaStackOverflowChecking},
      {"NilObjectChecking", kPragmaNilObjectChecking},         {"Debug", kPragmaDebug},
      {"Reset", kPragmaReset},                                 {"BindingPart", kPragmaBindingPart},
      {"BindingSpecification", kPragmaBindingSpecification},
  };
  for (auto const& w : kWords) {
    pragmas found = kPragmaReset;
    EXPECT_TRUE(table->GetEntry(string(w.word), found)) << w.word;
    EXPECT_EQ(found, w.value) << w.word;
  }
  pragmas found = kPragmaReset;
  EXPECT_FALSE(table->GetEntry(string("Bounds"), found));
  EXPECT_EQ(table->count, (unsigned long)kPragmaCount);
  EXPECT_EQ(PragmaTable(), table);  // one table for the process
}

}  // namespace
