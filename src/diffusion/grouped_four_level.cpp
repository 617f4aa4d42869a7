// Grouped four-level diffusion and its single-dot-size relatives. A two-bit draw sends a
// pixel's whole error along the row, whole down, or half to each; the band's last row splits in
// thirds into the band-carry row whatever its direction, so every band hands error to the next.
// The members differ only in the decision: four levels from the level values with raw-sample
// vetoes, four fixed levels, or one drop size against a fixed threshold.
#include <optional>

#include "diffusion/four_level.h"
#include "diffusion/random_split.h"
#include "diffusion/random_split_bands.h"
#include "frame/job.h"

namespace halftone {

namespace {

using random_split::kHalvesThenThirds;
using random_split::kTwoThirdsDownAfterIgnoredDraw;
using random_split::Outcome;
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
constexpr ScanTraits kSingleDotScan = {
    .draw_bits = 2,
    .curve_terms = true,
    .splits = kHalvesThenThirds,
    .inner_row_end = kTwoThirdsDownAfterIgnoredDraw,
    .ltr_last_end_reads_b = true,
};

constexpr unsigned kTwoBits = 2;

// Levels L0..L3 from the level values; the raw sample vetoes levels on the wrong side of it.
struct LevelValuesPass {
  static constexpr unsigned kBits = kTwoBits;
  static constexpr unsigned kLockstep = 2;  // faster than four lanes of the table and curves
  static constexpr const ScanTraits& kScan = kGroupedScan;
  FourLevels lv;
  Outcome Decide(int v, int s) const {
    const unsigned code = DecideFourLevel(lv, v, s);
    return {code, v - lv.Level(code)};
  }
  // The same decision by table: the raw sample counts only through its sides of L1 and L2.
  random_split::ClampedDecisionTable<2> Fast() const {
    random_split::ClampedDecisionTable<2> t;
    t.Build([&](int s) { return unsigned{s <= lv.L1} | unsigned{s <= lv.L2} << 1; },
            [&](int v, int s) { return Decide(v, s); });
    return t;
  }
#if HALFTONE_VECTOR_ROWS
  // With the levels in order (L0 <= L1 <= L2 <= L3), the vetoes leave each sample one threshold
  // between two neighbouring levels: L0/L1 at M01 where r <= L1, L2/L3 at M23 where r > L2, and
  // L1/L2 at M12 between. Levels out of order keep the table.
  struct VectorDecide {
    __m128i l1_above, l2_above;           // L1 + 1 and L2 + 1: r <= L as L + 1 > r
    __m128i t_none, t_step_b, t_step_a;   // the threshold: M23, then M12 - M23, M01 - M12
    __m128i lo_none, lo_step_b, lo_step_a;  // minus the lower level, by the same steps
    __m128i d_none, d_step_b, d_step_a;   // the step from the lower level to the upper one
    struct Sample {
      __m128i threshold, minus_lower, step, lower_code;
    };
    HALFTONE_FORCE_INLINE Sample Prepare(__m128i r) const {
      using namespace random_split::vec;
      const __m128i a = _mm_cmpgt_epi16(l1_above, r), b = _mm_cmpgt_epi16(l2_above, r);  // a implies b
      const auto by_class = [&](__m128i none, __m128i step_b, __m128i step_a) HALFTONE_FORCE_INLINE {
        return _mm_add_epi16(_mm_add_epi16(none, _mm_and_si128(b, step_b)), _mm_and_si128(a, step_a));
      };
      // Code of the lower level: L2 (1), L1 (2) where r <= L2, L0 (3) where r <= L1.
      return {by_class(t_none, t_step_b, t_step_a), by_class(lo_none, lo_step_b, lo_step_a),
              by_class(d_none, d_step_b, d_step_a), _mm_sub_epi16(_mm_sub_epi16(Splat(kCodeL2), a), b)};
    }
    // The error v - level + term, and the code (the upper level's is one less).
    HALFTONE_FORCE_INLINE __m128i Error(__m128i v, const Sample& k, __m128i term, __m128i& code) const {
      const __m128i upper = _mm_cmpgt_epi16(v, k.threshold);
      code = _mm_add_epi16(k.lower_code, upper);
      return _mm_sub_epi16(_mm_add_epi16(v, _mm_add_epi16(term, k.minus_lower)), _mm_and_si128(upper, k.step));
    }
  };
  std::optional<VectorDecide> Vector() const {
    if (!(lv.L0 <= lv.L1 && lv.L1 <= lv.L2 && lv.L2 <= lv.L3)) return std::nullopt;
    using random_split::vec::Splat;
    const int t_none = lv.M23, t_b = lv.M12, t_a = lv.M01;
    const int lo_none = lv.L2, lo_b = lv.L1, lo_a = lv.L0;
    const int d_none = lv.L3 - lv.L2, d_b = lv.L2 - lv.L1, d_a = lv.L1 - lv.L0;
    return VectorDecide{Splat(lv.L1 + 1), Splat(lv.L2 + 1),
                        Splat(t_none),    Splat(t_b - t_none),  Splat(t_a - t_b),
                        Splat(-lo_none),  Splat(lo_none - lo_b), Splat(lo_b - lo_a),
                        Splat(d_none),    Splat(d_b - d_none),  Splat(d_a - d_b)};
  }
#endif
};

// required: fixed thresholds that are not the midpoints of the fixed levels, so mid-tones lean
// towards the larger drop; the raw sample plays no part.
constexpr int kFixedThresholds[] = {64, 128, 192};
constexpr int kFixedLevels[] = {0, 85, 170, 255};  // level of code 3, 2, 1, 0
static_assert(kFixedThresholds[0] < kFixedThresholds[1] && kFixedThresholds[1] < kFixedThresholds[2]);

struct FixedLevelsPass {
  static constexpr unsigned kBits = kTwoBits;
  static constexpr unsigned kLockstep = 2;  // measured faster than four lanes
  static constexpr const ScanTraits& kScan = kGroupedScan;
  Outcome Decide(int v, int) const {
    unsigned i = 0;
    while (i < 3 && v > kFixedThresholds[i]) ++i;
    return {kCodeL0 - i, v - kFixedLevels[i]};
  }
  // The same decision by table (one sample class), which also hands over the error's half.
  random_split::ClampedDecisionTable<2> Fast() const {
    random_split::ClampedDecisionTable<2> t;
    t.Build([](int) { return 0u; }, [&](int v, int s) { return Decide(v, s); });
    return t;
  }
#if HALFTONE_VECTOR_ROWS
  using VectorDecide = random_split::FixedStepsDecide<kFixedThresholds, kFixedLevels, kCodeL0>;
  std::optional<VectorDecide> Vector() const { return VectorDecide{}; }
#endif
};

// One drop size: a dot (level 0) at or below the threshold, paper (255) above it.
constexpr int kSingleDotThreshold = 128;
constexpr int kPaper = 255;

template <unsigned kDotCode>
struct SingleDotPass {
  static constexpr unsigned kBits = kTwoBits;
  static constexpr const ScanTraits& kScan = kSingleDotScan;
  Outcome Decide(int v, int) const {
    if (v <= kSingleDotThreshold) return {kDotCode, v};
    return {0, v - kPaper};
  }
  // The same decision without a branch on v (a 16-bit value: the difference cannot overflow).
  struct FastDecide {
    Outcome Decide(int v, int) const {
      const int above = (kSingleDotThreshold - v) >> 31;  // -1 when v > the threshold, else 0
      return {kDotCode & ~static_cast<unsigned>(above), v - (kPaper & above)};
    }
  };
  FastDecide Fast() const { return {}; }
#if HALFTONE_VECTOR_ROWS
  struct VectorDecide {
    struct Sample {};
    HALFTONE_FORCE_INLINE Sample Prepare(__m128i) const { return {}; }
    HALFTONE_FORCE_INLINE __m128i Error(__m128i v, Sample, __m128i term, __m128i& code) const {
      using random_split::vec::Splat;
      const __m128i above = _mm_cmpgt_epi16(v, Splat(kSingleDotThreshold));
      code = _mm_andnot_si128(above, Splat(kDotCode));
      return _mm_sub_epi16(_mm_add_epi16(v, term), _mm_and_si128(above, Splat(kPaper)));
    }
  };
  std::optional<VectorDecide> Vector() const { return VectorDecide{}; }
#endif
};

template <class Pass>
int RunGrouped(Engine& engine, const Band& band, const Pass& pass) {
  const JobSpec spec{.bits = kTwoBits, .reseed = Reseed::kEveryCall, .needs_pixels = true, .max_planes = 255};
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] {
    random_split::ScanBandPlanes(pass, engine, band);
  });
}

}  // namespace

int GroupedFourLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                     HalftoneFlags flags, GroupedMethod method) {
  const Band band = Band::Make(src, dst, w, h, flags, kTwoBits);
  switch (method) {
    case GroupedMethod::kLevelValues: return RunGrouped(engine, band, LevelValuesPass{FourLevels::From(engine.levels)});
    case GroupedMethod::kFixedLevels: return RunGrouped(engine, band, FixedLevelsPass{});
    case GroupedMethod::kSmallDotOnly: return RunGrouped(engine, band, SingleDotPass<kCodeL2>{});
    case GroupedMethod::kMediumDotOnly: return RunGrouped(engine, band, SingleDotPass<kCodeL1>{});
    case GroupedMethod::kLargeDotOnly: return RunGrouped(engine, band, SingleDotPass<kCodeL0>{});
  }
  return kErrOutOfContract;
}

}  // namespace halftone
