// Classes, interfaces, properties and events. The miner has made every
// declaration; these routines find them by name and build the code of a
// class: its retriever, initializer, destructor and interface tables.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

class ClassDeclaration;
class FunctionDeclaration;
class PropertyDeclaration;

// The code that leaves the run-time record of the class `name` in its
// result; UnknownName at `where` (the current line if null) and an empty
// code for a name that is no class.
Ref<SemBase> LookupClassRecord(string const& name, SourceLocation const* where);
// `value` as an object or array that is known not to be Nil: a Nil raises
// NilObjectException first, whatever NilObjectChecking says. Values of other
// types and variants pass as they are.
Ref<SemBase> CheckForNilObject(Ref<SemBase> value);
// The address of `property`'s field in `object`, a value of the field's
// type as a reference.
Ref<SemBase> CreatePropertyStorageReference(Ref<SemBase> object, PropertyDeclaration* property);
// The method of `cls` (inherited ones included) that implements
// `interfaceMethod`, or null.
FunctionDeclaration* FindInterfaceMethodMatch(FunctionDeclaration* interfaceMethod, ClassDeclaration* cls);

// At the head of a class; returns a SemValue of its symbol table's index.
Ref<SemBase> CompileClass(Ref<SemBase> name);
// At `End Class`: the code of all the class's functions.
Ref<SemBase> CompileEndClass(Ref<SemBase> name, Ref<SemBase> tableValue, Ref<SemBase> members);
// `Inherits Name`; returns `result`, which the grammar passes as null.
Ref<SemBase> CompileInheritance(Ref<SemBase> parentName, Ref<SemBase> result);
Ref<SemBase> CompileImplements(Ref<SemBase> interfaceName);

// Opens the table of an interface's members; returns a SemValue of its index.
Ref<SemBase> OpenInterfaceScope();
// At `End Interface`; closes OpenInterfaceScope's table. The grammar passes
// a null `code`.
Ref<SemBase> CompileInterface(Ref<SemBase> name, Ref<SemBase> code);
// The end of one interface method header: closes the table that the grammar
// opened for its parameters. Headers have no code: returns null.
Ref<SemBase> EndInterfaceMethod();

// A property of a class or module; `dimensions` may be null.
Ref<SemBase> CompileProperty(Ref<SemBase> name, Ref<SemBase> dimensions, Ref<SemBase> type);
// `New Event Name(parameters) As type`; returns `result`, which the grammar
// passes as null.
Ref<SemBase> CompileEvent(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> type, Ref<SemBase> result);
// CompileEvent, then the close of the table that the grammar opened for the
// event's parameters.
Ref<SemBase> EndEventDeclaration(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> type);
