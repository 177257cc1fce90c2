// The hand-written lexer. Layers, from the bottom: byte access (nextchar,
// putback, flushline), read_next_token (one token from its first byte),
// token_through_whitespace, yylex_ex (line continuation), GetToken (empty
// lines collapse).
//
// Besides tokens the lexer tells the assignment `=` from the comparison `=`,
// which the grammar can't: a statement that starts with a dotted chain of
// names and calls is an assignment at its first `=` outside parentheses.
#include "frontend/Lexer.h"

#include <locale.h>
#include <stdlib.h>

#include <cstring>

#include "ir/ThreeAddressCode.h"
#include "frontend/SrcContext.h"
#include "semantic/SemBase.h"
#include "ir/DataTypes.h"

Ref<SemBase> yylval;

namespace {

// The source of the current run, and where the lexer stands in it.
char const* line = "";
LexerState sState;
// LF bytes in the source: the progress reports' "total". Bare CRs break
// lines too but are not counted here.
int sTotalLinesInBuffer = 0;
char tokenbuf[kTokenBufferSize];
SourceLocation sLocation;

char const* const tokentable[] = {
#define KV_TOKEN_TEXT(name, number, text) text,
    KV_KEYWORD_TOKENS(KV_TOKEN_TEXT)
#undef KV_TOKEN_TEXT
    nullptr,
};
static_assert(sizeof(tokentable) / sizeof(tokentable[0]) == kKeywordCount + 1);

// ---------------------------------------------------------------------------
// Character classes and case folding

enum : uint8_t { kNameStart = 1, kNamePart = 2, kDigit = 4, kHexDigit = 8, kHashWord = 16 };

struct CharClassTable {
  uint8_t bits[256];
  constexpr CharClassTable() : bits() {
    for (int c = 0; c < 256; ++c) {
      bool alpha = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
      bool digit = c >= '0' && c <= '9';
      uint8_t b = 0;
      // UTF-8 letters are name characters without being decoded.
      if (alpha || c == '_' || c == '~' || c >= 128) b |= kNameStart;
      if (alpha || digit || c == '_' || c >= 128) b |= kNamePart;
      if (digit) b |= kDigit;
      if (digit || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) b |= kHexDigit;
      if (alpha || digit || c == '_') b |= kHashWord;
      bits[c] = b;
    }
  }
};
constexpr CharClassTable kCharClass;

inline bool Is(int c, uint8_t cls) { return (kCharClass.bits[(unsigned char)c] & cls) != 0; }

// Upper-case map of lexer_strcmpi: ASCII, then the Mac Roman accented
// lower-case letters onto their capitals, and the dotless i onto I.
struct UpperTable {
  unsigned char map[256];
  constexpr UpperTable() : map() {
    for (int c = 0; c < 256; ++c) map[c] = (unsigned char)c;
    for (int c = 'a'; c <= 'z'; ++c) map[c] = (unsigned char)(c - 32);
    constexpr unsigned char kPairs[][2] = {
        {135, 231}, {136, 203}, {137, 229}, {138, 128}, {139, 204}, {140, 129}, {141, 130},
        {142, 131}, {143, 233}, {144, 230}, {145, 232}, {146, 234}, {147, 237}, {148, 235},
        {149, 236}, {150, 132}, {151, 238}, {152, 241}, {153, 239}, {154, 133}, {155, 205},
        {156, 242}, {157, 244}, {158, 243}, {159, 134}, {190, 174}, {191, 175}, {207, 206},
        {216, 217}, {245, 73}};
    for (auto const& p : kPairs) map[p[0]] = p[1];
  }
};
constexpr UpperTable kUpper;

inline int HexDigitValue(int c) {
  if (c <= '9') return c - '0';
  return (c | 0x20) - 'a' + 10;
}

// ---------------------------------------------------------------------------
// Keyword table: open addressing over ASCII-folded bytes, so that a name is
// matched without building a string for it (names are the commonest token).

constexpr int kKeywordSlots = 256;  // a power of two well above 87 words

struct KeywordSlot {
  char const* word;
  uint8_t length;
  int16_t token;
};
KeywordSlot tokenMap[kKeywordSlots];
bool sTokenMapBuilt = false;

inline uint32_t FoldedHash(char const* s, int n) {
  uint32_t h = 2166136261u;
  for (int i = 0; i < n; ++i) h = (h ^ (uint8_t)(s[i] & ~0x20)) * 16777619u;
  return h;
}

// Bytes of a keyword are ASCII letters and digits, so clearing bit 5 folds
// letters and leaves a mismatch for anything else.
inline bool FoldedEqual(char const* name, char const* word, int n) {
  for (int i = 0; i < n; ++i) {
    unsigned char a = (unsigned char)name[i], b = (unsigned char)word[i];
    if (a == b) continue;
    if ((a ^ b) != 0x20 || !Is(a, kNameStart) || a >= 128 || a == '_' || a == '~') return false;
  }
  return true;
}

void BuildTokenMap() {
  for (int i = 0; tokentable[i]; ++i) {
    char const* w = tokentable[i];
    if (w[0] == '#') continue;  // found by the `#` path, never as a name
    int n = (int)strlen(w);
    uint32_t slot = FoldedHash(w, n) & (kKeywordSlots - 1);
    while (tokenMap[slot].word) slot = (slot + 1) & (kKeywordSlots - 1);
    tokenMap[slot] = {w, (uint8_t)n, (int16_t)(kFirstKeywordToken + i)};
  }
  sTokenMapBuilt = true;
}

// The keyword's token, or 0.
int LookupKeyword(char const* name, int n) {
  if (!sTokenMapBuilt) BuildTokenMap();
  if (n > 16) return 0;  // no keyword is longer
  uint32_t slot = FoldedHash(name, n) & (kKeywordSlots - 1);
  for (;;) {
    KeywordSlot const& k = tokenMap[slot];
    if (!k.word) return 0;
    if (k.length == n && FoldedEqual(name, k.word, n)) return k.token;
    slot = (slot + 1) & (kKeywordSlots - 1);
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Byte access

// The end of the text reads as 0 again and again.
inline int nextchar() {
  unsigned char c = (unsigned char)line[sState.position];
  if (c) ++sState.position;
  return c;
}

inline void putback(int c) {
  if (c) --sState.position;
}

inline int peekchar() { return (unsigned char)line[sState.position]; }

// Leaves the line break (or the end) to be read.
void flushline() {
  for (;;) {
    char c = line[sState.position];
    if (c == 0 || c == '\r' || c == '\n') return;
    ++sState.position;
  }
}

inline int32_t OffsetInLine() { return (int32_t)(sState.position - sState.lineStart); }

inline void EndToken() { sLocation.endOffset = OffsetInLine(); }

inline void ClearAssignAtDepth0() {
  if (sState.parenDepth == 0) sState.assignPossible = false;
}

// ---------------------------------------------------------------------------
// Token values

inline void SetLiteralValue(TacAddr const* literal) { yylval = SemValue::New(literal, &sLocation); }

inline void SetIntegerValue(long value, SimpleDataType type) {
  SetLiteralValue(CurrentTLP()->GetLiteral(IRValue::SInt32(value), IRDataType(type)));
}

void SetStringValue(string text) {
  text.SetEncoding(kEncodingUTF8);
  SetLiteralValue(CurrentTLP()->GetLiteral(text));
}

// ---------------------------------------------------------------------------
// Tokens

int yylex_ex();

int Comment() {
  flushline();
  return yylex_ex();
}

int LineBreak() {
  ++sState.lineCounter;
  sState.lineStart = sState.position;
  return kTokenNEWLINE;
}

// Copies the name that starts with `first` into tokenbuf, cutting it at the
// last whole UTF-8 character that fits; the rest of a long name is dropped.
int GatherName(int first) {
  uint32_t start = sState.position - 1;
  uint32_t end = sState.position;
  while (Is(line[end], kNamePart)) ++end;
  sState.position = end;
  uint32_t n = end - start;
  if (n > (uint32_t)kTokenBufferSize - 1) {
    n = kTokenBufferSize - 1;
    // Step back over continuation bytes (10xxxxxx) and the lead byte they
    // belong to if the character does not end at the cut.
    uint32_t cut = n;
    while (cut > 0 && ((unsigned char)line[start + cut] & 0xC0) == 0x80) --cut;
    if (cut > 0) n = cut;
  }
  (void)first;
  memcpy(tokenbuf, line + start, n);
  tokenbuf[n] = 0;
  return (int)n;
}

int Name(int c) {
  int n = GatherName(c);
  EndToken();
  int token = LookupKeyword(tokenbuf, n);
  if (token == kTokenRem) return Comment();
  if (token == kTokenTrue || token == kTokenFalse) {
    SetIntegerValue(token == kTokenTrue ? 1 : 0, kTypeBoolean);
  } else if (!token) {
    if (n == 1 && tokenbuf[0] == '_') return kTokenCONTINUATION;
    string name;
    name.ConstructFromBuffer(tokenbuf, n);
    name.SetEncoding(kEncodingUTF8);
    yylval = SemIdentifier::New(name, sLocation);
    token = kTokenIDENT;
  }
  if (sState.parenDepth == 0) {
    if (token == kTokenIDENT || token == kTokenSelf || token == kTokenMe || token == kTokenSuper)
      ++sState.designatorParts;
    else
      sState.assignPossible = false;
    if (token == kTokenThen || token == kTokenElse) {
      // A statement can begin behind them.
      sState.designatorParts = 0;
      sState.assignPossible = true;
    }
  }
  return token;
}

// Keeps what fits of a number's text in tokenbuf; the value does not
// depend on it, so a cut costs nothing.
inline void KeepDigit(int& kept, int c) {
  if (kept < kTokenBufferSize - 1) tokenbuf[kept++] = (char)c;
}

// Takes the digits of a fraction; the point has been taken.
int Fraction(int& kept) {
  int c = nextchar();
  while (Is(c, kDigit)) {
    KeepDigit(kept, c);
    c = nextchar();
  }
  return c;
}

// The correctly rounded double of the literal's text line[start, end), read
// in the "C" locale whatever the host set. The text is copied out so that
// strtod cannot read past the literal (it would take "0x1p3" as hex).
// Out of range it gives an infinity or a (denormal) zero, as IEEE rounding
// does. A literal longer than the stack buffer is rare enough for the heap.
double LiteralDouble(uint32_t start, uint32_t end) {
  // Made once; without memory for it the host's locale has to do.
  static locale_t const sCLocale = newlocale(LC_ALL_MASK, "C", (locale_t)0);
  uint32_t n = end - start;
  char small[128];
  char* text = n < sizeof(small) ? small : (char*)malloc(n + 1);
  if (!text) return 0;
  memcpy(text, line + start, n);
  text[n] = 0;
  double d = sCLocale ? strtod_l(text, nullptr, sCLocale) : strtod(text, nullptr);
  if (text != small) free(text);
  return d;
}

int Number(int c) {
  ClearAssignAtDepth0();
  uint32_t start = sState.position - 1;
  uint32_t i = 0;  // wraps, as the literal's low 32 bits
  int kept = 0;
  bool floating = false;
  bool big = false;  // past the Integer range, so a Double
  while (Is(c, kDigit)) {
    KeepDigit(kept, c);
    big = big || i > 214748364u || (i == 214748364u && c > '7');
    i = i * 10 + (uint32_t)(c - '0');
    c = nextchar();
  }
  if (c == '.') {
    floating = true;
    KeepDigit(kept, c);
    c = Fraction(kept);
  }
  // An exponent without digits ("1e", "1e+") is taken and counts as 0.
  if (c == 'e' || c == 'E') {
    floating = true;
    KeepDigit(kept, c);
    c = nextchar();
    if (c == '+' || c == '-') {
      KeepDigit(kept, c);
      c = nextchar();
    }
    while (Is(c, kDigit)) {
      KeepDigit(kept, c);
      c = nextchar();
    }
  }
  putback(c);
  tokenbuf[kept] = 0;
  EndToken();
  if (floating || big) {
    double d = LiteralDouble(start, sState.position);
    SetLiteralValue(CurrentTLP()->GetLiteral(IRValue::Real64(d), IRDataType(kTypeDouble)));
    return kTokenFLOAT_LIT;
  }
  SetIntegerValue((long)(int32_t)i, kTypeInteger);
  return kTokenINT_LIT;
}

// "text" with "" for a quote. Ended by a line break or the end of the text
// it is a bad string, and its line break is swallowed uncounted, unless the
// break ends the text: the statement still needs its end of line there.
int QuotedString() {
  ClearAssignAtDepth0();
  uint32_t start = sState.position;
  uint32_t p = start;
  int quotes = 0;
  char c;
  for (;;) {
    c = line[p];
    if (c == '"') {
      if (line[p + 1] != '"') break;
      ++quotes;
      p += 2;
      continue;
    }
    if (c == 0 || c == '\r' || c == '\n') break;
    ++p;
  }
  int length = (int)(p - start) - quotes;
  string text;
  if (length > 0) {
    text.ConstructFromBuffer(nullptr, length);
    char* out = text.MutableChar(0);
    for (uint32_t q = start; q < p; ++q) {
      *out++ = line[q];
      if (line[q] == '"') ++q;
    }
  }
  sState.position = c && (c == '"' || line[p + 1]) ? p + 1 : p;
  EndToken();
  SetStringValue(text);
  return c == '"' ? kTokenSTR_LIT : kTokenBAD_STR_LIT;
}

// Counts the line breaks in line[from, to) as LineBreak would, so that
// lines after a token that spans several are numbered right.
void PassLineBreaks(uint32_t from, uint32_t to) {
  for (uint32_t p = from; p < to; ++p) {
    if (line[p] == '\r' && p + 1 < to && line[p + 1] == '\n') ++p;
    if (line[p] == '\r' || line[p] == '\n') {
      ++sState.lineCounter;
      sState.lineStart = p + 1;
    }
  }
}

// \"text": C escapes, runs across lines to an unescaped quote or the end of
// the text. The token ends on the line of its closing quote.
int EscapedString() {
  uint32_t start = sState.position;
  uint32_t p = start;
  while (line[p] && line[p] != '"') p += (line[p] == '\\' && line[p + 1]) ? 2 : 1;
  string raw;
  raw.ConstructFromBuffer(line + start, (int)(p - start));
  sState.position = line[p] ? p + 1 : p;
  PassLineBreaks(start, p);
  sLocation.endLine = sState.lineCounter;
  EndToken();
  SetStringValue(DecodeBackslashEscape(raw));
  return kTokenSTR_LIT;
}

int Dot() {
  int c = nextchar();
  if (c == '.') {
    c = nextchar();
    if (c == '.') return kTokenELLIPSIS;
    putback(c);
    return kTokenDOTDOT;
  }
  if (Is(c, kDigit)) {
    putback(c);
    tokenbuf[0] = '0';
    tokenbuf[1] = '.';
    int kept = 2;
    uint32_t start = sState.position - 1;  // the point
    putback(Fraction(kept));
    tokenbuf[kept] = 0;
    EndToken();
    double d = LiteralDouble(start, sState.position);
    SetLiteralValue(CurrentTLP()->GetLiteral(IRValue::Real64(d), IRDataType(kTypeDouble)));
    return kTokenFLOAT_LIT;
  }
  putback(c);
  if (sState.parenDepth == 0) --sState.designatorParts;
  return '.';
}

int HashWord() {
  sState.assignPossible = false;
  int n = 0;
  tokenbuf[n++] = '#';
  while (Is(peekchar(), kHashWord)) {
    int c = nextchar();
    if (n < kTokenBufferSize - 1) tokenbuf[n++] = (char)c;
  }
  tokenbuf[n] = 0;
  if (lexer_strcmpi(tokenbuf, "#pragma") == 0) return kTokenHashPragma;
  if (lexer_strcmpi(tokenbuf, "#if") == 0) return kTokenHashIf;
  if (lexer_strcmpi(tokenbuf, "#elseif") == 0) return kTokenHashElseIf;
  if (lexer_strcmpi(tokenbuf, "#else") == 0) return kTokenHashElse;
  if (lexer_strcmpi(tokenbuf, "#endif") == 0) return kTokenHashEndif;
  return '#';
}

// &H, &O, &B: digits shift in from the right and high bits drop off.
int RadixLiteral(int shift, int maxDigit) {
  uint32_t i = 0;
  for (;;) {
    int c = peekchar();
    int v;
    if (Is(c, kDigit))
      v = c - '0';
    else if (shift == 4 && Is(c, kHexDigit))
      v = HexDigitValue(c);
    else
      break;
    if (v > maxDigit) break;
    ++sState.position;
    i = (i << shift) | (uint32_t)v;
  }
  SetLiteralValue(CurrentTLP()->GetLiteral((long)(int32_t)i));
  return kTokenINT_LIT;
}

// &c: up to six hex digits, filling RRGGBB from the left.
int ColorLiteral() {
  uint32_t i = 0;
  for (int place = 0; place < 6 && Is(peekchar(), kHexDigit); ++place)
    i |= (uint32_t)HexDigitValue(nextchar()) << (20 - 4 * place);
  SetIntegerValue((long)i, kTypeColor);
  return kTokenCOLOR_LIT;
}

int Ampersand() {
  int c = nextchar();
  ClearAssignAtDepth0();
  switch (c | 0x20) {
    case 'h': return RadixLiteral(4, 15);
    case 'o': return RadixLiteral(3, 7);
    case 'b': return RadixLiteral(1, 1);
    case 'c': return ColorLiteral();
    default: putback(c); return '&';
  }
}

int Equals() {
  if (sState.parenDepth == 0 && sState.assignPossible) {
    sState.assignPossible = false;
    if (sState.designatorParts == 1) return kTokenASSIGN;
  }
  return '=';
}

int read_next_token(int c) {
  sState.tokenLine = sState.lineCounter;
  int32_t offset = OffsetInLine() - 1;
  sLocation = SourceLocation(sState.tokenLine, offset, sState.tokenLine, offset);
  if (c == '/') {
    int next = nextchar();
    if (next == '/') return Comment();
    putback(next);
  }
  if (c == 0) {
    // The end of the text stands on its last line: the line of its last
    // byte, so a line break that ends the text belongs to the line it ends
    // and opens no line of its own (as a file of three lines ends in three
    // line breaks). An empty text is all on the first line.
    uint32_t end = sState.position;
    if (end > 0 && (line[end - 1] == '\n' || line[end - 1] == '\r') && sState.lineCounter > 0) {
      sState.tokenLine = sState.lineCounter - 1;
      sLocation = SourceLocation(sState.tokenLine, 0, sState.tokenLine, 0);
    }
    return kEndOfText;
  }
  if (Is(c, kNameStart)) return Name(c);
  if (Is(c, kDigit)) return Number(c);
  switch (c) {
    case '"': return QuotedString();
    case '\\':
      if (peekchar() == '"') {
        ++sState.position;
        return EscapedString();
      }
      return '\\';
    case '>':
      if (peekchar() == '=') return ++sState.position, kTokenGE;
      return '>';
    case '<':
      if (peekchar() == '=') return ++sState.position, kTokenLE;
      if (peekchar() == '>') return ++sState.position, kTokenNE;
      return '<';
    case '.': return Dot();
    case '#': return HashWord();
    case '&': return Ampersand();
    case ',': ClearAssignAtDepth0(); return ',';
    case '=': return Equals();
    case '(': ++sState.parenDepth; return '(';
    case ')': --sState.parenDepth; return ')';
    case '\'': return Comment();
    case '\n': return LineBreak();
    case '\r':
      if (peekchar() == '\n') ++sState.position;
      return LineBreak();
    default: return c;
  }
}

int token_through_whitespace() {
  int c = nextchar();
  while (c == ' ' || c == '\t') c = nextchar();
  return read_next_token(c);
}

// A lone `_` before a line break (a comment may stand between) joins the
// next line to this one; anywhere else it is a CONTINUATION token.
int yylex_ex() {
  for (;;) {
    int token = token_through_whitespace();
    if (token != kTokenCONTINUATION) return token;
    LexerState saved = sState;
    SourceLocation savedLocation = sLocation;
    if (token_through_whitespace() == kTokenNEWLINE) continue;
    sState = saved;
    sLocation = savedLocation;
    yylval = kNullSemBase;
    return kTokenCONTINUATION;
  }
}

// HexVal of the escapes: 0-9, then letters from 10 in either case (so G is
// 16); anything else is skipped.
int HexVal(char const* bytes, int count) {
  int value = 0;
  for (int i = 0; i < count; ++i) {
    int c = (unsigned char)bytes[i];
    if (c >= '0' && c <= '9')
      value = value * 16 + (c - '0');
    else if (c >= 'A' && c <= 'Z')
      value = value * 16 + (c - 'A' + 10);
    else if (c >= 'a' && c <= 'z')
      value = value * 16 + (c - 'a' + 10);
  }
  return value;
}

char EscapedByte(char c) {
  switch (c) {
    case 'a': return 7;
    case 'b': return 8;
    case 'f': return 12;
    case 'n': return 10;
    case 'r': return 13;
    case 't': return 9;
    case 'v': return 11;
    // \" \' \? \\ stand for themselves, and so does any byte not listed.
    default: return c;
  }
}

// Bytes an escape at `s[i]` takes up in a text of `n` bytes.
inline int EscapeLength(char const* s, int i, int n) {
  if (s[i] != '\\' || i + 1 >= n) return 1;
  if (s[i + 1] != 'x') return 2;
  int len = 4;
  if (i + len > n) len = n - i;
  return len;
}

constexpr char kUTF8ByteOrderMark[] = "\xEF\xBB\xBF";

}  // namespace

void InitLexer(char const* source) {
  line = source ? source : "";
  // Editors put a UTF-8 byte-order mark in front of a file; it is no part
  // of the first line's text, and offsets on that line count from behind it.
  uint32_t start = strncmp(line, kUTF8ByteOrderMark, sizeof kUTF8ByteOrderMark - 1) == 0
                       ? (uint32_t)(sizeof kUTF8ByteOrderMark - 1)
                       : 0;
  sState = LexerState{start, true, 0, 0, start, true, 0, 0};
  sLocation = SourceLocation();
  kNullSemBase = SemBase::New();
  yylval = kNullSemBase;
  int count = 0;
  for (char const* p = line; *p; ++p) count += *p == '\n';
  sTotalLinesInBuffer = count;
}

int GetToken() {
  yylval = kNullSemBase;
  int token = yylex_ex();
  while (sState.afterNewline && token == kTokenNEWLINE) token = yylex_ex();
  sState.afterNewline = token == kTokenNEWLINE;
  if (sState.afterNewline) {
    sState.assignPossible = true;
    sState.parenDepth = 0;
    sState.designatorParts = 0;
  }
  return token;
}

int current_line() { return sState.tokenLine; }

int total_lines() { return sTotalLinesInBuffer; }

LexerState SaveLexerState() { return sState; }

void RestoreLexerState(LexerState const& state) { sState = state; }

LexerRun SaveLexerRun() { return LexerRun{line, sState, sTotalLinesInBuffer, sLocation, yylval}; }

void RestoreLexerRun(LexerRun const& run) {
  line = run.source;
  sState = run.state;
  sTotalLinesInBuffer = run.totalLines;
  sLocation = run.location;
  yylval = run.value;
}

SourceLocation CurrentTokenLocation() { return sLocation; }

void SkipConditionallyCompiledLines(bool stopAtEndifOnly) {
  int depth = 0;
  bool afterEnd = false;
  for (;;) {
    LexerState saved = sState;
    int token = GetToken();
    if (token == kEndOfText) return;
    if (afterEnd && (token == kTokenSub || token == kTokenFunction)) return;
    afterEnd = token == kTokenEnd;
    switch (token) {
      case kTokenHashIf: ++depth; break;
      case kTokenHashElseIf:
        if (depth == 0 && !stopAtEndifOnly) return RestoreLexerState(saved);
        break;
      case kTokenHashElse:
        if (depth == 0 && !stopAtEndifOnly) {
          GetToken();
          return;
        }
        break;
      case kTokenHashEndif:
        if (depth == 0) return RestoreLexerState(saved);
        --depth;
        break;
      default: break;
    }
  }
}

string DecodeBackslashEscape(string s) {
  int n = (int)s.Length();
  if (n == 0) return s;
  char const* in = s.CString();
  int outLength = 0;
  for (int i = 0; i < n; i += EscapeLength(in, i, n)) ++outLength;
  string out;
  out.ConstructFromBuffer(nullptr, outLength);
  out.SetEncoding(s.Encoding());
  char* o = out.MutableChar(0);
  for (int i = 0; i < n;) {
    int len = EscapeLength(in, i, n);
    if (len == 1)
      *o++ = in[i];
    else if (in[i + 1] == 'x')
      *o++ = (char)HexVal(in + i + 2, len - 2);
    else
      *o++ = EscapedByte(in[i + 1]);
    i += len;
  }
  return out;
}

int lexer_strcmpi(char const* a, char const* b) {
  for (;; ++a, ++b) {
    unsigned char x = kUpper.map[(unsigned char)*a], y = kUpper.map[(unsigned char)*b];
    if (x != y) return x < y ? -1 : 1;
    if (!x) return 0;
  }
}


