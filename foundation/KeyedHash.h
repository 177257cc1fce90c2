// Hashes for the engine's hash tables: HalfSipHash-1-3 under a 64-bit key
// drawn at random once per process. A script is input we don't control, and
// with an unkeyed hash a script can be written whose names or literals all
// land in one bin, which makes compile time quadratic; under a secret key no
// text can be prepared that way.
//
// Values differ from process to process: they may choose bins, and nothing
// else may depend on them (no order, no output).
#pragma once

#include <cstdint>

// The bytes as they are.
uint32_t KeyedHash(void const* bytes, long length);
// Each byte through upperMap first, so texts that ustrcmpi finds equal hash
// alike.
uint32_t KeyedHashFoldingCase(void const* bytes, long length);
uint32_t KeyedHash(uint32_t word);
