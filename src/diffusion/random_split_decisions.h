// Decisions shared by random-split passes of several routines: one drop or none (the bilevel
// family and the single-dot-size routines), and fixed levels (grouped and eight-level).
#pragma once

#include <iterator>
#include <optional>

#include "diffusion/random_split_vector.h"

namespace halftone::random_split {

// Lightness sense: 255 is paper and a dot is set at or below the threshold. Ink sense: 255 is
// full coverage and a dot is set above it. The error is the same in both senses.
enum class Sense { kLightness, kInk };
// White guard: a sample of 255 never gets a dot. Full guard: a sample of 255 always gets one.
// A guard changes the dot, never the error.
enum class Guard { kNone, kWhite, kFull };

inline constexpr int kOneDropThreshold = 128;
inline constexpr int kFullSample = 255;

// A dot writes kDotCode; the error is the value less 0, or less 255 above the threshold.
template <Sense kSense, Guard kGuard, unsigned kDotCode>
struct OneDropDecision {
  static_assert(kGuard == Guard::kNone || kDotCode == 1, "only bilevel members guard a sample");
  // The error is the value less 0 or 255 by the value alone (a guard changes only the dot), so
  // inner rows may read their along share from a table over the value where no curve term falls.
  static constexpr bool kAlongShareRows = true;

  Outcome Decide(int v, int s) const {
    const bool above = v > kOneDropThreshold;
    bool dot = kSense == Sense::kLightness ? !above : above;
    if (kGuard == Guard::kWhite && s == kFullSample) dot = false;
    if (kGuard == Guard::kFull && s == kFullSample) dot = true;
    return {dot ? kDotCode : 0u, above ? v - kFullSample : v};
  }

  // The same decision without a branch on v: `above` as a mask (v is a 16-bit value, so the
  // difference cannot overflow).
  struct FastDecide {
    Outcome Decide(int v, int s) const {
      const int above = (kOneDropThreshold - v) >> 31;  // -1 when v > the threshold, else 0
      unsigned dot = kSense == Sense::kLightness ? static_cast<unsigned>(above + 1) : static_cast<unsigned>(-above);
      dot *= kDotCode;
      if constexpr (kGuard == Guard::kWhite) dot &= unsigned{s != kFullSample};
      if constexpr (kGuard == Guard::kFull) dot |= unsigned{s == kFullSample};
      return {dot, v - (kFullSample & above)};
    }
  };
  FastDecide Fast() const { return {}; }

#if HALFTONE_VECTOR_ROWS
  // The same decision on 16-bit lanes; a guard reads the sample only through s == 255.
  struct VectorDecide {
    struct Sample {
      vec::V16 full;
    };
    HALFTONE_FORCE_INLINE Sample Prepare(vec::V16 s) const { return {vec::Equal(s, vec::Splat(kFullSample))}; }
    HALFTONE_FORCE_INLINE vec::V16 Error(vec::V16 v, Sample k, vec::V16 term, vec::V16& code) const {
      using vec::Splat;
      const vec::V16 above = vec::Greater(v, Splat(kOneDropThreshold));
      vec::V16 dot = (kSense == Sense::kLightness ? ~above : above) & Splat(kDotCode);
      if constexpr (kGuard == Guard::kWhite) dot &= ~k.full;
      if constexpr (kGuard == Guard::kFull) dot |= k.full & Splat(kDotCode);
      code = dot;
      return v + term - (above & Splat(kFullSample));
    }
  };
  std::optional<VectorDecide> Vector() const { return VectorDecide{}; }
#endif
};

// Fixed ascending thresholds on the corrected value alone: after i thresholds passed, level
// kLevels[i] and code kTopCode - i. The raw sample plays no part.
template <const auto& kThresholds, const auto& kLevels, unsigned kTopCode>
struct FixedLevelsDecision {
  Outcome Decide(int v, int) const {
    unsigned i = 0;
    while (i < std::size(kThresholds) && v > kThresholds[i]) ++i;
    return {kTopCode - i, v - kLevels[i]};
  }
  // The same decision by table (one sample class), which also hands over the error's half.
  ClampedDecisionTable<2> Fast() const { return DecisionTableOf<2>(*this, [](int) { return 0u; }); }
#if HALFTONE_VECTOR_ROWS
  using VectorDecide = FixedStepsDecide<kThresholds, kLevels, kTopCode>;
  std::optional<VectorDecide> Vector() const { return VectorDecide{}; }
#endif
};

}  // namespace halftone::random_split
