// The token numbers shared by the lexer, the declaration miner and the
// grammar. Single characters are tokens by their byte value and the end of
// the text is -1; everything else is numbered here from 258 on.
//
// X(name, number, text): `name` is the grammar's name for the token (a
// keyword is named by its word), `text` is the keyword's spelling or null.
// The keyword rows 258..344 are also the lexer's keyword table, in order: a
// keyword's number is 258 + its index there.
#pragma once

#define KV_KEYWORD_TOKENS(X)            \
  X(If, 258, "If")                      \
  X(Sub, 259, "Sub")                    \
  X(Function, 260, "Function")          \
  X(Until, 261, "Until")                \
  X(As, 262, "As")                      \
  X(Integer, 263, "Integer")            \
  X(End, 264, "End")                    \
  X(Mod, 265, "Mod")                    \
  X(Dim, 266, "Dim")                    \
  X(Then, 267, "Then")                  \
  X(Else, 268, "Else")                  \
  X(While, 269, "While")                \
  X(Wend, 270, "Wend")                  \
  X(String, 271, "String")              \
  X(Raise, 272, "Raise")                \
  X(For, 273, "For")                    \
  X(Exception, 274, "Exception")        \
  X(Array, 275, "Array")                \
  X(Of, 276, "Of")                      \
  X(Not, 277, "Not")                    \
  X(Single, 278, "Single")              \
  X(Double, 279, "Double")              \
  X(GoTo, 280, "GoTo")                  \
  X(And, 281, "And")                    \
  X(Or, 282, "Or")                      \
  X(Nil, 283, "Nil")                    \
  X(Rem, 284, "Rem")                    \
  X(Next, 285, "Next")                  \
  X(ElseIf, 286, "ElseIf")              \
  X(To, 287, "To")                      \
  X(True, 288, "True")                  \
  X(False, 289, "False")                \
  X(ByRef, 290, "ByRef")                \
  X(Boolean, 291, "Boolean")            \
  X(New, 292, "New")                    \
  X(Select, 293, "Select")              \
  X(Case, 294, "Case")                  \
  X(Return, 295, "Return")              \
  X(Self, 296, "Self")                  \
  X(Do, 297, "Do")                      \
  X(Loop, 298, "Loop")                  \
  X(Exit, 299, "Exit")                  \
  X(Redim, 300, "Redim")                \
  X(DownTo, 301, "DownTo")              \
  X(Step, 302, "Step")                  \
  X(Color, 303, "Color")                \
  X(IsA, 304, "IsA")                    \
  X(Me, 305, "Me")                      \
  X(HashPragma, 306, "#pragma")         \
  X(HashBad, 307, "#bad")               \
  X(ByVal, 308, "ByVal")                \
  X(Optional, 309, "Optional")          \
  X(Extends, 310, "Extends")            \
  X(Assigns, 311, "Assigns")            \
  X(Const, 312, "Const")                \
  X(HashIf, 313, "#if")                 \
  X(HashElse, 314, "#else")             \
  X(HashEndif, 315, "#endif")           \
  X(Declare, 316, "Declare")            \
  X(Class, 317, "Class")                \
  X(Object, 318, "Object")              \
  X(Interface, 319, "Interface")        \
  X(Implements, 320, "Implements")      \
  X(Inherits, 321, "Inherits")          \
  X(Public, 322, "Public")              \
  X(Private, 323, "Private")            \
  X(Protected, 324, "Protected")        \
  X(Shared, 325, "Shared")              \
  X(Namespace, 326, "Namespace")        \
  X(Module, 327, "Module")              \
  X(Static, 328, "Static")              \
  X(Event, 329, "Event")                \
  X(Handles, 330, "Handles")            \
  X(Each, 331, "Each")                  \
  X(In, 332, "In")                      \
  X(Catch, 333, "Catch")                \
  X(Try, 334, "Try")                    \
  X(Finally, 335, "Finally")            \
  X(Super, 336, "Super")                \
  X(Lib, 337, "Lib")                    \
  X(Inline68k, 338, "Inline68k")        \
  X(Is, 339, "Is")                      \
  X(Call, 340, "Call")                  \
  X(AddressOf, 341, "AddressOf")        \
  X(Delegate, 342, "Delegate")          \
  X(ParamArray, 343, "ParamArray")      \
  X(HashElseIf, 344, "#ElseIf")

#define KV_OTHER_TOKENS(X)              \
  X(IDENT, 345, nullptr)                \
  X(INT_LIT, 346, nullptr)              \
  X(STR_LIT, 347, nullptr)              \
  X(ASSIGN, 348, nullptr)               \
  X(GE, 349, nullptr)                   \
  X(LE, 350, nullptr)                   \
  X(NE, 351, nullptr)                   \
  X(ELLIPSIS, 352, nullptr)             \
  X(DOTDOT, 353, nullptr)               \
  X(FLOAT_LIT, 354, nullptr)            \
  X(UNUSED_355, 355, nullptr)           \
  X(NEWLINE, 356, nullptr)              \
  X(BAD_STR_LIT, 357, nullptr)          \
  X(COLOR_LIT, 358, nullptr)            \
  X(CONTINUATION, 359, nullptr)         \
  X(UNARY_MINUS, 360, nullptr)

#define KV_TOKENS(X) KV_KEYWORD_TOKENS(X) KV_OTHER_TOKENS(X)

enum LexToken : int {
  kEndOfText = -1,
#define KV_TOKEN_ENUM(name, number, text) kToken##name = number,
  KV_TOKENS(KV_TOKEN_ENUM)
#undef KV_TOKEN_ENUM
};

constexpr int kFirstKeywordToken = kTokenIf;
constexpr int kKeywordCount = kTokenHashElseIf - kTokenIf + 1;
static_assert(kKeywordCount == 87, "the keyword table holds 87 words");
static_assert(kTokenUNARY_MINUS == 360, "the grammar's terminals end at 360");

namespace token_detail {
constexpr int kNumbers[] = {
#define KV_TOKEN_NUMBER(name, number, text) number,
    KV_TOKENS(KV_TOKEN_NUMBER)
#undef KV_TOKEN_NUMBER
};
constexpr bool NumbersFollowOn() {
  for (unsigned i = 0; i < sizeof(kNumbers) / sizeof(kNumbers[0]); ++i)
    if (kNumbers[i] != 258 + (int)i) return false;
  return true;
}
}  // namespace token_detail
// The grammar's tables index terminals by these numbers, so the list may
// have no gap and no reordering.
static_assert(token_detail::NumbersFollowOn(), "token numbers must run 258, 259, ... without a gap");
