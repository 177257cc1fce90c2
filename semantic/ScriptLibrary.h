// The script library as the compiler sees it: the prefix module of
// everything a script may name without declaring it. Made anew for each
// compile; it belongs to the caller.
#pragma once

#include "foundation/String.h"
#include "ir/DataTypes.h"

class ClassDeclaration;
class FunctionDeclaration;
class ModuleDeclaration;

// A new module holding the library's functions and classes; the caller
// owns it (it is not locked).
ModuleDeclaration* MakeKvScriptRuntimeDeclarations();

// A function of the library: dispatched by link name, named `linkName`,
// called `scriptName`. Each parameter type that is not the null type adds a
// parameter "ParameterN", N being its position. Not locked.
FunctionDeclaration* MakeRuntimeMethodDeclaration(string linkName, string scriptName, IRDataType result,
                                                  IRDataType p1 = IRDataType(),
                                                  IRDataType p2 = IRDataType(),
                                                  IRDataType p3 = IRDataType());
ClassDeclaration* MakeVariantDeclaration();
ClassDeclaration* MakeRuntimeExceptionDeclaration();
// A subclass with the parent's storage, already connected to it.
ClassDeclaration* MakeRuntimeExceptionSubclassDeclaration(ClassDeclaration* parent, string name,
                                                          string linkName);
