// The fast random-split scans against their readable reference: the division helpers over every
// value a share is formed from, the decision tables over every corrected value and sample, and
// whole jobs (dots, carry and working rows after every band) on awkward sizes, plane counts,
// level sets and curves, on one thread and two.
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
#include "random_split_jobs.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

TEST(RandomSplitFast, DivisionsTruncateTowardZeroForEveryShareOperand) {
  // A share is formed from a 16-bit error times at most 4.
  for (int x = -4 * 32768; x <= 4 * 32767; ++x) {
    ASSERT_EQ(random_split::DivTrunc2(x), x / 2) << x;
    ASSERT_EQ(random_split::DivTrunc3(x), x / 3) << x;
    ASSERT_EQ(random_split::DivTrunc4(x), x / 4) << x;
    // Either side of a split into thirds as a product: high word and step.
    ASSERT_EQ(random_split::ShareByProduct(random_split::ProductOfShare(1, 3, false), x), x / 3) << x;
    ASSERT_EQ(random_split::ShareByProduct(random_split::ProductOfShare(1, 3, true), x), x - x / 3) << x;
  }
}

#if HALFTONE_VECTOR_ROWS
TEST(RandomSplitFast, VectorPartsTruncateTowardZeroForEvery16BitError) {
  using random_split::Share;
  using random_split::ShareOf;
  for (int e0 = -32768; e0 <= 32767; e0 += 8) {
    alignas(16) std::int16_t in[8], half[8], third[8], two[8], quarter[8], three[8];
    for (int k = 0; k < 8; ++k) in[k] = static_cast<std::int16_t>(e0 + k);
    const __m128i e = _mm_load_si128(reinterpret_cast<const __m128i*>(in));
    _mm_store_si128(reinterpret_cast<__m128i*>(half), random_split::vec::Half(e));
    _mm_store_si128(reinterpret_cast<__m128i*>(third), random_split::vec::Third(e));
    _mm_store_si128(reinterpret_cast<__m128i*>(two), random_split::vec::TwoThirds(e));
    _mm_store_si128(reinterpret_cast<__m128i*>(quarter), random_split::vec::Quarter(e));
    _mm_store_si128(reinterpret_cast<__m128i*>(three), random_split::vec::ThreeQuarters(e));
    for (int k = 0; k < 8; ++k) {
      ASSERT_EQ(half[k], ShareOf(Share::kHalf, in[k])) << in[k];
      ASSERT_EQ(third[k], ShareOf(Share::kThird, in[k])) << in[k];
      ASSERT_EQ(two[k], ShareOf(Share::kTwoThirds, in[k])) << in[k];
      ASSERT_EQ(quarter[k], ShareOf(Share::kQuarter, in[k])) << in[k];
      ASSERT_EQ(three[k], ShareOf(Share::kThreeQuarters, in[k])) << in[k];
    }
  }
}
#endif

TEST(RandomSplitFast, SplitFormsGiveTheReferenceShares) {
  // Every share kind through a one-column table of each pair, against ShareOf.
  using random_split::Share;
  using random_split::Split;
  constexpr Split kSplits[4] = {{Share::kThird, Share::kRestAfterThird},
                                {Share::kAll, Share::kNone},
                                {Share::kThird, Share::kRestAfterThird},
                                {Share::kNone, Share::kAll}};
  constexpr random_split::RowForm kForm = random_split::FormOf(kSplits, 4);
  static_assert(kForm.along.kind == random_split::ColumnKind::kLinear);
  static_assert(kForm.below.kind == random_split::ColumnKind::kComplement);
  for (int e = -32768; e <= 32767; ++e)
    for (unsigned c = 0; c < 4; ++c) {
      const int along = random_split::DivTrunc3(kForm.along.num[c] * e);
      ASSERT_EQ(along, random_split::ShareOf(kSplits[c].along, e));
      ASSERT_EQ(e - along, random_split::ShareOf(kSplits[c].below, e));
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
                                                            static_cast<std::int16_t>(random_split::DivTrunc2(e)), 0, 0};
    for (unsigned c = 0; c < Splits::kCodes; ++c) {
      const int want = random_split::ShareOf(random_split::kHalvesThenThirds.inner_ltr[c].along, e);
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
        ASSERT_EQ(h.part, random_split::DivTrunc2(err));
        ASSERT_EQ(t.code, code);
        ASSERT_EQ(Store16(t.err), err);
        ASSERT_EQ(t.part, random_split::DivTrunc3(err));
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

// Levels in order every other job, curves small or up to 255, one sample in four an extreme.
void PrepareJob(Engine& e, std::mt19937& gen, unsigned seed) {
  for (auto& l : e.levels.L) l = static_cast<std::uint8_t>(gen());
  if (seed % 2 == 0) e.levels.L = {0, 36, 72, 109, 145, 182, 218, 255, 0};
  for (auto& slot : e.curves.slots)
    for (auto& c : slot) c = static_cast<std::uint8_t>(gen() % (seed % 3 == 0 ? 256 : 16));
  e.curves.curve_a = 3;
  e.curves.curve_b = 5;
}
constexpr JobStyle kStyle{1000, PrepareJob, 8};

TEST(RandomSplitFast, WholeJobsMatchTheReference) {
  const auto routines = RandomSplitRoutines();
  unsigned seed = 0;
  for (const std::size_t w : {1u, 2u, 3u, 5u, 8u, 9u, 17u, 64u})
    for (const unsigned planes : {1u, 2u, 3u, 4u, 5u, 9u}) {
      ++seed;
      const std::vector<std::size_t> hs = {seed % 2 ? 3u : 4u, 1u, 2u, 5u};
      for (std::size_t k = 0; k < routines.size(); ++k) {
        const unsigned job = seed + 100 * static_cast<unsigned>(k);
        const auto ref = RunRandomSplitJob(routines[k].call, routines[k].bits, kStyle, false, 1, w, hs, planes, job);
        for (int threads : {1, 2}) {
          const auto fast =
              RunRandomSplitJob(routines[k].call, routines[k].bits, kStyle, true, threads, w, hs, planes, job);
          ASSERT_EQ(ref.size(), fast.size());
          for (std::size_t i = 0; i < ref.size(); ++i)
            ASSERT_TRUE(ref[i] == fast[i]) << routines[k].name << " #" << k << " w " << w << " planes " << planes
                                           << " threads " << threads << " band " << i;
        }
      }
    }
}

TEST(RandomSplitFast, SinglePlaneMatchesTheReference) {
  for (const std::size_t w : {1u, 2u, 7u, 8u, 33u})
    for (const std::size_t h : {1u, 2u, 3u, 6u}) {
      auto src = NoiseBand(w, h, 1, static_cast<unsigned>(w * 10 + h));
      std::vector<std::uint8_t> ref(DotStride(w, 1) * h + 4, kCanary), fast = ref;
      auto e1 = MakeEngine(5), e2 = MakeEngine(5);
      SetForceScalar(1);
      ASSERT_EQ(BilevelSinglePlane(*e1, src.data(), ref.data(), w, h), 0);
      SetForceScalar(0);
      ASSERT_EQ(BilevelSinglePlane(*e2, src.data(), fast.data(), w, h), 0);
      SetForceScalar(-1);
      EXPECT_EQ(ref, fast) << w << " x " << h;
      EXPECT_EQ(e1->random.NextStateWord(), e2->random.NextStateWord());
    }
}

// Carried values far outside the window the share tables cover: the carry row preset between
// two bands to values no picture leaves, so row 0 of the second band starts near the ends of
// 16 bits. The lone-plane and paired scans of the bilevel and one-drop routines take the cold
// path there and must still give the reference's dots, rows and draws.
TEST(RandomSplitFast, ValuesOutsideTheShareWindowMatchTheReference) {
  constexpr std::size_t w = 40, h = 6;
  constexpr std::uint32_t kStart = 1u << 16;
  using Call = std::function<int(Engine&, const std::uint8_t*, std::uint8_t*, HalftoneFlags)>;
  struct Routine {
    std::string name;
    unsigned bits;
    Call call;
  };
  std::vector<Routine> routines;
  for (const BilevelMethod m : {BilevelMethod::kLightnessThirdsCurves, BilevelMethod::kLightnessOneBitJobSeed,
                                BilevelMethod::kInkThirdsFullGuard, BilevelMethod::kInkQuarters,
                                BilevelMethod::kLightnessWholeError, BilevelMethod::kInkWholeError})
    routines.push_back({"bilevel " + std::to_string(static_cast<int>(m)), 1,
                        [m](Engine& e, const std::uint8_t* src, std::uint8_t* dst, HalftoneFlags f) {
                          return BilevelRandomSplit(e, src, dst, w, h, f, m);
                        }});
  for (const GroupedMethod m : {GroupedMethod::kSmallDotOnly, GroupedMethod::kLargeDotOnly})
    routines.push_back({"one drop " + std::to_string(static_cast<int>(m)), 2,
                        [m](Engine& e, const std::uint8_t* src, std::uint8_t* dst, HalftoneFlags f) {
                          return GroupedFourLevel(e, src, dst, w, h, f, m);
                        }});
  for (const Routine& r : routines)
    for (const unsigned planes : {1u, 2u}) {
      const auto src = NoiseBand(w, h, planes, 11 * planes + r.bits);
      std::vector<std::uint8_t> dots[2];
      std::vector<std::int16_t> rows[2];
      std::uint32_t next_word[2] = {};
      for (const bool fast : {false, true}) {
        SetForceScalar(fast ? 0 : 1);
        auto e = MakeEngine(77);
        std::vector<std::uint8_t> dst(DotStride(w, r.bits) * h * planes);
        ASSERT_EQ(r.call(*e, src.data(), dst.data(), HalftoneFlags{planes << 8 | kStart}), 0);
        std::int16_t* carry = e->rows.carry_all();
        for (std::size_t i = 0; i < w * planes; ++i)
          carry[i] = static_cast<std::int16_t>(i % 3 == 0 ? 30000 : i % 3 == 1 ? -30000 : 600);
        ASSERT_EQ(r.call(*e, src.data(), dst.data(), HalftoneFlags{planes << 8}), 0);
        dots[fast] = dst;
        rows[fast].assign(e->rows.carry_all(), e->rows.carry_all() + w * planes);
        rows[fast].insert(rows[fast].end(), e->rows.a(), e->rows.a() + w);
        rows[fast].insert(rows[fast].end(), e->rows.b(), e->rows.b() + w);
        next_word[fast] = e->random.NextStateWord();
      }
      SetForceScalar(-1);
      EXPECT_EQ(dots[0], dots[1]) << r.name << ", " << planes << " planes";
      EXPECT_EQ(rows[0], rows[1]) << r.name << ", " << planes << " planes";
      EXPECT_EQ(next_word[0], next_word[1]) << r.name << ", " << planes << " planes";
    }
}

}  // namespace
}  // namespace halftone
