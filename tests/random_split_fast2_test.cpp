// The fast random-split scans that draw a row at a time: the generator jump that lets each
// plane start its own copy of the random stream where its slice begins, a band without planes,
// and the branch-free shares of every split table form.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include "diffusion/four_level.h"
#include "diffusion/random_split.h"
#include "diffusion/random_split_fast.h"
#include "frame/dispatch.h"
#include "frame/engine.h"
#include "frame/random_bits.h"
#include "test_support.h"

namespace halftone {
namespace {

// Jumps of every small size (inside one register length, across it, around its multiples) and
// large ones made of random bit patterns, from registers at every pointer position.
TEST(RandomJump, SkipLeavesTheRegisterOfPlainDrawing) {
  std::mt19937 gen(11);
  std::vector<std::uint64_t> sizes;
  for (std::uint64_t n = 0; n <= 100; ++n) sizes.push_back(n);
  for (std::uint64_t n : {123u, 930u, 961u, 4095u, 4096u, 4097u, 65535u, 1048575u}) sizes.push_back(n);
  for (int i = 0; i < 8; ++i) sizes.push_back(gen() % 3000000);
  for (const std::uint64_t n : sizes) {
    const RandomJump jump(n);
    RandomBitSource drawn, skipped;
    drawn.Seed(static_cast<std::uint32_t>(gen()));
    for (unsigned k = gen() % 31; k > 0; --k) drawn.NextStateWord();  // any pointer position
    skipped = drawn;
    for (std::uint64_t k = 0; k < n; ++k) drawn.NextStateWord();
    skipped.Skip(jump);
    ASSERT_EQ(drawn.front(), skipped.front()) << n;
    ASSERT_EQ(drawn.rear(), skipped.rear()) << n;
    ASSERT_EQ(drawn.state(), skipped.state()) << n;
    for (int k = 0; k < 40; ++k) ASSERT_EQ(drawn.NextStateWord(), skipped.NextStateWord()) << n;
  }
}

TEST(RandomJump, RepeatedJumpsComposeLikeOneLongJump) {
  // Plane p starts p slices in: p jumps of one slice, against one jump of p slices and drawing.
  RandomBitSource stepped, direct, drawn;
  stepped.Seed(1700000000u);
  direct = drawn = stepped;
  const RandomJump slice(4097 * 3 + 5);
  for (unsigned p = 1; p <= 5; ++p) {
    stepped.Skip(slice);
    for (std::uint64_t k = 0; k < slice.draws(); ++k) drawn.NextStateWord();
    RandomBitSource from_start = direct;
    from_start.Skip(RandomJump(slice.draws() * p));
    ASSERT_EQ(stepped.state(), drawn.state()) << p;
    ASSERT_EQ(from_start.state(), drawn.state()) << p;
    ASSERT_EQ(from_start.front(), drawn.front()) << p;
  }
}

using halftone_test::Flags;
using halftone_test::kCanary;
using halftone_test::MakeEngine;

// A band without planes starts the job and draws nothing, in both passes.
TEST(RandomSplitFast2, BandWithoutPlanesDrawsNothing) {
  std::vector<std::uint8_t> src(64, 128), dst(64, kCanary);
  for (int fast : {0, 1}) {
    SetForceScalar(fast ? 0 : 1);
    auto e = MakeEngine(7), seeded_only = MakeEngine(7);
    seeded_only->SeedFromClock();
    EXPECT_EQ(GroupedFourLevel(*e, src.data(), dst.data(), 5, 3, HalftoneFlags{Flags(0, 1)},
                               GroupedMethod::kLevelValues), 0);
    EXPECT_EQ(EightLevel(*e, src.data(), dst.data(), 5, 3, HalftoneFlags{Flags(0, 0)}, EightLevelMethod::kFixedLevels), 0);
    EXPECT_EQ(e->random.state(), seeded_only->random.state()) << "fast " << fast;
    EXPECT_EQ(dst, std::vector<std::uint8_t>(64, kCanary));
  }
  SetForceScalar(-1);
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
      int along = 0, below = 0, along_m = 0, below_m = 0;
      Fast::Shares(c, e, along, below);
      Fast::template Shares<true>(c, e, along_m, below_m);
      ASSERT_EQ(along, ShareOf(splits[c].along, e)) << name << " row " << int(kRow) << " code " << c << " e " << e;
      ASSERT_EQ(below, ShareOf(splits[c].below, e)) << name << " row " << int(kRow) << " code " << c << " e " << e;
      ASSERT_EQ(along_m, along) << name << " by masks, row " << int(kRow) << " code " << c << " e " << e;
      ASSERT_EQ(below_m, below) << name << " by masks, row " << int(kRow) << " code " << c << " e " << e;
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

}  // namespace
}  // namespace halftone
