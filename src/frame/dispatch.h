// Which tier runs the diffusions and screens, chosen once per process. Every tier gives the same
// dots; the choice only ever changes speed:
//   reference  each routine's readable scalar pass, in scan order;
//   lockstep   the fast paths with a band's planes in scalar lockstep groups;
//   vector     lockstep, with groups of planes as the lanes of one vector where the target has
//              vector rows (SSE2); elsewhere it runs as lockstep.
// HALFTONE_PATH=reference|lockstep|vector in the environment (read once; unset or unknown means
// the fastest the target has) or the test hook SetPath chooses it.
#pragma once

namespace halftone {

enum class Path { kReference, kLockstep, kVector };

// The tier in force for this call.
Path ActivePath();
const char* PathName(Path path);

// The readable reference passes only (the reference tier).
inline bool ForceScalar() { return ActivePath() == Path::kReference; }
// Vector rows allowed (the vector tier, on a target that has them).
inline bool VectorRowsOn() { return ActivePath() == Path::kVector; }

// Test hook: forces a tier (a vector request on a target without vector rows gives lockstep);
// -1 returns to the environment.
void SetPath(int path);

}  // namespace halftone
