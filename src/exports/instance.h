// The one process-wide engine behind the exported entry points, and the guard every export
// runs its body under. Only files in this folder know ABI names.
#pragma once

#include <atomic>
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

// A call that uses the process-wide instance (band routines, set-up, loaders, setters) holds the
// gate for its whole run. A second host thread entering meanwhile is refused at once with
// kErrBusy and touches nothing: the instance is one job, and two calls sharing its error rows
// and random source would corrupt both. The gate costs one atomic exchange and one store a call.
class CallGate {
 public:
  bool Enter() noexcept { return !busy_.test_and_set(std::memory_order_acquire); }
  void Leave() noexcept { busy_.clear(std::memory_order_release); }

 private:
  std::atomic_flag busy_;
};

extern constinit CallGate process_gate;

inline constexpr int kErrBusy = HALFTONE_ERR_BUSY;

// Guarded, under the process gate.
template <class Body>
int Exclusive(Body&& body) noexcept {
  if (!process_gate.Enter()) return kErrBusy;
  const int rc = Guarded(body);
  process_gate.Leave();
  return rc;
}

// Signed sizes of the int-sized entry points: a negative width or height is outside the contract.
inline bool NegativeSize(int w, int h) { return w < 0 || h < 0; }

}  // namespace halftone
