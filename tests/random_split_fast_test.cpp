// The pieces of the fast random-split scans: the split forms and the decision tables over every
// corrected value and sample.
// Whole jobs are compared with the reference in tier_test.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "diffusion/four_level.h"
#include "diffusion/random_split.h"
#include "diffusion/random_split_fast.h"
#include "diffusion/random_split_vector.h"
#include "frame/dispatch.h"
#include "frame/engine.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

TEST(RandomSplitFast, SplitFormsGiveTheReferenceShares) {
  // Every share kind through a one-column table of each pair, against ShareOf.
    using random_split::Split;
  constexpr Split kSplits[4] = {{fraction::kThird, fraction::kRestAfterThird},
                                {fraction::kAll, fraction::kNone},
                                {fraction::kThird, fraction::kRestAfterThird},
                                {fraction::kNone, fraction::kAll}};
  constexpr random_split::RowForm kForm = random_split::FormOf(kSplits, 4);
  static_assert(kForm.along.kind == random_split::ColumnKind::kLinear);
  static_assert(kForm.below.kind == random_split::ColumnKind::kComplement);
  for (int e = -32768; e <= 32767; ++e)
    for (unsigned c = 0; c < 4; ++c) {
      const int along = halftone::DivTrunc3(kForm.along.num[c] * e);
      ASSERT_EQ(along, ShareOf(kSplits[c].along, e));
      ASSERT_EQ(e - along, ShareOf(kSplits[c].below, e));
    }
}

// A pass of the grouped kind: two-bit draws, inner rows sending all, half or none of e along.
struct HalvesPass {
  static constexpr random_split::ScanTraits kScan = {
      .draw_bits = 2,
      .curve_terms = true,
      .splits = random_split::kHalvesThenThirds,
      .inner_row_end = random_split::kTwoThirdsDownAfterIgnoredDraw,
      .ltr_last_end_reads_b = false,
  };
};

TEST(RandomSplitFast, TableRowsCarryTheReferenceShareAlong) {
  // Rows reading a window table take the share they carry along either from the entry's field
  // (masked) or, with a curve term, as a high word plus a step: both must be the split's share.
  using Splits = random_split::FastSplit<HalvesPass, random_split::RowKind::kInnerLtr>;
  static_assert(Splits::kTakesHalf);
  constexpr Splits::TableAlong kAlong = Splits::MakeTableAlong();
  for (int e = -65536; e <= 65535; ++e) {
    const std::int16_t entry[random_split::kEntryFields] = {static_cast<std::int16_t>(e),
                                                            static_cast<std::int16_t>(halftone::DivTrunc2(e)), 0, 0};
    for (unsigned c = 0; c < Splits::kCodes; ++c) {
      const int want = ShareOf(random_split::kHalvesThenThirds.inner_ltr[c].along, e);
      const std::int64_t formed = ((std::int64_t{e} * kAlong.mul[c]) >> 32) + (std::int64_t{e < 0} & kAlong.step[c]);
      ASSERT_EQ(formed, want) << "e " << e << " code " << c;
      if (e >= -32768 && e <= 32767) {
        ASSERT_EQ(entry[kAlong.field[c]] & kAlong.mask[c], want) << "e " << e << " code " << c;
      }
    }
  }
}

TEST(RandomSplitFast, FourLevelTableMatchesTheDecisionEverywhere) {
  std::mt19937 gen(7);
  for (int round = 0; round < 6; ++round) {
    LevelValues values;
    for (auto& l : values.L) l = static_cast<std::uint8_t>(gen());
    if (round == 0) values.L = {255, 170, 85, 0, 0, 0, 0, 0, 0};
    const FourLevels lv = FourLevels::From(values);
    // Halves (the grouped scans) and thirds (the spine): the same decisions, each with its part.
    auto halves = std::make_unique<random_split::ClampedDecisionTable<2>>();
    auto thirds = std::make_unique<random_split::ClampedDecisionTable<3>>();
    const auto classify = [&](int r) { return unsigned{r <= lv.L1} | unsigned{r <= lv.L2} << 1; };
    const auto decide = [&](int v, int r) {
      const unsigned code = DecideFourLevel(lv, v, r);
      return random_split::Outcome{code, v - lv.Level(code)};
    };
    halves->Build(classify, decide);
    thirds->Build(classify, decide);
    for (int v = -32768; v <= 32767; ++v)
      for (int r = 0; r < 256; ++r) {
        const unsigned code = DecideFourLevel(lv, v, r);
        const int err = Store16(v - lv.Level(code));
        const random_split::PartOutcome h = halves->DecideWithPart(v, r), t = thirds->DecideWithPart(v, r);
        ASSERT_EQ(h.code, code) << "round " << round << " v " << v << " r " << r;
        ASSERT_EQ(Store16(h.err), err);
        ASSERT_EQ(h.part, halftone::DivTrunc2(err));
        ASSERT_EQ(t.code, code);
        ASSERT_EQ(Store16(t.err), err);
        ASSERT_EQ(t.part, halftone::DivTrunc3(err));
        if (random_split::ClampedDecisionTable<3>::InWindow(v)) {
          // The fields a scan reads by column, the rest among them.
          using T = random_split::ClampedDecisionTable<3>;
          const std::ptrdiff_t at = std::ptrdiff_t{v} * T::kFields;
          ASSERT_EQ(thirds->Column(r, T::kErr)[at], t.err);
          ASSERT_EQ(thirds->Column(r, T::kCode)[at], static_cast<std::int16_t>(code));
          ASSERT_EQ(thirds->Column(r, T::kPart)[at], t.part);
          ASSERT_EQ(thirds->Column(r, T::kRest)[at], t.err - t.part);
          ASSERT_EQ(halves->Column(r, T::kRest)[at], h.err - h.part);
        }
      }
  }
}

}  // namespace
}  // namespace halftone
