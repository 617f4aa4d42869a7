#include "tablediffusion/double_diffusion.h"

#include "tablediffusion/double_serpentine.h"

namespace halftone {

int DoubleDiffusion(Engine& engine, DoubleMethod method, const std::uint8_t* src, std::uint8_t* dst,
                    std::size_t w, std::size_t h, HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  switch (method) {
    case DoubleMethod::kRunLength: return RunLength(engine, band);
    case DoubleMethod::kRandomSplit:
    case DoubleMethod::kRandomSplitRowDump:
    case DoubleMethod::kRandomSplitPixelDump: return RandomSplit(engine, band, method);
    case DoubleMethod::kQuarterColumnBias: return QuarterColumnBias(engine, band);
    case DoubleMethod::kToneWeightRow: return ToneWeightRow(engine, band);
    case DoubleMethod::kHalfColumnBias: return HalfColumnBias(engine, band);
    case DoubleMethod::kEveryColumnBias: return EveryColumnBias(engine, band);
    case DoubleMethod::kDiagonal: return Diagonal(engine, band);
    case DoubleMethod::kModulated: return Modulated(engine, band);
  }
  return kErrOutOfContract;
}

}  // namespace halftone
