// Exports of the double-precision table-driven diffusion family.
#include "exports/instance.h"
#include "exports/methods.h"
#include "tablediffusion/double_diffusion.h"

namespace {

int Diffuse(halftone::DoubleMethod method, unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
            unsigned int flags) {
  return halftone::Exclusive([&] {
    return halftone::DoubleDiffusion(halftone::ProcessEngine(), method, src, dst, w, h, halftone::HalftoneFlags{flags});
  });
}

}  // namespace

extern "C" {

HALFTONE_API int HALFTONE_CALL suiruiskao(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kRunLength, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao2(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kRandomSplit, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao3(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kRandomSplitRowDump, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao4(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kRandomSplitPixelDump, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao5(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kQuarterColumnBias, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao6(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kToneWeightRow, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao7(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kHalfColumnBias, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao9(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kEveryColumnBias, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL suiruiskao10(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                              unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kDiagonal, src, dst, w, h, flags);
}
HALFTONE_API int HALFTONE_CALL CrisixOut_double(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                                  unsigned int flags) {
  return Diffuse(halftone::DoubleMethod::kModulated, src, dst, w, h, flags);
}

}  // extern "C"

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
