// Exports of the rotated and four-way bilevel diffusion with level lookup. These take one
// plane and no flags word; every call is a whole job, seeded from the library clock.
#include "exports/instance.h"
#include "exports/methods.h"
#include "rotated/crt_rand.h"
#include "rotated/lookup_diffusion.h"

namespace halftone {
namespace {

// The body of every lookup export: run(plane, rng, seed) with this thread's rand() and the clock.
template <class Run>
int RunLookup(unsigned char* src, unsigned char* dst, int w, int h, int* lookup, Run run) {
  return Guarded([&] {
    return run(LookupPlane{src, dst, w, h, lookup}, ThreadCrtRand(), ProcessEngine().clock.Seconds());
  });
}

auto Rotated(RotatedMember m) {
  return [m](const LookupPlane& p, CrtRand& rng, std::uint32_t s) { return RotatedLookupDiffusion(m, p, rng, s); };
}

}  // namespace
}  // namespace halftone

using halftone::FourWayLookupDiffusion;
using halftone::Rotated;
using halftone::RotatedMember;

// Defines the lookup export `name`, its output pointer of type Dst, running `run` through RunLookup.
#define HALFTONE_LOOKUP_EXPORT(name, Dst, run)                                                                \
  extern "C" HALFTONE_API int HALFTONE_CALL name(unsigned char* src, Dst dst, int w, int h, int* lookup,      \
                                                 unsigned char*) {                                            \
    return halftone::RunLookup(src, dst, w, h, lookup, run);                                                  \
  }

// The first three take the output pointer by reference; it is written through, never replaced.
HALFTONE_LOOKUP_EXPORT(sdicxx78xy, unsigned char*&, Rotated(RotatedMember::kTurnedLastRowFlat))
HALFTONE_LOOKUP_EXPORT(ixndiwkc76y, unsigned char*&, Rotated(RotatedMember::kTransposedLastRowFlat))
HALFTONE_LOOKUP_EXPORT(ghskdjiekld, unsigned char*&, Rotated(RotatedMember::kTurned))
HALFTONE_LOOKUP_EXPORT(tishduth29dmc, unsigned char*, Rotated(RotatedMember::kTransposed))
HALFTONE_LOOKUP_EXPORT(nchsuw56xd, unsigned char*, Rotated(RotatedMember::kRowsReversed))
HALFTONE_LOOKUP_EXPORT(fdxin324c, unsigned char*, Rotated(RotatedMember::kMixed))
HALFTONE_LOOKUP_EXPORT(kajdjigc23kdh, unsigned char*, FourWayLookupDiffusion)

// Exported so that hosts resolving every name of the family load; they write nothing.
extern "C" {
HALFTONE_API int HALFTONE_CALL xinskdn34skx(unsigned char*, unsigned char*, int, int, int*, unsigned char*) {
  return halftone::kErrNotProvided;
}
HALFTONE_API int HALFTONE_CALL shdeiznc45kdi(unsigned char*, unsigned char*, int, int, int*, unsigned char*) {
  return halftone::kErrNotProvided;
}
}  // extern "C"

namespace halftone {

std::span<const MethodRow> RotatedMethods() {
  static constexpr const char* kRotated = "rotated diffusion, level lookup";
  static constexpr const char* kFourWay = "four-way diffusion, level lookup";
  static const MethodRow rows[] = {
      {"sdicxx78xy", kRotated,
       "bilevel, serpentine, error down or along by a 1-bit draw; turned a quarter, last row left unturned", 1,
       HALFTONE_ENTRY_LOOKUP_REF, HALFTONE_LAYOUT_TURNED, 0, Entry(&sdicxx78xy)},
      {"ixndiwkc76y", kRotated, "as sdicxx78xy, transposed instead of turned; last row left unturned", 1,
       HALFTONE_ENTRY_LOOKUP_REF, HALFTONE_LAYOUT_TURNED, 0, Entry(&ixndiwkc76y)},
      {"ghskdjiekld", kRotated, "as sdicxx78xy with every row turned, the last one too", 1,
       HALFTONE_ENTRY_LOOKUP_REF, HALFTONE_LAYOUT_TURNED, 0, Entry(&ghskdjiekld)},
      {"tishduth29dmc", kRotated, "as ixndiwkc76y with every row transposed, the last one too", 1,
       HALFTONE_ENTRY_LOOKUP, HALFTONE_LAYOUT_TURNED, 0, Entry(&tishduth29dmc)},
      {"nchsuw56xd", kRotated, "the same dots unturned, rows in reverse order", 1, HALFTONE_ENTRY_LOOKUP,
       HALFTONE_LAYOUT_ROWS, 0, Entry(&nchsuw56xd)},
      {"fdxin324c", kRotated,
       "the same dots, forward rows in place, backward rows reversed with a height-keyed bit phase", 1,
       HALFTONE_ENTRY_LOOKUP, HALFTONE_LAYOUT_ROWS, 0, Entry(&fdxin324c)},
      {"kajdjigc23kdh", kFourWay,
       "bilevel, serpentine, whole error to one of four neighbours by a 2-bit draw; row for row", 1,
       HALFTONE_ENTRY_LOOKUP, HALFTONE_LAYOUT_ROWS, 0, Entry(&kajdjigc23kdh)},
  };
  return rows;
}

}  // namespace halftone
