// A source range: lines count from 0 (the lexer's line number), offsets are
// bytes from the start of their line; -1 means unknown. An end offset points
// one past the last byte.
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

  bool operator==(SourceLocation const& o) const {
    return startLine == o.startLine && startOffset == o.startOffset && endLine == o.endLine &&
           endOffset == o.endOffset;
  }
  bool operator!=(SourceLocation const& o) const { return !(*this == o); }
};

// The smallest range that covers both. Unknown lines (-1) are compared like
// any other number, so an unknown start wins the start.
inline SourceLocation operator+(SourceLocation const& a, SourceLocation const& b) {
  SourceLocation r;
  if (a.startLine == b.startLine) {
    r.startLine = a.startLine;
    r.startOffset = a.startOffset < b.startOffset ? a.startOffset : b.startOffset;
  } else {
    SourceLocation const& s = a.startLine < b.startLine ? a : b;
    r.startLine = s.startLine;
    r.startOffset = s.startOffset;
  }
  if (a.endLine == b.endLine) {
    r.endLine = a.endLine;
    r.endOffset = a.endOffset > b.endOffset ? a.endOffset : b.endOffset;
  } else {
    SourceLocation const& e = a.endLine > b.endLine ? a : b;
    r.endLine = e.endLine;
    r.endOffset = e.endOffset;
  }
  return r;
}
