// Internal invariant checks. Test builds define KV_CHECKS; a failed check
// prints where it failed and aborts, since the state behind it can't be trusted.
#pragma once

#if defined(KV_CHECKS)
void KvAssertFailed(char const* expr, char const* file, int line);
#define KV_ASSERT(cond) ((cond) ? (void)0 : KvAssertFailed(#cond, __FILE__, __LINE__))
#else
#define KV_ASSERT(cond) ((void)0)
#endif
