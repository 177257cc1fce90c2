// Expressions: operators, literals, constant folding, and the object
// operators (New, Is, IsA, Self, Me, Super, Class). Every routine takes null
// handles, which arrive after an error was reported.
//
// The operators check types, fold when both operands are constants and
// otherwise emit code; the object routines (New, Is, IsA, Self, Me, Super,
// Class) report NotYetSupported until classes land.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// Binary operators by number: the character for > < = + - * / \ ^, 37 for
// Mod, and the two characters' codes for >= <= <>.
constexpr unsigned long kOpGreater = 62;
constexpr unsigned long kOpLess = 60;
constexpr unsigned long kOpEqual = 61;
constexpr unsigned long kOpAdd = 43;
constexpr unsigned long kOpSubtract = 45;
constexpr unsigned long kOpMultiply = 42;
constexpr unsigned long kOpDivide = 47;
constexpr unsigned long kOpIntegerDivide = 92;
constexpr unsigned long kOpPower = 94;
constexpr unsigned long kOpMod = 37;
constexpr unsigned long kOpGreaterEqual = 0x3E3D;
constexpr unsigned long kOpLessEqual = 0x3C3D;
constexpr unsigned long kOpNotEqual = 0x213D;

Ref<SemBase> CompileBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right);
// The type in which operands of types `a` and `b` meet for an operator (and
// the elements of an array literal); the null type if there is none.
IRDataType ComputeCommonType(IRDataType a, IRDataType b);
// The folded value of two constants meeting in `common`, located at `loc`;
// a null handle where the pair is not folded: an operator the type lacks, or
// a division the processor would trap on, which is left to run time.
Ref<SemBase> ConstantBinop(Ref<SemBase> left, unsigned long op, Ref<SemBase> right, IRDataType common,
                           SourceLocation loc);
// Unary minus of a constant Integer, Single or Double; reports
// IllegalOperandType for any other type and gives a null handle then, or
// when `value` is no constant.
Ref<SemBase> ConstantNegation(Ref<SemBase> value);
// Exchanges two handles.
void Swap(Ref<SemBase>& a, Ref<SemBase>& b);
// Short-circuit And, Or.
Ref<SemBase> CompileAnd(Ref<SemBase> left, Ref<SemBase> right);
Ref<SemBase> CompileOr(Ref<SemBase> left, Ref<SemBase> right);
Ref<SemBase> CompileNot(Ref<SemBase> value);
// Unary minus.
Ref<SemBase> CompileNegation(Ref<SemBase> value);

// `(a)` or `(a, b)` as an expression: returns the contents. `()` holds no
// value, which an assignment would take for "no value" and a Sub named on
// its left would silently be called: it is NoResultValue, as a Sub's call
// where a value is needed (SyntaxError is the parser's alone), and a
// reported failure stands in for it.
Ref<SemBase> CompileParenthesized(Ref<SemBase> contents);
// The lexer has made the literal already: returns its argument.
Ref<SemBase> CompileStringLiteral(Ref<SemBase> literal);
// A string literal without its closing quote: reports UnterminatedString at
// the literal and goes on with it as though it were closed.
Ref<SemBase> CompileUnterminatedString(Ref<SemBase> literal);
// The null object reference, `Nil`.
Ref<SemBase> CompileNilLiteral();

// `New Name(args)`; the identifier's type was set by ClassType. The grammar
// always asks for the constructor.
Ref<SemBase> CompileNew(Ref<SemBase> classIdentifier, Ref<SemBase> args, bool callConstructor);
// `value IsA Name`, with a null class for `IsA Object`.
Ref<SemBase> CompileIsA(Ref<SemBase> value, Ref<SemBase> classIdentifier);
// `a Is b`: compares references.
Ref<SemBase> CompileIs(Ref<SemBase> left, Ref<SemBase> right);
Ref<SemBase> CompileSelf();
Ref<SemBase> CompileMe();
Ref<SemBase> CompileSuper();
// `Class Name`: the run-time class record.
Ref<SemBase> CompileClassReference(Ref<SemBase> identifier);
