// A source range: lines count from 0 (the lexer's line number), offsets are
// bytes from the start of their line; -1 means unknown.
#pragma once

#include <cstdint>

struct SourceLocation {
  int32_t startLine = -1;
  int32_t startOffset = -1;
  int32_t endLine = -1;
  int32_t endOffset = -1;

  SourceLocation() = default;
  explicit SourceLocation(int line) : startLine(line), endLine(line) {}
  SourceLocation(int sLine, int sOffset, int eLine, int eOffset)
      : startLine(sLine), startOffset(sOffset), endLine(eLine), endOffset(eOffset) {}
};
