// String functions that generated code calls. A script `String` is a
// `stringStorage*`, null for "". Arguments are borrowed; a returned record
// carries one reference for the caller.
#pragma once

#include "foundation/String.h"

extern "C" {
void RuntimeLockString(stringStorage* s);
void RuntimeUnlockString(stringStorage* s);
// A string assignment: locks the new value, unlocks the old, unless they are one record.
void RuntimeLockUnlockStrings(stringStorage* newOne, stringStorage* oldOne);
stringStorage* RuntimeAddString(stringStorage* a, stringStorage* b);
// -1, 0 or 1, ignoring case; encodings are brought together first.
int CompareStringsInternal(stringStorage* a, stringStorage* b);
}
