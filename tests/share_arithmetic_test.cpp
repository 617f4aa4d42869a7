// The building blocks the diffusions stand on, checked exhaustively. Every fast form of an error
// share against the readable one (ShareOf), for every fraction up to quarters, truncated and
// floored, as a share or as the rest, over every error a pixel can carry: the division helpers,
// the scalar, product, multiply-and-shift and mask forms, the rule flags of the vector rows in
// ints, and the vector lanes; the window and decision tables and the random-split rows' shares;
// the double-precision two-thirds; then the random stream. Whole jobs are compared with the
// reference in tier_test; these catch a wrong share on an error no picture happens to make.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "diffusion/four_level.h"
#include "diffusion/random_split.h"
#include "diffusion/random_split_fast.h"
#include "diffusion/random_split_vector.h"
#include "frame/band_draws.h"
#include "frame/dispatch.h"
#include "frame/engine.h"
#include "frame/random_bits.h"
#include "frame/row_engine.h"
#include "frame/share_arithmetic.h"
#include "tablediffusion/level_bias_fast.h"
#include "tablediffusion/serpentine_vector.h"
#include "test_support.h"

namespace halftone {
namespace {

// A pixel's error: a 16-bit row value, plus an input level and a curve term, less a level.
constexpr int kLowestError = -32768 - 255;
constexpr int kHighestError = 32767 + 255 + 255;
// The vector lanes hold 16-bit errors below the held limit plus a level.
constexpr int kHighestLaneError = 32767 - 255;

constexpr std::size_t kFractionCount = 4 * (2 + 3 + 4 + 5);
constexpr std::array<Fraction, kFractionCount> kEveryFraction = [] {
  std::array<Fraction, kFractionCount> all{};
  std::size_t n = 0;
  for (const Rounding r : {Rounding::kTrunc, Rounding::kFloor})
    for (const bool rest : {false, true})
      for (int den = 1; den <= 4; ++den)
        for (int num = 0; num <= den; ++num) all[n++] = {num, den, rest, r};
  return all;
}();

std::string Name(const Fraction& f) {
  return std::to_string(f.num) + "/" + std::to_string(f.den) + (f.rest ? " rest" : "") +
         (f.rounding == Rounding::kFloor ? " floored" : "");
}

TEST(ShareArithmetic, DivisionsTruncateTowardZeroForEveryShareOperand) {
  // A share is formed from a 16-bit error times at most 4.
  for (int x = -4 * 32768; x <= 4 * 32767; ++x) {
    ASSERT_EQ(DivTrunc2(x), x / 2) << x;
    ASSERT_EQ(DivTrunc3(x), x / 3) << x;
    ASSERT_EQ(DivTrunc4(x), x / 4) << x;
  }
}

TEST(ShareArithmetic, ReferenceRoundsAsNamed) {
  EXPECT_EQ(ShareOf(fraction::kHalf, -3), -1);
  EXPECT_EQ(ShareOf({1, 2, false, Rounding::kFloor}, -3), -2);
  EXPECT_EQ(ShareOf(fraction::kRestAfterThird, -7), -5);
  EXPECT_EQ(ShareOf({3, 4, true, Rounding::kFloor}, -5), -1);
}

template <std::size_t kIndex>
void ExpectScalarFormsMatch() {
  constexpr Fraction F = kEveryFraction[kIndex];
  constexpr bool kTrunc = F.rounding == Rounding::kTrunc;
  constexpr bool kMasks = !Divides(F) || (kTrunc && F.num == 1 && F.den <= 3);
  for (int e = kLowestError; e <= kHighestError; ++e) {
    const int want = ShareOf(F, e);
    if constexpr (kTrunc) {
      ASSERT_EQ(TruncatedShare<F>(e), want) << Name(F) << " e " << e;
      ASSERT_EQ(ShareByProduct(ProductOf(F), e), want) << Name(F) << " e " << e;
    }
    if constexpr (HasMulShift(F)) {
      ASSERT_EQ(ShareByMulShift(e, MulShiftOf(F)), want) << Name(F) << " e " << e;
    }
    if constexpr (kMasks) {
      ASSERT_EQ(AheadByMasks(MasksOf(F), e), want) << Name(F) << " e " << e;
    }
#if HALFTONE_VECTOR_ROWS
    if constexpr (vec::HasVectorForm(F)) {
      ASSERT_EQ(row_engine::AheadByFlags(e, row_engine::RuleFlags(F)), want) << Name(F) << " e " << e;
    }
#endif
  }
}

TEST(ShareArithmetic, ScalarFormsMatchTheReferenceForEveryError) {
  [&]<std::size_t... i>(std::index_sequence<i...>) {
    (ExpectScalarFormsMatch<i>(), ...);
  }(std::make_index_sequence<kFractionCount>{});
  // A multiply and shift floors or truncates only powers of two and truncated thirds.
  EXPECT_FALSE(HasMulShift({2, 3, false, Rounding::kFloor}));
  EXPECT_FALSE(HasMulShift(fraction::kRestAfterThird));
}

#if HALFTONE_VECTOR_ROWS
template <std::size_t kIndex>
void ExpectVectorFormsMatch() {
  constexpr Fraction F = kEveryFraction[kIndex];
  if constexpr (vec::HasVectorForm(F)) {
    // The floored three quarters is exact up to 32764, which the held limit keeps below.
    constexpr std::uint16_t kFlags = row_engine::RuleFlags(F);
    for (int e0 = -32768; e0 <= kHighestLaneError; e0 += 8) {
      vec::V16 e{};
      for (unsigned k = 0; k < 8; ++k) e[k] = static_cast<std::uint16_t>(std::min(e0 + static_cast<int>(k), kHighestLaneError));
      const vec::V16 direct = vec::ShareOf<F>(e);
      // Flags in lanes: every lane takes this rule, the others' bits set or not.
      const vec::V16 flagged = row_engine::AheadByFlags<0xFFFF, 0>(e, vec::Splat(kFlags));
      for (unsigned k = 0; k < 8; ++k) {
        const int want = ShareOf(F, vec::At(e, k));
        ASSERT_EQ(vec::At(direct, k), want) << Name(F) << " e " << vec::At(e, k);
        ASSERT_EQ(vec::At(flagged, k), want) << Name(F) << " flags, e " << vec::At(e, k);
      }
    }
  }
}

TEST(ShareArithmetic, VectorFormsMatchTheReferenceForEvery16BitError) {
  [&]<std::size_t... i>(std::index_sequence<i...>) {
    (ExpectVectorFormsMatch<i>(), ...);
  }(std::make_index_sequence<kFractionCount>{});
  EXPECT_FALSE(vec::HasVectorForm({2, 3, false, Rounding::kFloor}));
}
#endif

TEST(LevelBiasFast, FourLevelWindowMatchesTheQuantiserForEveryValue) {
  using level_bias::FourLevelWindow;
  const FourLevelWindow& window = level_bias::kFourLevelWindow;
  for (std::int64_t v = -32768 - 255; v <= 32767 + 255; ++v) {
    const FourLevelWindow::Result got = window.Decide(v), want = FourLevelWindow::Arithmetic(v);
    ASSERT_EQ(got.err, want.err) << "value " << v;
    ASSERT_EQ(got.code_less_max, want.code_less_max) << "value " << v;
  }
  // The levels themselves, so the table cannot agree with a wrong quantiser: 0/85/170/255 split
  // at 64/128/192, the darkest dot (code 3, kept as 0 less the maximum) at level 0.
  for (const auto& [v, level, code_less_max] :
       {std::tuple{64, 0, 0}, std::tuple{65, 85, -1}, std::tuple{128, 85, -1}, std::tuple{129, 170, -2},
        std::tuple{192, 170, -2}, std::tuple{193, 255, -3}, std::tuple{-600, 0, 0}, std::tuple{600, 255, -3}}) {
    const FourLevelWindow::Result r = window.Decide(v);
    EXPECT_EQ(r.err, v - level) << "value " << v;
    EXPECT_EQ(r.code_less_max, code_less_max) << "value " << v;
  }
}

TEST(LevelBiasFast, DrawCountsMatchAPlainCount) {
  std::mt19937 gen(3);
  for (std::size_t w = 0; w < 70; ++w) {
    std::vector<std::uint8_t> row(w);
    for (auto& s : row) s = static_cast<std::uint8_t>(gen());
    if (w % 5 == 0)
      for (auto& s : row) s = static_cast<std::uint8_t>(gen() % 2 ? 255 : 0);
    for (int limit : {0, 1, 127, 128, 166, 185, 213, 216, 255, 256}) {
      std::size_t n = 0;
      for (std::uint8_t s : row) n += s < limit;
      ASSERT_EQ(level_bias::CountBelow(row.data(), w, limit), n) << "w " << w << " limit " << limit;
    }
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

// The branch-free shares against ShareOf for every 16-bit error and every code, in each kind of
// row, for split tables of each divisor: whole (masks), halves (masks), thirds and quarters (one
// multiply), a column that is the rest of the other, and one-bit draws.
namespace shares {
using random_split::EndDraw;
using random_split::RowKind;
using random_split::ScanTraits;
using random_split::SplitTable;

constexpr SplitTable kQuarterSplits = {
    .inner_ltr = {{fraction::kThreeQuarters, fraction::kQuarter}, {fraction::kAll, fraction::kNone},
                  {fraction::kQuarter, fraction::kThreeQuarters}, {fraction::kNone, fraction::kAll}},
    .inner_rtl = {{fraction::kAll, fraction::kNone}, {fraction::kQuarter, fraction::kThreeQuarters},
                  {fraction::kNone, fraction::kAll}, {fraction::kThreeQuarters, fraction::kQuarter}},
    .last = {{fraction::kHalf, fraction::kHalf}, {fraction::kAll, fraction::kNone},
             {fraction::kNone, fraction::kAll}, {fraction::kHalf, fraction::kHalf}},
};
constexpr SplitTable kThirdSplits = {
    .inner_ltr = {{fraction::kThird, fraction::kTwoThirds}, {fraction::kNone, fraction::kAll},
                  {fraction::kTwoThirds, fraction::kThird}, {fraction::kAll, fraction::kNone}},
    .inner_rtl = {{fraction::kTwoThirds, fraction::kRestAfterThird}, {fraction::kNone, fraction::kAll},
                  {fraction::kThird, fraction::kTwoThirds}, {fraction::kAll, fraction::kNone}},
    .last = {{fraction::kThird, fraction::kRestAfterThird}, {fraction::kAll, fraction::kNone},
             {fraction::kThird, fraction::kRestAfterThird}, {fraction::kNone, fraction::kAll}},
};
constexpr SplitTable kWholeSplits = {
    .inner_ltr = {{fraction::kNone, fraction::kAll}, {fraction::kAll, fraction::kNone},
                  {fraction::kAll, fraction::kNone}, {fraction::kNone, fraction::kAll}},
    .inner_rtl = {{fraction::kAll, fraction::kAll}, {fraction::kNone, fraction::kNone},
                  {fraction::kAll, fraction::kNone}, {fraction::kNone, fraction::kAll}},
    .last = {{fraction::kNone, fraction::kNone}, {fraction::kAll, fraction::kNone},
             {fraction::kNone, fraction::kAll}, {fraction::kAll, fraction::kAll}},
};
constexpr SplitTable kOneBitSplits = {
    .inner_ltr = {{fraction::kThird, fraction::kRestAfterThird}, {fraction::kAll, fraction::kNone}},
    .inner_rtl = {{fraction::kHalf, fraction::kHalf}, {fraction::kNone, fraction::kAll}},
    .last = {{fraction::kQuarter, fraction::kThreeQuarters}, {fraction::kThreeQuarters, fraction::kQuarter}},
};
constexpr random_split::RowEndRule kEnd = {EndDraw::kNone, {fraction::kNone, fraction::kNone}};
constexpr ScanTraits kHalvesScan = {2, false, random_split::kHalvesThenThirds, kEnd, false};
constexpr ScanTraits kQuartersScan = {2, false, kQuarterSplits, kEnd, false};
constexpr ScanTraits kThirdsScan = {2, false, kThirdSplits, kEnd, false};
constexpr ScanTraits kWholeScan = {2, false, kWholeSplits, kEnd, false};
constexpr ScanTraits kOneBitScan = {1, false, kOneBitSplits, kEnd, false};

template <const ScanTraits& kTraits>
struct SplitsOnly {
  static constexpr const ScanTraits& kScan = kTraits;
};

template <const ScanTraits& kTraits, RowKind kRow>
void CheckRowShares(const char* name) {
  using Fast = random_split::FastSplit<SplitsOnly<kTraits>, kRow>;
  const random_split::Split* splits = kRow == RowKind::kInnerLtr   ? kTraits.splits.inner_ltr
                                      : kRow == RowKind::kInnerRtl ? kTraits.splits.inner_rtl
                                                                   : kTraits.splits.last;
  for (unsigned c = 0; c < Fast::kCodes; ++c)
    for (int e = -32768; e <= 32767; ++e) {
      int along = 0, below = 0;
      Fast::Shares(c, e, along, below);
      ASSERT_EQ(along, ShareOf(splits[c].along, e)) << name << " row " << int(kRow) << " code " << c << " e " << e;
      ASSERT_EQ(below, ShareOf(splits[c].below, e)) << name << " row " << int(kRow) << " code " << c << " e " << e;
    }
}

template <const ScanTraits& kTraits>
void CheckShares(const char* name) {
  CheckRowShares<kTraits, RowKind::kInnerLtr>(name);
  CheckRowShares<kTraits, RowKind::kInnerRtl>(name);
  CheckRowShares<kTraits, RowKind::kLast>(name);
}
}  // namespace shares

TEST(RandomSplitFast2, SharesMatchTheReferenceForEveryErrorAndCode) {
  using random_split::ColumnKind;
  // The tables reach each way of forming a column.
  static_assert(random_split::FormOf(shares::kWholeSplits.inner_ltr, 4).along.den == 1);
  static_assert(random_split::FormOf(random_split::kHalvesThenThirds.inner_ltr, 4).along.den == 2);
  static_assert(random_split::FormOf(shares::kQuarterSplits.inner_ltr, 4).below.den == 4);
  static_assert(random_split::FormOf(shares::kThirdSplits.inner_ltr, 4).along.den == 3);
  // Along alone is linear here; below neither linear nor along's complement.
  static_assert(random_split::FormOf(shares::kThirdSplits.inner_rtl, 4).along.kind == ColumnKind::kGeneric);
  static_assert(random_split::FormOf(shares::kThirdSplits.last, 4).below.kind == ColumnKind::kComplement);
  shares::CheckShares<shares::kHalvesScan>("halves");
  shares::CheckShares<shares::kQuartersScan>("quarters");
  shares::CheckShares<shares::kThirdsScan>("thirds");
  shares::CheckShares<shares::kWholeScan>("whole");
  shares::CheckShares<shares::kOneBitScan>("one bit");
}

// The double-precision fast pass divides its two-thirds share once, by 1.5, where the readable
// pass doubles and divides by 3: the same double for every error, subnormal to huge, either sign.
TEST(ShareArithmetic, DoubleTwoThirdsAsOneDivisionIsTheSameDouble) {
  std::mt19937_64 gen(11);
  volatile double two = 2.0, three = 3.0, one_and_a_half = 1.5;  // no folding at compile time
  for (int i = 0; i < 2000000; ++i) {
    double e = std::bit_cast<double>(gen());
    if (i % 3 == 0) e = static_cast<double>(static_cast<std::int64_t>(gen() % 2000001) - 1000000) / 3.0;
    if (!std::isfinite(e) || std::fabs(e) >= std::numeric_limits<double>::max() / 2) continue;
    const std::uint64_t once = std::bit_cast<std::uint64_t>(e / one_and_a_half);
    ASSERT_EQ(std::bit_cast<std::uint64_t>((e * two) / three), once) << e;
    ASSERT_EQ(std::bit_cast<std::uint64_t>((e + e) / three), once) << e;
  }
}

// The random stream decides every split, so its sequence is part of the output: the register and
// its seeding, the draws the hand-worked bands rely on, the jump that lets each plane start
// where its slice of the stream begins, and draws taken in batches or shared among threads.
// Two registers at the same place: same words, same front and rear pointers.
void ExpectSameRegister(const RandomBitSource& got, const RandomBitSource& want, const std::string& what) {
  EXPECT_EQ(got.state(), want.state()) << what;
  EXPECT_EQ(got.front(), want.front()) << what;
  EXPECT_EQ(got.rear(), want.rear()) << what;
}

TEST(RandomBitSource, SeedingFillsTheRegisterWithTheLibraryMultiplier) {
  // Seed 1: word 1 = 1 * 1103515145 + 12345 = 1103527490; word 2 = 1103527490 * 1103515145
  // + 12345 mod 2^32 = 863943819.
  const auto words = RandomBitSource::SeededRegister(1);
  EXPECT_EQ(words[0], 1u);
  EXPECT_EQ(words[1], 1103527490u);
  EXPECT_EQ(words[2], 863943819u);
#if defined(__GLIBC__)
  // glibc's random_r draws exactly like the register above: load the seeded state into it,
  // let both discard 310 draws, and compare a long run of results.
  for (std::uint32_t seed : {0u, 1u, 1700000000u, 0xFFFFFFFFu}) {
    const auto seeded = RandomBitSource::SeededRegister(seed);
    char statebuf[128];
    random_data reference{};
    ASSERT_EQ(initstate_r(1, statebuf, sizeof statebuf, &reference), 0);
    std::memcpy(reference.state, seeded.data(), sizeof(std::uint32_t) * seeded.size());
    reference.fptr = reference.state + 3;
    reference.rptr = reference.state;
    RandomBitSource source;
    source.Seed(seed);
    std::int32_t value = 0;
    for (int i = 0; i < 310; ++i) random_r(&reference, &value);
    for (int i = 0; i < 20000; ++i) {
      random_r(&reference, &value);
      ASSERT_EQ(source.Next(), static_cast<std::uint32_t>(value)) << "seed " << seed << " draw " << i;
      ASSERT_EQ((source.front() - source.rear() + 31) % 31, 3) << "front stays three words ahead";
    }
  }
#endif
  // Before any seeding the draw runs on the default register: a + rear word 0.
  RandomBitSource fresh;
  EXPECT_EQ(fresh.NextStateWord(), RandomBitSource::kDefaultState[3] + RandomBitSource::kDefaultState[0]);
}

// The draws the hand-worked bands of the other tests rely on.
TEST(RandomBitSource, DrawsAtTheFixedTimesTheHandWorkUses) {
  const struct {
    std::uint32_t seed;
    bool two_bits;
    std::vector<unsigned> draws;
  } cases[] = {{1, true, {1, 0, 1, 2, 1}}, {1, false, {1, 0, 1, 0}}, {0, true, {3}},
               {1002, true, {0, 1, 1, 3}}, {1002, false, {0, 1, 1, 1}}};
  for (const auto& c : cases) {
    RandomBitSource r;
    r.Seed(c.seed);
    for (unsigned d : c.draws) EXPECT_EQ(c.two_bits ? r.NextTwoBits() : r.NextBit(), d) << "seed " << c.seed;
  }
}

// Jumps of every small size (inside one register length, across it, around its multiples) and
// large ones made of random bit patterns, from registers at every pointer position.
TEST(RandomJump, SkipLeavesTheRegisterOfPlainDrawing) {
  std::mt19937 gen(11);
  std::vector<std::uint64_t> sizes;
  for (std::uint64_t n = 0; n <= 100; ++n) sizes.push_back(n);
  for (std::uint64_t n : {123u, 930u, 961u, 4095u, 4096u, 4097u, 65535u, 1048575u}) sizes.push_back(n);
  for (int i = 0; i < 8; ++i) sizes.push_back(gen() % 3000000);
  for (const std::uint64_t n : sizes) {
    RandomBitSource drawn, skipped;
    drawn.Seed(static_cast<std::uint32_t>(gen()));
    for (unsigned k = gen() % 31; k > 0; --k) drawn.NextStateWord();  // any pointer position
    skipped = drawn;
    for (std::uint64_t k = 0; k < n; ++k) drawn.NextStateWord();
    skipped.Skip(RandomJump(n));
    ExpectSameRegister(skipped, drawn, "jump of " + std::to_string(n));
    for (int k = 0; k < 40; ++k) ASSERT_EQ(drawn.NextStateWord(), skipped.NextStateWord()) << n;
  }
  // Plane p starts p slices in: p jumps of one slice, one jump of p slices and drawing agree.
  RandomBitSource stepped, start;
  stepped.Seed(1700000000u);
  start = stepped;
  const RandomJump slice(4097 * 3 + 5);
  for (unsigned p = 1; p <= 5; ++p) {
    stepped.Skip(slice);
    RandomBitSource from_start = start, drawn = start;
    from_start.Skip(RandomJump(slice.draws() * p));
    for (std::uint64_t k = 0; k < slice.draws() * p; ++k) drawn.NextStateWord();
    ExpectSameRegister(stepped, drawn, "plane " + std::to_string(p) + " stepped");
    ExpectSameRegister(from_start, drawn, "plane " + std::to_string(p) + " from the start");
  }
}

// Batches of every awkward size (inside the first three words, inside the register length,
// across it, long) give the single draws' words and leave the register where they do; so do
// byte fields of draws across chunk ends and tails of every length, never writing past them.
TEST(RandomBatches, WordsAndByteFieldsMatchSingleDraws) {
  RandomBitSource batch, single;
  batch.Seed(1234567);
  single.Seed(1234567);
  for (std::size_t n : {0u, 1u, 2u, 3u, 4u, 27u, 28u, 30u, 31u, 32u, 33u, 34u, 35u, 37u, 38u, 39u, 62u, 1000u, 4099u, 5u}) {
    std::vector<std::uint32_t> words(n);
    batch.DrawWords(words.data(), n);
    for (std::size_t i = 0; i < n; ++i) ASSERT_EQ(words[i], single.NextStateWord()) << "batch of " << n << ", word " << i;
    ExpectSameRegister(batch, single, "after a batch of " + std::to_string(n));
  }
  constexpr std::size_t kChunk = RandomBitSource::kFieldChunk;
  std::vector<std::uint32_t> chunk(kChunk);
  for (const auto& [shift, mask] : {std::pair<unsigned, std::uint8_t>{1, 0xFF}, {0, 2}, {1, 3}, {7, 0x81}})
    for (std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{15}, std::size_t{16}, std::size_t{17},
                          std::size_t{47}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk + 21}) {
      std::vector<std::uint8_t> out(n + 1, 0xA5);
      batch.DrawByteFields(out.data(), n, shift, mask, chunk.data());
      for (std::size_t i = 0; i < n; ++i)
        ASSERT_EQ(out[i], (single.NextStateWord() >> shift) & mask) << "shift " << shift << ", " << n << " draws, draw " << i;
      ASSERT_EQ(out[n], 0xA5) << "wrote past " << n << " draws";
      ExpectSameRegister(batch, single, "after " + std::to_string(n) + " byte fields");
    }
}

// A band's draws shared out among threads: each part from a jumped copy of the generator, so
// the bytes, the spare byte behind them and the generator's end must be those of one thread
// drawing them all, for runs under and over the sharing threshold and parts of unequal length.
TEST(RandomBatches, BandBytesAreTheSameOnAnyThreadCount) {
  for (std::size_t n : {std::size_t{1000}, kSpreadDraws - 1, kSpreadDraws, kSpreadDraws + 12345, 3 * kSpreadDraws + 7}) {
    auto one = std::make_unique<Engine>();
    one->random.Seed(4242);
    const std::uint8_t* ref = DrawBandBytes(*one, n, 0, 1, 3, 1);
    const std::vector<std::uint8_t> expected(ref, ref + n);
    for (int threads : {2, 3}) {
      auto many = std::make_unique<Engine>();
      many->threads.SetCount(threads);
      many->random.Seed(4242);
      reinterpret_cast<std::uint8_t*>(many->draws.Reserve(n / 4 + 1))[n] = 0x5A;
      const std::uint8_t* got = DrawBandBytes(*many, n, 1, 1, 3, 4);
      ASSERT_EQ(std::vector<std::uint8_t>(got, got + n), expected) << n << " draws on " << threads << " threads";
      EXPECT_EQ(got[n], 0x5A) << "the spare byte behind the draws is left alone";
      ExpectSameRegister(many->random, one->random, "the generator must end where " + std::to_string(n) + " draws end");
    }
  }
}

}  // namespace
}  // namespace halftone
