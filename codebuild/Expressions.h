// Expressions: operators, literals, constant folding, and the object
// operators (New, Is, IsA, Self, Me, Super, Class). Every routine takes null
// handles, which arrive after an error was reported.
//
// Until expression building lands, the operator routines hand back the
// placeholders of codebuild/Placeholders.h; the literal routines are final.
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
// Short-circuit And, Or.
Ref<SemBase> CompileAnd(Ref<SemBase> left, Ref<SemBase> right);
Ref<SemBase> CompileOr(Ref<SemBase> left, Ref<SemBase> right);
Ref<SemBase> CompileNot(Ref<SemBase> value);
// Unary minus.
Ref<SemBase> CompileNegation(Ref<SemBase> value);

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
