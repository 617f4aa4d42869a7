// Exports of the serpentine four-level diffusion.
#include "diffusion/four_level.h"
#include "exports/instance.h"
#include "exports/methods.h"

using halftone::Entry;
using halftone::SerpentineFourLevel;

HALFTONE_BAND_EXPORT(RoundFaxest, int, Entry<SerpentineFourLevel>())
HALFTONE_BAND_EXPORT(RoundFaxest__, unsigned int, Entry<SerpentineFourLevel>())

namespace halftone {

std::span<const MethodRow> SpineMethods() {
  static constexpr const char* kFamily = "random-split diffusion, four levels";
  static const MethodRow rows[] = {
      Row("RoundFaxest", kFamily, 2, RoundFaxest,
          "four levels, serpentine, 1/3 : 2/3 random split to next and below, raw-sample vetoes, curve terms"),
      Row("RoundFaxest__", kFamily, 2, RoundFaxest__, "RoundFaxest with unsigned sizes: the same dots"),
  };
  return rows;
}

}  // namespace halftone
