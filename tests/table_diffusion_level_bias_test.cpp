// Level-keyed bias diffusion (16-bit rows): hand-worked bands, carry presets, rounding of
// negative shares, seeding and the job contract.
#include <gtest/gtest.h>

#include "tablediffusion/integer_diffusion.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

int Halftone(Engine& e, LevelBiasMember m, TestBand& b, unsigned phase) {
  return b.Run([&](auto... a) { return LevelBiasDiffusion(e, m, a...); }, phase);
}

// Four levels, light band (220 is at or above both direction limits), first band of a job.
// Bias byte of 220 is 46: forward rows add it at even x, backward rows at odd x.
TEST(LevelBiasFourLevel, HandWorkedLightBand) {
  auto e = MakeEngine();
  TestBand b(4, 2, 1, 220, 2);
  ASSERT_EQ(Halftone(*e, LevelBiasMember::kFourLevel, b, kPhaseStart), 0);
  // Row 0, forward, A = -13 everywhere (carry preset):
  //  x0: s=207 code 0, e=-48+46=-2; even: ahead trunc(-4/3)=-1, down -1.  A1=-14
  //  x1: s=206 code 0, e=-49;       odd: ahead floor(-147/4)=-37, down -12. A2=-50
  //  x2: s=170 code 1, e=0+46=46;   even: ahead trunc(92/3)=30, down 16.   A3=17
  //  x3: s=237 code 0, e=-18;       odd: ahead floor(-54/4)=-14 (dropped), down -4.
  EXPECT_EQ(b.dst[0], 0x04);  // only x2 has a dot (code 1)
  // Row 1, backward and last, B = [-1, -12, 16, -4]; downs go to the carry row:
  //  x3: s=216 code 0, e=-39+46=7; odd: ahead floor(21/4)=5, down 2.       B2=21
  //  x2: s=241 code 0, e=-14;      even: ahead trunc(-28/3)=-9, down -5.   B1=-21
  //  x1: s=199 code 0, e=-56+46=-10; odd: ahead floor(-30/4)=-8, down -2.  B0=-9
  //  x0: s=211 code 0, e=-44;      even: ahead trunc(-88/3)=-29 (dropped), down -15.
  EXPECT_EQ(b.dst[4], 0x00);
  const std::int16_t* carry = e->rows.carry_all();
  ExpectCells<int>(carry, {{0, -15}, {1, -2}, {2, -5}, {3, 2}});
}

TEST(LevelBiasFourLevel, PresetDecidesFirstPixel) {
  // s = v - 13: 77 reaches the threshold 64 exactly (code 3), 78 does not (code 2).
  for (auto [v, code] : {std::pair{77, 3u}, std::pair{78, 2u}}) {
    auto e = MakeEngine();
    TestBand b(1, 1, 1, v, 2);
    ASSERT_EQ(Halftone(*e, LevelBiasMember::kFourLevel, b, kPhaseStart), 0);
    EXPECT_EQ(b.Code(0, 0), code) << "level " << v;
  }
}

TEST(LevelBiasBilevel, CarryPresetsShiftTheFirstThreshold) {
  // The highest level that still prints at the first pixel of a job is 128 - preset.
  for (auto [m, last_dot_level] : {std::pair{LevelBiasMember::kBilevelWide, 153}, std::pair{LevelBiasMember::kBilevelHalves, 163},
                                   std::pair{LevelBiasMember::kBilevelLight, 128}, std::pair{LevelBiasMember::kBilevelHalving, 128}}) {
    for (int v : {last_dot_level, last_dot_level + 1}) {
      auto e = MakeEngine();
      TestBand b(1, 1, 1, v);
      ASSERT_EQ(Halftone(*e, m, b, kPhaseStart), 0);
      EXPECT_EQ(b.Dot(0, 0), v == last_dot_level) << "member " << static_cast<int>(m) << " v " << v;
    }
  }
}

TEST(LevelBiasBilevel, FloorAndTruncationDifferOnOddNegativeErrors) {
  // Plain halving truncates: e = 252 - 255 = -3, ahead -1 (dropped at the row end), down -2.
  auto e = MakeEngine();
  TestBand one(1, 1, 1, 252);
  ASSERT_EQ(Halftone(*e, LevelBiasMember::kBilevelHalving, one, kPhaseStart), 0);
  EXPECT_EQ(e->rows.b()[0], -2);
  // Carry -35, forward row, no bias on forward rows:
  //  x0 (252): s=217, e=-38; light band even: ahead trunc(-76/3)=-25, down -13. A1=-60
  //  x1 (254): s=194, e=-61; light band odd: ahead floor(-61/2)=-31, down -30.
  e = MakeEngine();
  TestBand two(2, 1, 1, [](std::size_t x, std::size_t, unsigned) { return x == 0 ? 252 : 254; });
  ASSERT_EQ(Halftone(*e, LevelBiasMember::kBilevelHalves, two, kPhaseStart), 0);
  ExpectCells<int>(e->rows.b(), {{0, -13}, {1, -30}});
  EXPECT_EQ(two.dst[0], 0x00);
}

TEST(LevelBiasFamily, BlackPrintsEverywhereAndOnlyEvenBandsCarry) {
  for (auto m : {LevelBiasMember::kFourLevel, LevelBiasMember::kBilevelWide, LevelBiasMember::kBilevelHalves,
                 LevelBiasMember::kBilevelLight, LevelBiasMember::kBilevelHalving}) {
    const unsigned bits = m == LevelBiasMember::kFourLevel ? 2 : 1;
    auto e = MakeEngine();
    TestBand black(9, 4, 2, 0, bits), grey(9, 1, 2, 150, bits), grey2(9, 2, 2, 150, bits);
    ASSERT_EQ(Halftone(*e, m, black, kPhaseStart), 0);
    for (std::size_t y = 0; y < 4; ++y)
      for (unsigned p = 0; p < 2; ++p)
        for (std::size_t x = 0; x < 9; ++x) EXPECT_EQ(black.Code(y, x, p), bits == 2 ? 3u : 1u);
    // An odd-height band leaves nothing in the carry row; an even one carries its last row.
    ASSERT_EQ(Halftone(*e, m, grey, 0), 0);
    for (std::size_t i = 0; i < 18; ++i) EXPECT_EQ(e->rows.carry_all()[i], 0);
    ASSERT_EQ(Halftone(*e, m, grey2, 0), 0);
    int nonzero = 0;
    for (std::size_t i = 0; i < 18; ++i) nonzero += e->rows.carry_all()[i] != 0;
    EXPECT_GT(nonzero, 0);
  }
}

TEST(LevelBiasFamily, SeedsOnlyAtTheStartOfAJob) {
  // Mid-tones draw a bit at most pixels; a later band continues the sequence whatever the clock says.
  auto run = [](long long second_band_time) {
    auto e = MakeEngine(5000);
    TestBand b(40, 6, 1, [](std::size_t x, std::size_t y, unsigned) { return 100 + (x * 3 + y * 7) % 80; }, 2);
    EXPECT_EQ(Halftone(*e, LevelBiasMember::kFourLevel, b, kPhaseStart), 0);
    e->clock.SetFixed(second_band_time);
    EXPECT_EQ(Halftone(*e, LevelBiasMember::kFourLevel, b, 0), 0);
    return b.dst;
  };
  EXPECT_EQ(run(5000), run(123456));
}

}  // namespace
}  // namespace halftone
