// External declarations (`Declare Sub/Function ... Lib ...`) and AddressOf.
//
// Until external declarations land, the routines that check and build report
// NotYetSupported and hand back the placeholders of codebuild/Placeholders.h;
// EndExternDeclaration and ReportDeclareFunctionWithoutType are final.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// A parameter or return type written as a name (Ptr, Short, a class...):
// sets the name's type and returns the name.
Ref<SemBase> DeclareParamType(Ref<SemBase> name);
Ref<SemBase> DeclareReturnType(Ref<SemBase> name);
// `Lib name`: the library given by a string constant.
Ref<SemBase> CompileExternLib(Ref<SemBase> name);
// `Alias "text"`: checks the word and returns the text.
Ref<SemBase> CompileExternAlias(Ref<SemBase> word, Ref<SemBase> text);
Ref<SemBase> CompileExternDeclaration(Ref<SemBase> name, Ref<SemBase> library, Ref<SemBase> alias,
                                      Ref<SemBase> parameters, Ref<SemBase> returnType);

// CompileExternDeclaration, then the close of the table that the grammar
// opened for the declaration's parameters.
Ref<SemBase> EndExternDeclaration(Ref<SemBase> name, Ref<SemBase> library, Ref<SemBase> alias,
                                  Ref<SemBase> parameters, Ref<SemBase> returnType);
// A `Declare Function` without `As`: reports DeclareFunctionWithoutType and
// yields the null handle of an absent return type.
Ref<SemBase> ReportDeclareFunctionWithoutType();

// `AddressOf name` and `AddressOf object.name`.
Ref<SemBase> CompileAddressOf(Ref<SemBase> name);
Ref<SemBase> CompileAddressOf(Ref<SemBase> object, Ref<SemBase> name);
