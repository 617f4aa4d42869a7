// The one process-wide engine behind the exported entry points, and the guard every export
// runs its body under. Only files in this folder know ABI names.
#pragma once

#include <atomic>
#include <cstddef>
#include <new>
#include <type_traits>

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

// A band export's arguments, sizes widened to the engine's.
struct BandCall {
  unsigned char* src;
  unsigned char* dst;
  std::size_t w, h;
  HalftoneFlags flags;
};

// The body of every band export: run(engine, band) under Exclusive. Size is the export's size
// type; an int-sized export refuses a negative width or height with kErrOutOfContract before it
// enters the gate.
template <class Size, class Run>
int RunBand(unsigned char* src, unsigned char* dst, Size w, Size h, unsigned flags, Run run) {
  static_assert(std::is_same_v<Size, int> || std::is_same_v<Size, unsigned>);
  if constexpr (std::is_signed_v<Size>) {
    if (w < 0 || h < 0) return kErrOutOfContract;
  }
  return Exclusive([&] {
    const BandCall band{src, dst, static_cast<std::size_t>(w), static_cast<std::size_t>(h), HalftoneFlags{flags}};
    return run(ProcessEngine(), band);
  });
}

// The run of a band export that calls a family's entry with the engine, then `member` (where
// the entry takes one) and the band: kEntry(engine, member..., src, dst, w, h, flags).
template <auto kEntry, class... Member>
auto Entry(Member... member) {
  return [=](Engine& e, const BandCall& b) { return kEntry(e, member..., b.src, b.dst, b.w, b.h, b.flags); };
}
// The same for an entry that takes its member after the band.
template <auto kEntry, class Member>
auto EntryLast(Member member) {
  return [=](Engine& e, const BandCall& b) { return kEntry(e, b.src, b.dst, b.w, b.h, b.flags, member); };
}

}  // namespace halftone

// Defines the band export `name`, sizes of type Size (int or unsigned int), running `run`, a
// callable int(Engine&, const BandCall&), through RunBand.
#define HALFTONE_BAND_EXPORT(name, Size, run)                                                                \
  extern "C" HALFTONE_API int HALFTONE_CALL name(unsigned char* src, unsigned char* dst, Size w, Size h,      \
                                                 unsigned int flags) {                                       \
    return halftone::RunBand(src, dst, w, h, flags, run);                                                    \
  }
