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
      Row("sdicxx78xy", kRotated, 1, sdicxx78xy,
          "bilevel, serpentine, error down or along by a 1-bit draw; turned a quarter, last row left unturned",
          0, HALFTONE_LAYOUT_TURNED),
      Row("ixndiwkc76y", kRotated, 1, ixndiwkc76y,
          "as sdicxx78xy, transposed instead of turned; last row left unturned", 0, HALFTONE_LAYOUT_TURNED),
      Row("ghskdjiekld", kRotated, 1, ghskdjiekld,
          "as sdicxx78xy with every row turned, the last one too", 0, HALFTONE_LAYOUT_TURNED),
      Row("tishduth29dmc", kRotated, 1, tishduth29dmc,
          "as ixndiwkc76y with every row transposed, the last one too", 0, HALFTONE_LAYOUT_TURNED),
      Row("nchsuw56xd", kRotated, 1, nchsuw56xd,
          "the same dots unturned, rows in reverse order", 0, HALFTONE_LAYOUT_ROWS),
      Row("fdxin324c", kRotated, 1, fdxin324c,
          "the same dots, forward rows in place, backward rows reversed with a height-keyed bit phase",
          0, HALFTONE_LAYOUT_ROWS),
      Row("kajdjigc23kdh", kFourWay, 1, kajdjigc23kdh,
          "bilevel, serpentine, whole error to one of four neighbours by a 2-bit draw; row for row",
          0, HALFTONE_LAYOUT_ROWS),
  };
  return rows;
}

}  // namespace halftone
