#include "runtime/RuntimeStringFoundation.h"

#include "foundation/Utility.h"

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

// Scripts compare strings often, and most comparisons need no conversion:
// the same record, an empty side, or two texts in one encoding are settled
// on the records as they are, with no handles made and no counts touched.
int CompareStringsInternal(stringStorage* a, stringStorage* b) {
  if (a == b) return 0;
  long lengthA = stringStorage::Length(a), lengthB = stringStorage::Length(b);
  if (lengthA == 0 || lengthB == 0) return (lengthA > 0) - (lengthB > 0);
  if (a->mEncoding == b->mEncoding)
    return ustrcmpi(stringStorage::CString(a), lengthA, stringStorage::CString(b), lengthB);
  return string(a).Compare(string(b));
}
