#include "ir/TacPrinter.h"

#include <gtest/gtest.h>

#include <string>

#include "ir/LabelUtilities.h"

namespace {

TEST(TacPrinter, ListsAHandBuiltBlock) {
  InitTacConstants();
  TacLiteralPool pool;
  SymbolAddr x(LocalStorage, IRDataType(kTypeInteger), string("x"), 0);
  SymbolAddr title(StaticStorage, IRDataType(kTypeString), string("Module.title"), 0);
  SymbolAddr px(ObjectStorage, IRDataType(kTypeDouble), string("Point.x"), 8);
  SymbolAddr flag(LocalStorage, IRDataType(kTypeBoolean), string("00000003"), 4);
  TacAddr const* top = pool.GetLiteral(3L);
  TacAddr const* done = pool.GetLiteral(4L);

  TacBlock b;
  b.AddLine(tac_Label, pool.GetLiteral(string("Main%%")), nilTacAddr, nilTacAddr, 0);
  b.AddLine(tac_Store, pool.GetLiteral(5L), nilTacAddr, &x, 1);
  b.AddLine(tac_Label, top, nilTacAddr, nilTacAddr, 2);
  b.AddLine(tac_AddI, &x, gTacOne, &x, 3);
  b.AddLine(tac_LTI, &x, pool.GetLiteral(10L), &flag, 4);
  b.AddLine(tac_IfNEI, &flag, gTacFalse, top, 4);
  b.AddLine(tac_Jump, nilTacAddr, nilTacAddr, pool.GetLiteral(kUnresolvedExitTarget), 5);
  b.AddLine(tac_Store, pool.GetLiteral(string("hi")), nilTacAddr, &title, 6);
  b.AddLine(tac_Store, pool.GetLiteral(IRValue::Real64(2.5), IRDataType(kTypeDouble)), nilTacAddr, &px, 7);
  b.AddLine(tac_PutParam, pool.GetLiteral(IRValue::SInt32(0xFF8000), IRDataType(kTypeColor)), nilTacAddr,
            nilTacAddr, 8);
  b.AddLine(tac_Intrinsic, IntrinsicTacAddr(9), nilTacAddr, nilTacAddr, 8);
  b.AddLine(tac_Jump, nilTacAddr, nilTacAddr, pool.GetLiteral(kFunctionReturnTarget), 9);
  b.AddLine(tac_Label, done, nilTacAddr, nilTacAddr, 10);
  b.AddLine(tac_ModI, &x, pool.GetLiteral(-2L), &x, 11);
  b.AddLine(tac_Return, nilTacAddr, nilTacAddr, nilTacAddr, 12);
  PatchExitLabels(b, done);

  char const* expected =
      "    0  Label  \"Main%%\", -, -\n"
      "    1  Store  5, -, l_x\n"
      "    2  Label  L3, -, -\n"
      "    3  AddI   l_x, 1, l_x\n"
      "    4   LTi   l_x, 10, l_00000003\n"
      "    4  IfNEi  l_00000003, False, L3\n"
      "    5  Jump   -, -, L4\n"
      "    6  Store  \"hi\", -, g_Module.title\n"
      "    7  Store  2.5, -, o_Point.x\n"
      "    8  PutP   &cFF8000, -, -\n"
      "    8  Intrn  9, -, -\n"
      "    9  Jump   -, -, L<return>\n"
      "   10  Label  L4, -, -\n"
      "   11   Mod   l_x, -2, l_x\n"
      "   12  Retrn  -, -, -\n";
  EXPECT_EQ(std::string(ListTacBlock(b).CString()), expected);
}

TEST(TacPrinter, OperandsOutsideLabelPositionsAreNumbers) {
  InitTacConstants();
  ConstAddr minusOne(-1L);
  EXPECT_STREQ(TacOperandText(&minusOne, false).CString(), "-1");
  EXPECT_STREQ(TacOperandText(&minusOne, true).CString(), "L<exit>");
  EXPECT_STREQ(TacOperandText(nilTacAddr, true).CString(), "-");
  EXPECT_STREQ(TacOperandText(gTacTrue, false).CString(), "True");
}

}  // namespace
