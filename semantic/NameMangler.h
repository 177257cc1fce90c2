// Mangled names: the one spelling of a method that tells its overloads
// apart, lets the grammar pass find what the miner declared, and serves the
// code generator and the linker as a link name. The run-time library and the
// host's callbacks are named the same way, so these rules are what ties a
// script's call to a library entry.
//
// A method's name reads, left to right:
//   qualifier   zero or more "Name." (class or module path)
//   designators zero or more of "#" (event handler), "=" (Assigns),
//               "$" (Extends), right after the last "." or at the start
//   base name   a property accessor's has its own dot: "Size.Get"
//   "%" return type code "%" parameter type codes, nothing between them
// A class method's first parameter is its class, `self`.
//
// Invariants:
// - Every operation takes and returns strings by value and touches nothing
//   else, so a name may be built up piece by piece in any order the rules
//   allow: the return type may go in before or after the parameters, but
//   only once.
// - The mangling is lossy on purpose: dimension counts and the types that
//   exist only in external declarations (Short, Ptr, ...) leave no code.
#pragma once

#include "foundation/Ref.h"
#include "foundation/String.h"
#include "ir/DataTypes.h"

class SemBase;
class FunctionDeclaration;
class PropertyDeclaration;

// "b", "i", "f", "d", "c", "s", "o<Class>" ("o<Object>" for the root class),
// "x" for a class reference; "&" in front for a reference, then "A" for an
// array. Every other type, the null type included, has the empty code.
string TypeCode(IRDataType const& type);

// `name` alone for an empty qualifier, else qualifier + "." + name.
string QualifyName(string qualifier, string name);

// Opens the "%%" section first if `name` has none yet.
string AddParameterDescriptionToName(string name, IRDataType type);
// The code goes right after the first "%", or the "%code%" section is
// appended if there is none. The null type adds an empty code.
string AddReturnTypeDescriptionToName(string name, IRDataType const& type);

// Inserts `designator` after the last "." of the whole name (type codes
// included), or at its start; in front of any designator already there.
string AddDesignatorToName(string name, string designator);
string AddEventDesignatorToName(string name);
// The prefix goes in front of the "#".
string AddEventDesignatorToName(string name, string prefix);
string AddAssignsDesignatorToName(string name);
string AddExtendsDesignatorToName(string name);

// "~" + the class name.
string MakeDestructorBaseName(string className);
// The face a class shows for one interface: class + ":" + interface.
string AddInterfaceToClassName(string className, string interfaceName);

// The name from a finished declaration: its base name, return type and
// parameter types, with the designators its parameters carry. Null gives
// the empty string.
string MangledMethodName(FunctionDeclaration* method);
// name + "%" + type code + "%". Null gives the empty string.
string MangledPropertyName(PropertyDeclaration* property);

// The grammar pass's spelling of the same name: `parameters` is a list (or
// a single value) of typed identifiers, among which the marker identifiers
// "ASSIGNS" and "EXTENDS" apply their designators and describe no
// parameter. Either handle may be null.
string MangleFunctionName(string base, Ref<SemBase> parameters, Ref<SemBase> returnType);
