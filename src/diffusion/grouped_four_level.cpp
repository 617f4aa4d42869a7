// Grouped four-level diffusion and its single-dot-size relatives. A two-bit draw sends a
// pixel's whole error along the row, whole down, or half to each; the band's last row splits in
// thirds into the band-carry row whatever its direction, so every band hands error to the next.
// The members differ only in the decision: four levels from the level values with raw-sample
// vetoes, four fixed levels, or one drop size against a fixed threshold.
#include "diffusion/four_level.h"
#include "diffusion/four_level_vector.h"
#include "diffusion/random_split.h"
#include "diffusion/random_split_bands.h"
#include "diffusion/random_split_decisions.h"

namespace halftone {

namespace {

using random_split::kHalvesThenThirds;
using random_split::kTwoThirdsDownAfterIgnoredDraw;
using random_split::RunPassBand;
using random_split::ScanTraits;

constexpr ScanTraits kGroupedScan = {
    .draw_bits = 2,
    .curve_terms = true,
    .splits = kHalvesThenThirds,
    .inner_row_end = kTwoThirdsDownAfterIgnoredDraw,
    .ltr_last_end_reads_b = false,
};

// required: identical to the grouped scan except that the pixel ending a left-to-right last
// row is decided on working row B.
constexpr ScanTraits kSingleDotScan = [] {
  ScanTraits scan = kGroupedScan;
  scan.ltr_last_end_reads_b = true;
  return scan;
}();

constexpr unsigned kTwoBits = 2;

// Levels L0..L3 from the level values; the raw sample vetoes levels on the wrong side of it.
struct LevelValuesPass : FourLevelDecision<2> {
  static constexpr unsigned kBits = kTwoBits;
  static constexpr unsigned kLockstep = 2;  // faster than four lanes of the table and curves
  static constexpr const ScanTraits& kScan = kGroupedScan;
};

// required: fixed thresholds that are not the midpoints of the fixed levels, so mid-tones lean
// towards the larger drop; the raw sample plays no part.
constexpr int kFixedThresholds[] = {64, 128, 192};
constexpr int kFixedLevels[] = {0, 85, 170, 255};  // level of code 3, 2, 1, 0
static_assert(kFixedThresholds[0] < kFixedThresholds[1] && kFixedThresholds[1] < kFixedThresholds[2]);

struct FixedLevelsPass : random_split::FixedLevelsDecision<kFixedThresholds, kFixedLevels, kCodeL0> {
  static constexpr unsigned kBits = kTwoBits;
  static constexpr unsigned kLockstep = 2;  // measured faster than four lanes
  static constexpr const ScanTraits& kScan = kGroupedScan;
};

// One drop size: a dot (level 0) at or below the threshold, paper (255) above it.
template <unsigned kDotCode>
struct SingleDotPass
    : random_split::OneDropDecision<random_split::Sense::kLightness, random_split::Guard::kNone, kDotCode> {
  static constexpr unsigned kBits = kTwoBits;
  static constexpr const ScanTraits& kScan = kSingleDotScan;
};

}  // namespace

int GroupedFourLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                     HalftoneFlags flags, GroupedMethod method) {
  const Band band = Band::Make(src, dst, w, h, flags, kTwoBits);
  switch (method) {
    case GroupedMethod::kLevelValues:
      return RunPassBand(engine, band, LevelValuesPass{{FourLevels::From(engine.levels)}});
    case GroupedMethod::kFixedLevels: return RunPassBand(engine, band, FixedLevelsPass{});
    case GroupedMethod::kSmallDotOnly: return RunPassBand(engine, band, SingleDotPass<kCodeL2>{});
    case GroupedMethod::kMediumDotOnly: return RunPassBand(engine, band, SingleDotPass<kCodeL1>{});
    case GroupedMethod::kLargeDotOnly: return RunPassBand(engine, band, SingleDotPass<kCodeL0>{});
  }
  return kErrOutOfContract;
}

}  // namespace halftone
