#include "runtime/RuntimeStringFoundation.h"

void RuntimeLockString(stringStorage* s) {
  if (s)
    s->AddReference();
}

void RuntimeUnlockString(stringStorage* s) { stringStorage::RemoveReference(s); }

void RuntimeLockUnlockStrings(stringStorage* newOne, stringStorage* oldOne) {
  if (newOne == oldOne)
    return;
  RuntimeLockString(newOne);
  RuntimeUnlockString(oldOne);
}

stringStorage* RuntimeAddString(stringStorage* a, stringStorage* b) {
  return (string(a) + string(b)).ExtractStringStorage();
}

int CompareStringsInternal(stringStorage* a, stringStorage* b) { return string(a).Compare(string(b)); }
