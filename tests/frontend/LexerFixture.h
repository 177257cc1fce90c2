// Shared by the lexer's tests: a spelling of token streams that a table can
// hold.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "frontend/CompileScope.h"
#include "frontend/Lexer.h"
#include "frontend/SrcContext.h"
#include "semantic/SemBase.h"
#include "tests/frontend/CompileFixture.h"

// Literals need a pool and the shared constants.
using CompilationFixture = CompileFixture;

inline std::string Bytes(string const& s) { return std::string(s.CString(), (size_t)s.Length()); }

// Non-printable bytes as \xNN, so a failing expectation shows them.
inline std::string Printable(std::string const& s) {
  std::string out;
  for (unsigned char c : s) {
    if (c >= 32 && c < 127) {
      out += (char)c;
    } else {
      char buf[8];
      snprintf(buf, sizeof buf, "\\x%02X", c);
      out += buf;
    }
  }
  return out;
}

inline std::string TokenName(int token) {
  switch (token) {
#define KV_TOKEN_CASE(name, number, text) \
  case number: return text ? text : #name;
    KV_TOKENS(KV_TOKEN_CASE)
#undef KV_TOKEN_CASE
    default: return std::string(1, (char)token);
  }
}

// One token as a table spells it: `id:name`, `int:5`, `float:0.5`,
// `str:text`, `bad:text`, `color:0xRRGGBB`, `:=` for ASSIGN, `NL`, `_`,
// keywords by their word (True and False with their value), characters as
// themselves. The value's type is checked against the token here.
inline std::string DescribeToken(int token) {
  SemBase* v = yylval.Get();
  auto literal = [&](SimpleDataType expected) -> TacAddr const* {
    TacAddr const* addr = v ? v->GetAddr() : nullptr;
    if (!addr || !addr->IsConstant()) return nullptr;
    if (addr->type.GetMainType() != expected) return nullptr;
    return addr;
  };
  char buf[64];
  switch (token) {
    case kTokenIDENT: {
      auto* id = dynamic_cast<SemIdentifier*>(v);
      if (!id) return "id:<no value>";
      if (id->name.Encoding() != kEncodingUTF8) return "id:<not UTF-8>";
      return "id:" + Printable(Bytes(id->name));
    }
    case kTokenINT_LIT: {
      TacAddr const* a = literal(kTypeInteger);
      if (!a) return "int:<bad value>";
      return "int:" + std::to_string(a->GetValue().sint32);
    }
    case kTokenFLOAT_LIT: {
      TacAddr const* a = literal(kTypeDouble);
      if (!a) return "float:<bad value>";
      snprintf(buf, sizeof buf, "float:%.17g", a->GetValue().real64);
      return buf;
    }
    case kTokenCOLOR_LIT: {
      TacAddr const* a = literal(kTypeColor);
      if (!a) return "color:<bad value>";
      snprintf(buf, sizeof buf, "color:0x%06X", (unsigned)a->GetValue().sint32);
      return buf;
    }
    case kTokenSTR_LIT:
    case kTokenBAD_STR_LIT: {
      TacAddr const* a = literal(kTypeString);
      std::string tag = token == kTokenSTR_LIT ? "str:" : "bad:";
      if (!a) return tag + "<bad value>";
      string text = a->GetValue().text;
      if (text.Length() && text.Encoding() != kEncodingUTF8) return tag + "<not UTF-8>";
      return tag + Printable(Bytes(text));
    }
    case kTokenTrue:
    case kTokenFalse: {
      TacAddr const* a = literal(kTypeBoolean);
      if (!a) return TokenName(token) + "=<bad value>";
      return TokenName(token) + "=" + std::to_string(a->GetValue().sint32);
    }
    case kTokenASSIGN: return ":=";
    case kTokenNEWLINE: return "NL";
    case kTokenCONTINUATION: return "_";
    case kTokenGE: return ">=";
    case kTokenLE: return "<=";
    case kTokenNE: return "<>";
    case kTokenELLIPSIS: return "...";
    case kTokenDOTDOT: return "..";
    default: return TokenName(token);
  }
}

// The whole stream of `source`, tokens joined by single spaces. A runaway
// lexer shows as an overlong stream instead of a hang.
inline std::string LexAll(char const* source, int limit = 10000) {
  InitLexer(source);
  std::string out;
  for (int i = 0; i < limit; ++i) {
    int token = GetToken();
    if (token == kEndOfText) return out;
    if (!out.empty()) out += ' ';
    out += DescribeToken(token);
  }
  return out + " <no end>";
}

// The next `count` tokens from where the lexer stands.
inline std::string LexNext(int count) {
  std::string out;
  for (int i = 0; i < count; ++i) {
    int token = GetToken();
    if (!out.empty()) out += ' ';
    out += token == kEndOfText ? "EOF" : DescribeToken(token);
  }
  return out;
}
