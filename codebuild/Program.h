// The program and its modules, as the grammar's outermost rules see them.
#pragma once

#include "ir/ThreeAddressCode.h"
#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// Whether `block` is a method's code, which starts with a tac_Label of the
// method's name, a String literal; false for a null or empty block.
bool BlockIsFunction(TacBlock const* block);

// The start rule's action: lays out the code of the whole program in the
// context's `program`: the run-time library's start, the top items' code
// that is no method's (global Dims), the main program's statements, the
// exit that returns the library's status, then every method. `declarations`
// is the list of the top items' code, `statements` the main program's;
// either may be null. Their lines move into `program`.
Ref<SemBase> CompileProgram(Ref<SemBase> declarations, Ref<SemBase> statements);
// At the head of `Module Name`: opens the module's table and makes the
// module current; returns a SemValue of the table's index.
Ref<SemBase> CompileModule(Ref<SemBase> name);
// At `End Module`: closes the table and makes the enclosing module current
// again. Returns `members`.
Ref<SemBase> CompileEndModule(Ref<SemBase> table, Ref<SemBase> members);
