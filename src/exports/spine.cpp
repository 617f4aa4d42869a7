// Exports of the serpentine four-level diffusion.
#include "diffusion/four_level.h"
#include "exports/instance.h"
#include "exports/methods.h"

extern "C" {

HALFTONE_API int HALFTONE_CALL RoundFaxest(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return halftone::Exclusive([&] {
    return halftone::SerpentineFourLevel(halftone::ProcessEngine(), src, dst, static_cast<std::size_t>(w),
                                         static_cast<std::size_t>(h), halftone::HalftoneFlags{flags});
  });
}

HALFTONE_API int HALFTONE_CALL RoundFaxest__(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                               unsigned int flags) {
  return halftone::Exclusive([&] {
    return halftone::SerpentineFourLevel(halftone::ProcessEngine(), src, dst, w, h, halftone::HalftoneFlags{flags});
  });
}

}  // extern "C"

namespace halftone {

std::span<const MethodRow> SpineMethods() {
  static constexpr const char* kFamily = "random-split diffusion, four levels";
  static const MethodRow rows[] = {
      {"RoundFaxest", kFamily,
       "four levels, serpentine, 1/3 : 2/3 random split to next and below, raw-sample vetoes, curve terms", 2,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&RoundFaxest)},
      {"RoundFaxest__", kFamily, "RoundFaxest with unsigned sizes: the same dots", 2, HALFTONE_ENTRY_BAND_UNSIGNED,
       HALFTONE_LAYOUT_BAND, 0, Entry(&RoundFaxest__)},
  };
  return rows;
}

}  // namespace halftone
