#include "ir/TacPrinter.h"

#include <cstdio>

#include "foundation/Utility.h"

static char const* StoragePrefix(StorageClass storage) {
  switch (storage) {
    case StaticStorage: return "g_";
    case LocalStorage: return "l_";
    case ObjectStorage: return "o_";
  }
  return "?_";
}

static string LabelText(long label) {
  if (label == kUnresolvedExitTarget) return string("L<exit>");
  if (label == kFunctionReturnTarget) return string("L<return>");
  return string("L") + ultoa(label);
}

static string ColorText(int32_t rgb) {
  char text[16];
  std::snprintf(text, sizeof text, "&c%06X", (unsigned)rgb & 0xFFFFFFu);
  return string(text);
}

static string ConstantText(TacAddr const* addr, bool labelPosition) {
  IRValue const& value = addr->GetValue();
  switch (addr->type.GetMainType()) {
    case kTypeInteger:
      return labelPosition ? LabelText(value.sint32) : ultoa(value.sint32);
    case kTypeColor: return ColorText(value.sint32);
    case kTypeNull: return string("?");
    default: return value.toString(addr->type);
  }
}

string TacOperandText(TacAddr const* addr, bool labelPosition) {
  if (!addr || addr == nilTacAddr) return string("-");
  if (addr->IsConstant()) return ConstantText(addr, labelPosition);
  return string(StoragePrefix(addr->GetStorageClass())) + addr->LinkName();
}

// Where each opcode takes a label: `a` of a Label line, `c` of the jumps
// and of a handler entry.
static bool TakesLabelInA(TacOpcode op) { return op == tac_Label; }

static bool TakesLabelInC(TacOpcode op) {
  return op == tac_Jump || op == tac_IfEQI || op == tac_IfNEI || op == tac_IfLTI ||
         op == tac_HandleException;
}

string TacLineText(TacLine const& line) {
  char number[16];
  std::snprintf(number, sizeof number, "%5ld  ", line.line);
  string text(number);
  text += line.toString();
  text += "  ";
  text += TacOperandText(line.a, TakesLabelInA(line.opcode));
  text += ", ";
  text += TacOperandText(line.b, false);
  text += ", ";
  text += TacOperandText(line.c, TakesLabelInC(line.opcode));
  return text;
}

string ListTacBlock(TacBlock const& block) {
  // Lines are joined in pairs, round by round: each byte is copied about
  // log2(lines) times, where appending line by line would copy the whole
  // listing so far for every line.
  SimpleVector<string> pieces;
  TacBlockIterator it(&block);
  while (it.Next()) {
    string line = TacLineText(*it.Value());
    line += "\n";
    pieces.push_back(line);
  }
  while (pieces.size() > 1) {
    unsigned long joined = 0;
    for (unsigned long i = 0; i < pieces.size(); i += 2)
      pieces[joined++] = i + 1 < pieces.size() ? pieces[i] + pieces[i + 1] : pieces[i];
    pieces.resize(joined);
  }
  return pieces.size() ? pieces[0] : string();
}
