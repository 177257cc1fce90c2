// A readable listing of three-address code, one line per TacLine:
//
//     <source line>  <printed opcode>  <a>, <b>, <c>
//
// Operands: "-" for nilTacAddr; variables as their storage-class prefix
// ("g_", "l_", "o_") and link name; constants as their value, strings in
// double quotes; label operands as "L" and the number, with the two
// placeholders shown as "L<exit>" and "L<return>".
#pragma once

#include "ir/ThreeAddressCode.h"

// `labelPosition`: whether the operand stands where its opcode expects a label.
string TacOperandText(TacAddr const* addr, bool labelPosition);
// One line of the listing, without the line break.
string TacLineText(TacLine const& line);
// The whole block, each line ended by "\n"; the empty string for no lines.
string ListTacBlock(TacBlock const& block);
