// The choice between a routine's readable scalar pass and its fast path, made once per band.
// HALFTONE_FORCE_SCALAR=1 in the environment (read once) or the test hook forces the scalar
// passes everywhere; both give the same dots, so this only ever changes speed.
#pragma once

namespace halftone {

bool ForceScalar();
// Test hook: 1 forces the scalar passes, 0 allows the fast paths, -1 returns to the environment.
void SetForceScalar(int mode);

}  // namespace halftone
