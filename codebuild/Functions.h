// Functions: the frame of a Sub or Function, its parameters and Return.
// The miner has made every method's declaration; these routines find it
// again by mangled name and build its code. Handlers of events (`Handles`)
// wait for classes and report NotYetSupported.
#pragma once

#include "ir/ThreeAddressCode.h"
#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// Opens a method's symbol table before its parameters and gives it `self`
// inside a class. Returns a SemValue of the table's index in the list of
// tables, which CompileEndFunction takes back.
Ref<SemBase> OpenMethodScope();
// Inside a class: the method's `self`, the first symbol of its table.
void AddSelfParameter();
// One parameter; `type` carries the declared type, `defaultValue` may be null.
Ref<SemBase> CompileParameter(Ref<SemBase> modifiers, Ref<SemBase> name, Ref<SemBase> type,
                              Ref<SemBase> defaultValue);
// A parameter named `Me`.
Ref<SemBase> CompileMeParam();
// Before the body. `returnType` is null for a Sub, `handledEvent` without
// `Handles Event`.
void CompileFunction(Ref<SemBase> name, Ref<SemBase> parameters, Ref<SemBase> returnType,
                     Ref<SemBase> handledEvent);
// At `End Sub` / `End Function`; `table` is OpenMethodScope's value.
Ref<SemBase> CompileEndFunction(Ref<SemBase> name, Ref<SemBase> table, Ref<SemBase> parameters,
                                Ref<SemBase> handledEvent, Ref<SemBase> body);
// `Return`, with a null value when none is written.
Ref<SemBase> CompileReturn(Ref<SemBase> value);
