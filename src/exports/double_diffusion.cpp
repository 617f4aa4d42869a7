// Exports of the double-precision table-driven diffusion family.
#include "exports/instance.h"
#include "exports/methods.h"
#include "tablediffusion/double_diffusion.h"

namespace halftone {
namespace {

auto Diffuse(DoubleMethod m) {
  return [m](Engine& e, const BandCall& b) { return DoubleDiffusion(e, m, b.src, b.dst, b.w, b.h, b.flags); };
}

}  // namespace
}  // namespace halftone

using halftone::Diffuse;
using halftone::DoubleMethod;

HALFTONE_BAND_EXPORT(suiruiskao, unsigned int, Diffuse(DoubleMethod::kRunLength))
HALFTONE_BAND_EXPORT(suiruiskao2, unsigned int, Diffuse(DoubleMethod::kRandomSplit))
HALFTONE_BAND_EXPORT(suiruiskao3, unsigned int, Diffuse(DoubleMethod::kRandomSplitRowDump))
HALFTONE_BAND_EXPORT(suiruiskao4, unsigned int, Diffuse(DoubleMethod::kRandomSplitPixelDump))
HALFTONE_BAND_EXPORT(suiruiskao5, unsigned int, Diffuse(DoubleMethod::kQuarterColumnBias))
HALFTONE_BAND_EXPORT(suiruiskao6, unsigned int, Diffuse(DoubleMethod::kToneWeightRow))
HALFTONE_BAND_EXPORT(suiruiskao7, unsigned int, Diffuse(DoubleMethod::kHalfColumnBias))
HALFTONE_BAND_EXPORT(suiruiskao9, unsigned int, Diffuse(DoubleMethod::kEveryColumnBias))
HALFTONE_BAND_EXPORT(suiruiskao10, unsigned int, Diffuse(DoubleMethod::kDiagonal))
HALFTONE_BAND_EXPORT(CrisixOut_double, unsigned int, Diffuse(DoubleMethod::kModulated))

namespace halftone {

std::span<const MethodRow> DoubleDiffusionMethods() {
  static constexpr const char* kFamily = "table-driven diffusion, double precision";
  static const MethodRow rows[] = {
      {"suiruiskao", kFamily,
       "bilevel, serpentine, whole error to one neighbour, ahead or down in random runs of 10-11 pixels", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao)},
      {"suiruiskao2", kFamily, "bilevel, serpentine, 1/3 : 2/3 random split to next and below", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao2)},
      {"suiruiskao3", kFamily, "suiruiskao2's dots, formatting a per-row diagnostic dump", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao3)},
      {"suiruiskao4", kFamily, "suiruiskao2's dots, formatting a per-pixel diagnostic dump", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao4)},
      {"suiruiskao5", kFamily,
       "bilevel, serpentine, level bias every 4th column, row share 1/2 to 3/4 by level and column", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao5)},
      {"suiruiskao6", kFamily, "bilevel, serpentine, row share 1/2, 2/3 or 3/4 from the local tone", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao6)},
      {"suiruiskao7", kFamily, "bilevel, serpentine, level bias every 2nd column, row share by level", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao7)},
      {"suiruiskao9", kFamily, "bilevel, serpentine, strong level bias at every pixel, 2/3 ahead", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao9)},
      {"suiruiskao10", kFamily, "bilevel, serpentine, 2/3 ahead, 1/3 diagonally down in slanted bands", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao10)},
      {"CrisixOut_double", kFamily, "bilevel, serpentine, halves ahead and down (per-level tiles unset: plain)", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&CrisixOut_double)},
  };
  return rows;
}

}  // namespace halftone
