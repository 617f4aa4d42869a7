// The double-precision family: hand-worked bands of the level-biased members and the row-end,
// white and reversed-test rules that set them apart; the job frame (carry, reseeding, release)
// and the members whose inner steps are this library's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_tables.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

constexpr long long kTime = 1000;

int Halftone(Engine& e, DoubleMethod m, TestBand& b, unsigned phase) {
  return b.Run([&](auto... a) { return DoubleDiffusion(e, m, a...); }, phase);
}

// Expects the carry row to start with `want`.
void ExpectCarry(Engine& e, std::initializer_list<double> want) {
  std::size_t x = 0;
  for (double v : want) EXPECT_NEAR(e.double_rows.carry_all()[x++], v, 1e-9) << "carry " << x - 1;
}

TEST(DoubleHalfColumn, ReadsItsOwnTableAtTheRowEnd) {
  // One pixel of level 230 in a one-row band: s = 230 > 128, paper, e = 230 - 255 = -25. x = 0 is
  // even, so the half-column member adds its table's 18.8 (the quarter-column table would add
  // 12.2); e = -6.2. Level 230 shares 0.67 ahead, dropped at the row end; the rest goes down,
  // into the carry row on the band's last row.
  auto e = MakeEngine(kTime);
  TestBand band(1, 1, 1, 230);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kHalfColumnBias, band, kPhaseStart), 0);
  const double err = -25.0 + 18.8;
  EXPECT_EQ(e->double_rows.carry_all()[0], err - err * 0.67);
  EXPECT_FALSE(band.Dot(0, 0));
}

TEST(DoubleQuarterColumn, HandWorkedRowOfMidGrey) {
  auto e = MakeEngine(kTime);
  TestBand band(5, 1, 1, 128);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kQuarterColumnBias, band, kPhaseStart), 0);
  // x0: s = 128 <= 128, dot, e = 128 + bias(128) 21.8 = 149.8; even: ahead 74.9, down 74.9.
  // x1: s = 202.9, paper, e = -52.1; odd: ahead -34.907, down -17.193.
  // x2: s = 93.093, dot; even: ahead 46.5465, down 46.5465.
  // x3: s = 174.5465, paper, e = -80.4535; ahead -53.903845, down -26.549655.
  // x4, row end: s = 74.096155, dot, biased (x mod 4 = 0): 95.896155, a quarter down.
  EXPECT_EQ(band.dst[0], 0xA8);
  ExpectCarry(*e, {74.9, -17.193, 46.5465, -26.549655, 23.97403875});
}

TEST(DoubleQuarterColumn, ReversedTestAtColumnZeroOfABackwardLastRowAndItsWhiteGuard) {
  auto e = MakeEngine(kTime);
  TestBand band(1, 2, 1, 200);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kQuarterColumnBias, band, kPhaseStart), 0);
  // Row 0 (w = 1, its only pixel a row end): s = 200, paper, e = -55 + 21.8 = -33.2, down
  // -8.3. Row 1 runs right to left and is the last row: s = 191.7 > 128 makes a dot there.
  EXPECT_FALSE(band.Dot(0, 0));
  EXPECT_TRUE(band.Dot(1, 0));
  EXPECT_NEAR(e->double_rows.carry_all()[0], 191.7 / 4, 1e-9);  // e = s, no bias at x = 0

  // The same band with the normal test everywhere leaves row 1 white.
  TestBand normal(1, 2, 1, 200);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kHalfColumnBias, normal, kPhaseStart), 0);
  EXPECT_FALSE(normal.Dot(1, 0));

  // White: row 1's s = 255 > 128 counts as a dot with e = 255, but white input never gets the bit.
  TestBand white(1, 2, 1, 255);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kQuarterColumnBias, white, kPhaseStart), 0);
  EXPECT_FALSE(white.Dot(1, 0));
  EXPECT_NEAR(e->double_rows.carry_all()[0], 63.75, 1e-12);
}

TEST(DoubleHalfColumn, HandWorkedRowEndDropsOnlyItsAheadShare) {
  auto e = MakeEngine(kTime);
  TestBand band(3, 1, 1, 100);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kHalfColumnBias, band, kPhaseStart), 0);
  // x0: dot, e = 100 + 21.8 (even column) = 121.8; v < 141: ahead 0.45 e = 54.81, down 66.99.
  // x1: s = 154.81, paper, e = -100.19, odd: no bias; ahead -45.0855, down -55.1045.
  // x2, row end: s = 54.9145, dot, e = 76.7145; ahead dropped, down 0.55 e = 42.192975.
  EXPECT_EQ(band.dst[0], 0xA0);
  ExpectCarry(*e, {66.99, -55.1045, 42.192975});
}

TEST(DoubleEveryColumn, HandWorkedTwoThirdsAhead) {
  auto e = MakeEngine(kTime);
  TestBand band(2, 1, 1, 50);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kEveryColumnBias, band, kPhaseStart), 0);
  // x0: dot, e = 50 + 40.7 = 90.7; ahead (e + e) / 3 = 60.4667, down 30.2333.
  // x1, row end: s = 110.4667, dot, e = 151.1667 (biased too), a quarter down.
  EXPECT_EQ(band.dst[0], 0xC0);
  EXPECT_NEAR(e->double_rows.carry_all()[0], 30.233333333333334, 1e-9);
  EXPECT_NEAR(e->double_rows.carry_all()[1], 37.79166666666667, 1e-9);
}

TEST(DoubleEveryColumn, WhiteTakesADotFromCarriedDarkErrorWhereGuardedMembersDoNot) {
  for (DoubleMethod m : {DoubleMethod::kEveryColumnBias, DoubleMethod::kQuarterColumnBias,
                         DoubleMethod::kHalfColumnBias}) {
    auto e = MakeEngine(kTime);
    TestBand first(4, 1, 1, 255);
    ASSERT_EQ(Halftone(*e, m, first, kPhaseStart), 0);
    EXPECT_EQ(first.Density(), 0.0);  // white with no error: never a dot
    e->double_rows.carry_all()[0] = -200.0;
    TestBand next(4, 1, 1, 255);
    ASSERT_EQ(Halftone(*e, m, next, 0), 0);
    EXPECT_EQ(next.Dot(0, 0), m == DoubleMethod::kEveryColumnBias);  // s = 55
  }
}

TEST(DoubleEveryColumn, UnguardedReversedEndTestDotsWhite) {
  // Two white rows: the right-to-left last row's column 0 sees s = 255 > 128, a dot, and with
  // no white guard the bit is set. The guarded members leave it white.
  auto e = MakeEngine(kTime);
  TestBand unguarded(4, 2, 1, 255), guarded(4, 2, 1, 255);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kEveryColumnBias, unguarded, kPhaseStart), 0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kQuarterColumnBias, guarded, kPhaseStart), 0);
  EXPECT_EQ(*unguarded.DotRow(0), 0x00);
  EXPECT_EQ(*unguarded.DotRow(1), 0x80);
  EXPECT_EQ(guarded.Density(), 0.0);
}

TEST(DoubleModulated, TileTermEntersTheSumAndTheError) {
  auto e = MakeEngine(kTime);
  e->tables.layers_double[255][0][0] = -200.0;
  TestBand band(3, 1, 1, 255);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kModulated, band, kPhaseStart), 0);
  // x0: s = 255 + 0 - 200 = 55, a dot on white (no guard); e = 55, halves 27.5 / 27.5.
  // x1: s = 282.5, paper, e = 27.5; x2 row end: s = 255 + 13.75, e = 13.75, a quarter down.
  EXPECT_EQ(band.dst[0], 0x80);
  ExpectCarry(*e, {27.5, 13.75, 13.75 / 4});
}

TEST(DoubleModulated, TileRestartsWithEveryBand) {
  auto e = MakeEngine(kTime);
  e->tables.layers_double[255][0][0] = -200.0;
  TestBand first(1, 3, 1, 255);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kModulated, first, kPhaseStart), 0);
  TestBand second(1, 1, 1, 255);
  // Row 0 of the second band is page row 3, yet it reads tile row 0 again.
  std::fill(e->double_rows.carry_all(), e->double_rows.carry_all() + 1, 0.0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kModulated, second, 0), 0);
  EXPECT_TRUE(first.Dot(0, 0));
  EXPECT_TRUE(second.Dot(0, 0));
}

TEST(DoubleDiagonal, HandWorkedTwoRows) {
  auto e = MakeEngine(kTime);
  TestBand band(3, 2, 1, 64);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kDiagonal, band, kPhaseStart), 0);
  // Mask rows 0 and 1 send every third to the left (columns 0-15).
  // Row 0: x0 dot e = 64: 128/3 ahead, its third leaves the row. x1: s = 106.667 dot, ahead
  //   71.111, third 35.556 to B[0]. x2: s = 135.111 paper, e = -119.889, third -39.963 to B[1].
  // Row 1 (right to left, last): x2: s = 64 dot, third 21.333 to carry[1]; x1: s = 66.704 dot,
  //   third 22.235 to carry[0]; x0: s = 144.025, paper (normal test), its third leaves the row.
  EXPECT_EQ(*band.DotRow(0), 0xC0);
  EXPECT_EQ(*band.DotRow(1), 0x60);
  ExpectCarry(*e, {22.234567901234566, 21.333333333333332, 0.0});
}

TEST(DoubleDiagonal, ForwardLastRowCarriesNothing) {
  auto e = MakeEngine(kTime);
  TestBand band(6, 3, 1, 90);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kDiagonal, band, kPhaseStart), 0);
  for (std::size_t x = 0; x < 6; ++x) EXPECT_EQ(e->double_rows.carry_all()[x], 0.0);
}

constexpr DoubleMethod kAll[] = {
    DoubleMethod::kRunLength,         DoubleMethod::kRandomSplit,    DoubleMethod::kRandomSplitRowDump,
    DoubleMethod::kRandomSplitPixelDump, DoubleMethod::kQuarterColumnBias, DoubleMethod::kToneWeightRow,
    DoubleMethod::kHalfColumnBias,    DoubleMethod::kEveryColumnBias, DoubleMethod::kDiagonal,
    DoubleMethod::kModulated,
};

TEST(DoubleFrame, EndOfJobHalftonesThenReleases) {
  auto e = MakeEngine(kTime);
  TestBand band(8, 2, 1, 0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, kPhaseStart), 0);
  EXPECT_TRUE(e->double_rows.live());
  EXPECT_EQ(e->double_weight_row.size(), 8u);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, kPhaseEnd), 0);
  EXPECT_EQ(band.Density(), 1.0);
  EXPECT_FALSE(e->double_rows.live());
  EXPECT_TRUE(e->double_weight_row.empty());
  EXPECT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, 0), kErrOutOfContract);
}

TEST(DoubleFrame, ToneWeightRowJoinsAJobAnotherMemberStarted) {
  auto e = MakeEngine(kTime);
  TestBand band(40, 2, 1, 128);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kQuarterColumnBias, band, kPhaseStart), 0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, 0), 0);
  EXPECT_GE(e->double_weight_row.size(), 40u);
}

TEST(DoubleFrame, EvenBandsCarryAndEachBandRestartsLeftToRight) {
  // A mid-grey plane in two bands of two rows: the first band's last row runs right to left
  // and hands its errors on, so the second band starts from them rather than from zero.
  auto e = MakeEngine(kTime);
  TestBand first(16, 2, 1, 128), second(16, 2, 1, 128), fresh(16, 2, 1, 128);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kHalfColumnBias, first, kPhaseStart), 0);
  double carried = 0.0;
  for (std::size_t x = 0; x < 16; ++x) carried += std::abs(e->double_rows.carry_all()[x]);
  EXPECT_GT(carried, 0.0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kHalfColumnBias, second, 0), 0);
  auto e2 = MakeEngine(kTime);
  ASSERT_EQ(Halftone(*e2, DoubleMethod::kHalfColumnBias, fresh, kPhaseStart), 0);
  EXPECT_NE(second.dst, fresh.dst);
  EXPECT_EQ(first.dst, fresh.dst);  // same start, same dots
}

TEST(DoubleFrame, ReseedEveryCallOrOnlyAtTheStartOfAJob) {
  auto state_after = [](DoubleMethod m) {
    auto e = MakeEngine(kTime);
    TestBand band(8, 1, 1, 0);
    EXPECT_EQ(Halftone(*e, m, band, kPhaseStart), 0);
    e->clock.SetFixed(kTime + 77);
    EXPECT_EQ(Halftone(*e, m, band, 0), 0);
    return e->random.state();
  };
  RandomBitSource later;
  later.Seed(static_cast<std::uint32_t>(kTime + 77));
  RandomBitSource at_start;
  at_start.Seed(static_cast<std::uint32_t>(kTime));
  // These members draw nothing, so the state shows exactly when they seeded.
  EXPECT_EQ(state_after(DoubleMethod::kQuarterColumnBias), later.state());
  EXPECT_EQ(state_after(DoubleMethod::kHalfColumnBias), later.state());
  EXPECT_EQ(state_after(DoubleMethod::kEveryColumnBias), at_start.state());
  EXPECT_EQ(state_after(DoubleMethod::kDiagonal), at_start.state());
  EXPECT_EQ(state_after(DoubleMethod::kModulated), at_start.state());
}

TEST(DoubleFrame, PlanesAreHalftonedApartAndMidGreyStartsWithADot) {
  for (DoubleMethod m : kAll) {
    auto e = MakeEngine(kTime);
    // Three rows: the last runs left to right, so no member's reversed end test applies.
    TestBand band(37, 3, 2, [](std::size_t, std::size_t, unsigned p) { return p == 0 ? 255 : 0; });
    ASSERT_EQ(Halftone(*e, m, band, kPhaseStart), 0);
    for (std::size_t y = 0; y < 3; ++y)
      for (std::size_t x = 0; x < 37; ++x) {
        EXPECT_FALSE(band.Dot(y, x, 0));
        EXPECT_TRUE(band.Dot(y, x, 1));
      }
    // Padding bits past the width stay clear.
    EXPECT_EQ(band.DotRow(0, 1)[4], 0xF8);
    EXPECT_EQ(band.DotRow(0, 1)[5] | band.DotRow(0, 1)[6] | band.DotRow(0, 1)[7], 0x00);
    TestBand grey(9, 3, 2, 128);  // s = 128 is a dot
    ASSERT_EQ(Halftone(*e, m, grey, kPhaseStart), 0);
    EXPECT_TRUE(grey.Dot(0, 0, 0) && grey.Dot(0, 0, 1)) << static_cast<int>(m);
  }
}

// The members whose inner steps are this library's own must reproduce tone: the share of dots
// over a flat patch follows the darkness of the input.
TEST(DoubleDesignedMembers, DotDensityFollowsTheTone) {
  for (DoubleMethod m : {DoubleMethod::kRunLength, DoubleMethod::kRandomSplit, DoubleMethod::kToneWeightRow}) {
    for (int level : {32, 96, 160, 224}) {
      auto e = MakeEngine(kTime);
      TestBand band(128, 64, 1, static_cast<std::uint8_t>(level));
      ASSERT_EQ(Halftone(*e, m, band, kPhaseStart), 0);
      EXPECT_NEAR(band.Density(), 1.0 - level / 255.0, 0.03) << static_cast<int>(m) << " level " << level;
    }
  }
}

}  // namespace
}  // namespace halftone
