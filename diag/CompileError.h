// Compile errors: the numbers the compiler reports, the record that carries
// one to the delegate, and the routines every semantic action reports with.
//
// The compiler holds no error texts: the number is the message, and the host
// and the script's author see it, so the numbers are fixed and gaps stay
// gaps. Names and numbers come from the one list below, so they cannot drift.
//
// Invariants:
// - Every Error routine sets the current sink's error flag before it
//   reaches the delegate, so a swallowing delegate still fails the compile.
// - The flag stays set until the context dies.
#pragma once

#include "foundation/SimpleVector.h"
#include "foundation/String.h"
#include "diag/SourceLocation.h"

// X(name, value). Unlisted values (0, 3, 4, 8, 13, 23, 30, 40) are never raised;
// 0 stands for "no code" where a routine takes a code to raise on failure.
// From 96 on, the codes say why a text could not be compiled at all (an
// `#if` left open, a source too large, memory run out, a NUL byte) or that
// the compiler itself failed (InternalError): a host must hear of those too.
// NotYetSupported names (in its one word) a construct that the compiler
// parses but cannot build code for yet: the compile fails instead of
// running a program with a piece missing.
#define KV_COMPILE_ERRORS(X)             \
  X(SyntaxError, 1)                      \
  X(TypeMismatch, 2)                     \
  X(ParserStackOverflow, 5)              \
  X(TooManyArguments, 6)                 \
  X(TooFewArguments, 7)                  \
  X(ArgumentTypeMismatch, 9)             \
  X(NotAssignable, 10)                   \
  X(UnknownName, 11)                     \
  X(IllegalOperandType, 12)              \
  X(ArrayBoundNotInteger, 14)            \
  X(NotAStatement, 15)                   \
  X(NotAnArray, 16)                      \
  X(TooFewSubscripts, 17)                \
  X(TooManySubscripts, 18)               \
  X(ArrayMethodNeedsOneDimension, 19)    \
  X(ArrayCastDimensions, 20)             \
  X(ByRefNeedsVariable, 21)              \
  X(DuplicateName, 22)                   \
  X(AmbiguousCall, 24)                   \
  X(InheritsMismatch, 25)                \
  X(NewOfInterface, 26)                  \
  X(NotAnInterface, 27)                  \
  X(InheritsInterface, 28)               \
  X(InterfaceMethodMissing, 29)          \
  X(ResultIgnored, 31)                   \
  X(SelfOutsideInstance, 32)             \
  X(MeOutsideInstance, 33)               \
  X(UnexpectedReturnValue, 34)           \
  X(CatchTypeNotException, 35)           \
  X(InterfaceReturnTypeMismatch, 36)     \
  X(OverrideReturnTypeMismatch, 37)      \
  X(HandlesOutsideClass, 38)             \
  X(UnknownHandledEvent, 39)             \
  X(SuperOutsideClass, 41)               \
  X(SuperWithoutParent, 42)              \
  X(ConditionalElseWithoutIf, 43)        \
  X(ConditionalEndIfWithoutIf, 44)       \
  X(ConditionalTypeless, 45)             \
  X(ConditionalNotConstant, 46)          \
  X(NextNameMismatch, 47)                \
  X(ArrayBoundNotConstant, 48)           \
  X(DeclareArrayType, 49)                \
  X(DeclareObjectType, 50)               \
  X(DeclareStringType, 51)               \
  X(SortElementType, 52)                 \
  X(InaccessibleMember, 53)              \
  X(InaccessibleMethod, 54)              \
  X(NameClashesWithLocalMethod, 55)      \
  X(NameClashesWithModuleMethod, 56)     \
  X(NameClashesWithClassMethod, 57)      \
  X(NameClashesWithEvent, 58)            \
  X(NameClashesWithClass, 59)            \
  X(NameClashesWithModule, 60)           \
  X(NameClashesWithConstant, 61)         \
  X(ReservedIdentifier, 62)              \
  X(UnknownClass, 63)                    \
  X(LibNameNotString, 64)                \
  X(DeclareFunctionWithoutType, 65)      \
  X(NewOfAbstractClass, 66)              \
  X(NoResultValue, 67)                   \
  X(UnterminatedString, 68)              \
  X(CircularInheritance, 69)             \
  X(ReadOnlyMember, 70)                  \
  X(WriteOnlyProperty, 71)               \
  X(ConditionNotBoolean, 72)             \
  X(MissingReturnValue, 73)              \
  X(ConflictingModifiers, 74)            \
  X(RepeatedModifier, 75)                \
  X(OptionalByRef, 76)                   \
  X(OptionalParamArray, 77)              \
  X(OptionalAssigns, 78)                 \
  X(OptionalExtends, 79)                 \
  X(ExtendsNotFirst, 80)                 \
  X(ParameterAfterAssigns, 81)           \
  X(ParameterAfterParamArray, 82)        \
  X(SecondAssigns, 83)                   \
  X(SecondParamArray, 84)                \
  X(ParamArrayOfArray, 85)               \
  X(MissingThen, 86)                     \
  X(UnknownPragma, 87)                   \
  X(ConstNotConstant, 88)                \
  X(CallNeedsMethod, 89)                 \
  X(CaseOutsideSelect, 90)               \
  X(UnknownAccessor, 91)                 \
  X(AccessorEndMismatch, 92)             \
  X(CodeBufferFull, 93)                  \
  X(UndefinedLabel, 94)                  \
  X(BranchOutOfRange, 95)               \
  X(ConditionalWithoutEndIf, 96)        \
  X(SourceTooLarge, 97)                 \
  X(OutOfMemory, 98)                    \
  X(NulInSource, 99)                    \
  X(InternalError, 100)                  \
  X(NotYetSupported, 101)

enum CompileErrorCode : int {
  kNoCompileError = 0,
#define KV_ERROR_ENUM(name, value) name = value,
  KV_COMPILE_ERRORS(KV_ERROR_ENUM)
#undef KV_ERROR_ENUM
};

// The code's name as in the list ("SyntaxError"), or null for a number that
// is not a code (0 included).
char const* CompileErrorName(CompileErrorCode code);
// How many codes the list holds.
int CompileErrorCount();

class CompileError {
public:
  CompileError() : code(kNoCompileError) {}
  CompileError(CompileErrorCode c, SourceLocation const& where) : code(c), location(where) {}
  CompileError(CompileErrorCode c, SourceLocation const& where, SimpleVector<string> words)
      : code(c), location(where), params(words) {}
  CompileError(CompileError const& other) = default;
  CompileError& operator=(CompileError const& other) = default;
  ~CompileError() = default;

  CompileErrorCode Type() const { return code; }
  SourceLocation const& Location() const { return location; }
  // Zero, one or two words (type texts, modifiers, an accessor's name).
  SimpleVector<string> const& Params() const { return params; }

private:
  CompileErrorCode code;
  SourceLocation location;
  SimpleVector<string> params;
};

class CompilerDelegate;

// Where the errors of the compilation in progress go. The compilation
// context is the one sink; it is current, through gErrorSink, from the start
// of its compile to the end, and no sink is current between compiles.
class CompileErrorSink {
public:
  // Progress and error sink; null is legal and leaves only hadError.
  CompilerDelegate* delegate = nullptr;
  bool hadError = false;
  // The line that an error without a location is reported at: the current
  // token's, for the context; -1 (unknown) here.
  virtual int CurrentLine() const { return -1; }

protected:
  ~CompileErrorSink() = default;
};

extern CompileErrorSink* gErrorSink;

// The current sink's line, or -1 when no compile is in progress.
int CurrentSourceLine();

// Reports at the current line, offsets unknown.
void Error(CompileErrorCode code);
// Sets the current sink's error flag and, with a delegate, hands it the
// record; the delegate's answer is ignored. Needs a current sink.
void Error(CompileErrorCode code, SourceLocation const& where);
void Error(CompileErrorCode code, SourceLocation const& where, SimpleVector<string> params);
