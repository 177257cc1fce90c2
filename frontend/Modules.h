// The program and its modules, as the grammar's outermost rules see them.
#pragma once

#include "foundation/Ref.h"
#include "semantic/SemBase.h"

// The start rule's action: lays out the code of the whole program in the
// context's `program`. `declarations` is the list of the top items' code,
// `statements` the main program's; either may be null.
Ref<SemBase> CompileProgram(Ref<SemBase> declarations, Ref<SemBase> statements);
// At the head of `Module Name`: opens the module's table and makes the
// module current; returns a SemValue of the table's index.
Ref<SemBase> CompileModule(Ref<SemBase> name);
// At `End Module`: closes the table; modules don't nest in this respect, so
// no outer module is current afterwards. Returns `members`.
Ref<SemBase> CompileEndModule(Ref<SemBase> table, Ref<SemBase> members);
