// Exports of the double-precision table-driven diffusion family.
#include "exports/instance.h"
#include "exports/methods.h"
#include "tablediffusion/double_diffusion.h"

using halftone::Entry;
using halftone::DoubleDiffusion;
using halftone::DoubleMethod;

HALFTONE_BAND_EXPORT(suiruiskao, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kRunLength))
HALFTONE_BAND_EXPORT(suiruiskao2, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kRandomSplit))
HALFTONE_BAND_EXPORT(suiruiskao3, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kRandomSplitRowDump))
HALFTONE_BAND_EXPORT(suiruiskao4, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kRandomSplitPixelDump))
HALFTONE_BAND_EXPORT(suiruiskao5, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kQuarterColumnBias))
HALFTONE_BAND_EXPORT(suiruiskao6, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kToneWeightRow))
HALFTONE_BAND_EXPORT(suiruiskao7, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kHalfColumnBias))
HALFTONE_BAND_EXPORT(suiruiskao9, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kEveryColumnBias))
HALFTONE_BAND_EXPORT(suiruiskao10, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kDiagonal))
HALFTONE_BAND_EXPORT(CrisixOut_double, unsigned int, Entry<DoubleDiffusion>(DoubleMethod::kModulated))

namespace halftone {

std::span<const MethodRow> DoubleDiffusionMethods() {
  static constexpr const char* kFamily = "table-driven diffusion, double precision";
  static const MethodRow rows[] = {
      Row("suiruiskao", kFamily, 1, suiruiskao,
          "bilevel, serpentine, whole error to one neighbour, ahead or down in random runs of 10-11 pixels"),
      Row("suiruiskao2", kFamily, 1, suiruiskao2, "bilevel, serpentine, 1/3 : 2/3 random split to next and below"),
      Row("suiruiskao3", kFamily, 1, suiruiskao3, "suiruiskao2's dots, formatting a per-row diagnostic dump"),
      Row("suiruiskao4", kFamily, 1, suiruiskao4, "suiruiskao2's dots, formatting a per-pixel diagnostic dump"),
      Row("suiruiskao5", kFamily, 1, suiruiskao5,
          "bilevel, serpentine, level bias every 4th column, row share 1/2 to 3/4 by level and column"),
      Row("suiruiskao6", kFamily, 1, suiruiskao6, "bilevel, serpentine, row share 1/2, 2/3 or 3/4 from the local tone"),
      Row("suiruiskao7", kFamily, 1, suiruiskao7,
          "bilevel, serpentine, level bias every 2nd column, row share by level"),
      Row("suiruiskao9", kFamily, 1, suiruiskao9, "bilevel, serpentine, strong level bias at every pixel, 2/3 ahead"),
      Row("suiruiskao10", kFamily, 1, suiruiskao10,
          "bilevel, serpentine, 2/3 ahead, 1/3 diagonally down in slanted bands"),
      Row("CrisixOut_double", kFamily, 1, CrisixOut_double,
          "bilevel, serpentine, halves ahead and down (per-level tiles unset: plain)"),
  };
  return rows;
}

}  // namespace halftone
