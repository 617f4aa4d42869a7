// Exports of the rotated and four-way bilevel diffusion with level lookup. These take one
// plane and no flags word; every call is a whole job, seeded from the library clock.
#include "exports/instance.h"
#include "exports/methods.h"
#include "rotated/crt_rand.h"
#include "rotated/lookup_diffusion.h"

namespace halftone {
namespace {

LookupPlane Plane(unsigned char* src, unsigned char* dst, int w, int h, int* lookup) {
  return LookupPlane{src, dst, w, h, lookup};
}

int RunRotated(RotatedMember member, unsigned char* src, unsigned char* dst, int w, int h, int* lookup) {
  return Guarded([&] {
    return RotatedLookupDiffusion(member, Plane(src, dst, w, h, lookup), ThreadCrtRand(),
                                  ProcessEngine().clock.Seconds());
  });
}

}  // namespace
}  // namespace halftone

extern "C" {

// The first three take the output pointer by reference; it is written through, never replaced.
HALFTONE_API int HALFTONE_CALL sdicxx78xy(unsigned char* src, unsigned char*& dst, int w, int h, int* lookup, unsigned char*) {
  return halftone::RunRotated(halftone::RotatedMember::kTurnedLastRowFlat, src, dst, w, h, lookup);
}

HALFTONE_API int HALFTONE_CALL ixndiwkc76y(unsigned char* src, unsigned char*& dst, int w, int h, int* lookup, unsigned char*) {
  return halftone::RunRotated(halftone::RotatedMember::kTransposedLastRowFlat, src, dst, w, h, lookup);
}

HALFTONE_API int HALFTONE_CALL ghskdjiekld(unsigned char* src, unsigned char*& dst, int w, int h, int* lookup, unsigned char*) {
  return halftone::RunRotated(halftone::RotatedMember::kTurned, src, dst, w, h, lookup);
}

HALFTONE_API int HALFTONE_CALL tishduth29dmc(unsigned char* src, unsigned char* dst, int w, int h, int* lookup, unsigned char*) {
  return halftone::RunRotated(halftone::RotatedMember::kTransposed, src, dst, w, h, lookup);
}

HALFTONE_API int HALFTONE_CALL nchsuw56xd(unsigned char* src, unsigned char* dst, int w, int h, int* lookup, unsigned char*) {
  return halftone::RunRotated(halftone::RotatedMember::kRowsReversed, src, dst, w, h, lookup);
}

HALFTONE_API int HALFTONE_CALL fdxin324c(unsigned char* src, unsigned char* dst, int w, int h, int* lookup, unsigned char*) {
  return halftone::RunRotated(halftone::RotatedMember::kMixed, src, dst, w, h, lookup);
}

HALFTONE_API int HALFTONE_CALL kajdjigc23kdh(unsigned char* src, unsigned char* dst, int w, int h, int* lookup, unsigned char*) {
  return halftone::Guarded([&] {
    return halftone::FourWayLookupDiffusion(halftone::Plane(src, dst, w, h, lookup), halftone::ThreadCrtRand(),
                                            halftone::ProcessEngine().clock.Seconds());
  });
}

// Exported so that hosts resolving every name of the family load; they write nothing.
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
