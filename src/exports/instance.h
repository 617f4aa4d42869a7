// The one process-wide engine behind the exported entry points, and the guard every export
// runs its body under. Only files in this folder know ABI names.
#pragma once

#include <climits>
#include <new>

#include "frame/band.h"
#include "frame/engine.h"
#include "halftone/halftone.h"

namespace halftone {

Engine& ProcessEngine();

// No exception crosses the library boundary: memory exhaustion maps to kErrNoMemory, anything
// else to kErrFault.
template <class Body>
int Guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return kErrNoMemory;
  } catch (...) {
    return kErrFault;
  }
}

// Signed sizes of the int-sized entry points: a negative width or height is outside the contract.
inline bool NegativeSize(int w, int h) { return w < 0 || h < 0; }

}  // namespace halftone
