// Eight-level random-split diffusion: four bits a pixel, drop codes 0 (none) to 7 (largest).
// The scan is the grouped one (halves within the band, thirds into the next) without tone-curve
// terms; the two members differ only in the quantiser.
#include "diffusion/random_split.h"
#include "diffusion/random_split_bands.h"
#include "diffusion/random_split_decisions.h"

namespace halftone {

namespace {

using random_split::DecisionTableOf;
using random_split::Outcome;
using random_split::RunPassBand;
using random_split::ScanTraits;

constexpr unsigned kFourBits = 4;
constexpr int kLevels = 8;
constexpr unsigned kLargestCode = kLevels - 1;  // code c stands for level L(7 - c)

constexpr ScanTraits kEightLevelScan = {
    .draw_bits = 2,
    .curve_terms = false,
    .splits = random_split::kHalvesThenThirds,
    .inner_row_end = random_split::kTwoThirdsDownAfterIgnoredDraw,
    .ltr_last_end_reads_b = false,
};

// Index of the level chosen, by the band of the corrected value v among the midpoints (rows)
// and the band of the raw sample s among L1..L6 (columns). The output stays near the level
// nearest to v but leans toward the pixel's own input: L0 only where s <= L1, L7 (no drop) only
// where s > L6.
constexpr int kSampleBands = 7;
constexpr int kLevelChoice[kLevels][kSampleBands] = {
    {0, 1, 1, 1, 1, 1, 1},  // v <= M01
    {1, 1, 2, 2, 2, 2, 2},  // M01 < v <= M12
    {1, 2, 2, 3, 3, 3, 3},  // M12 < v <= M23
    {2, 2, 3, 3, 4, 6, 6},  // M23 < v <= M34; required: jumps to L6 for s > L5
    {3, 3, 3, 4, 4, 5, 6},  // M34 < v <= M45
    {4, 4, 4, 4, 5, 5, 6},  // M45 < v <= M56
    {5, 5, 5, 5, 5, 6, 6},  // M56 < v <= M67
    {6, 6, 6, 6, 6, 6, 7},  // v > M67
};

// Levels L0..L7 of the level values (expected ascending, not checked) and their floored
// midpoints. Bands are found by the first bound, from the lowest up, that the value does not
// exceed; a value equal to a bound belongs to the band below it.
struct LevelValuesPass {
  static constexpr unsigned kBits = kFourBits;
  static constexpr const ScanTraits& kScan = kEightLevelScan;
  int L[kLevels];
  int M[kLevels - 1];

  static LevelValuesPass From(const LevelValues& lv) {
    LevelValuesPass pass{};
    for (int i = 0; i < kLevels; ++i) pass.L[i] = lv.L[static_cast<std::size_t>(i)];
    for (int i = 0; i + 1 < kLevels; ++i) pass.M[i] = (pass.L[i] + pass.L[i + 1]) >> 1;
    return pass;
  }

  unsigned SampleBand(int s) const {
    unsigned sb = 0;
    while (sb < kSampleBands - 1 && s > L[sb + 1]) ++sb;
    return sb;
  }
  Outcome Decide(int v, int s) const {
    int vb = 0;
    while (vb < kLevels - 1 && v > M[vb]) ++vb;
    const int i = kLevelChoice[vb][SampleBand(s)];
    return {kLargestCode - static_cast<unsigned>(i), v - L[i]};
  }
#if HALFTONE_VECTOR_ROWS
  // Vector rows look each lane's decision up in the table below.
  static constexpr bool kVectorTable = true;
#endif
  // The same decision by table: the raw sample counts only through its band among L1..L6.
  random_split::ClampedDecisionTable<2> Fast() const {
    return DecisionTableOf<2>(*this, [&](int s) { return SampleBand(s); });
  }
};

// required: thresholds at multiples of 32 while the levels are spread evenly over 0..255, so
// the thresholds are not the midpoints of the levels.
constexpr int kFixedThresholds[kLevels - 1] = {32, 64, 96, 128, 160, 192, 224};
constexpr int kFixedLevels[kLevels] = {0, 36, 72, 109, 145, 182, 218, 255};

struct FixedLevelsPass : random_split::FixedLevelsDecision<kFixedThresholds, kFixedLevels, kLargestCode> {
  static constexpr unsigned kBits = kFourBits;
  static constexpr const ScanTraits& kScan = kEightLevelScan;
};

}  // namespace

int EightLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
               HalftoneFlags flags, EightLevelMethod method) {
  const Band band = Band::Make(src, dst, w, h, flags, kFourBits);
  switch (method) {
    case EightLevelMethod::kLevelValues: return RunPassBand(engine, band, LevelValuesPass::From(engine.levels));
    case EightLevelMethod::kFixedLevels: return RunPassBand(engine, band, FixedLevelsPass{});
  }
  return kErrOutOfContract;
}

}  // namespace halftone
