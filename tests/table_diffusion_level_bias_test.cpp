// Level-keyed bias diffusion (16-bit rows): hand-worked bands, carry presets, rounding of
// negative shares, seeding and the job contract.
#include <gtest/gtest.h>

#include "table_diffusion_support.h"
#include "tablediffusion/integer_diffusion.h"

namespace halftone {
namespace {

using namespace halftone::testing;

constexpr unsigned kStart = 1, kMiddle = 0;

TEST(LevelBiasTables, AnchorValues) {
  // Four-level: rises with the level to 54, flat to 215, hand-set fall to 0.
  EXPECT_EQ(kFourLevelBias[10], 10);
  EXPECT_EQ(kFourLevelBias[54], 54);
  EXPECT_EQ(kFourLevelBias[100], 54);
  EXPECT_EQ(kFourLevelBias[215], 54);
  EXPECT_EQ(kFourLevelBias[216], 53);
  EXPECT_EQ(kFourLevelBias[220], 46);
  EXPECT_EQ(kFourLevelBias[243], 20);
  EXPECT_EQ(kFourLevelBias[244], 18);
  EXPECT_EQ(kFourLevelBias[255], 0);
  // Wide bilevel: quiet to 104, ramp v - 96, plateau 31, 254 - v.
  EXPECT_EQ(kBilevelWideBias[104], 0);
  EXPECT_EQ(kBilevelWideBias[105], 9);
  EXPECT_EQ(kBilevelWideBias[127], 31);
  EXPECT_EQ(kBilevelWideBias[200], 31);
  EXPECT_EQ(kBilevelWideBias[224], 30);
  EXPECT_EQ(kBilevelWideBias[254], 0);
  EXPECT_EQ(kBilevelWideBias[255], 0);
  // Clipped tents.
  EXPECT_EQ(kBilevelHalvesBias[20], 20);
  EXPECT_EQ(kBilevelHalvesBias[128], 31);
  EXPECT_EQ(kBilevelHalvesBias[250], 5);
  EXPECT_EQ(kBilevelLightBias[7], 7);
  EXPECT_EQ(kBilevelLightBias[128], 8);
  EXPECT_EQ(kBilevelLightBias[255], 0);
}

// Four levels, light band (220 is at or above both direction limits), first band of a job.
// Bias byte of 220 is 46: forward rows add it at even x, backward rows at odd x.
TEST(LevelBiasFourLevel, HandWorkedLightBand) {
  auto e = MakeEngine();
  auto src = Flat(4, 2, 1, 220);
  auto dst = OutputFor(4, 2, 1, 2);
  ASSERT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kFourLevel, src.data(), dst.data(), 4, 2, Flags(1, kStart)), 0);
  // Row 0, forward, A = -13 everywhere (carry preset):
  //  x0: s=207 code 0, e=-48+46=-2; even: ahead trunc(-4/3)=-1, down -1.  A1=-14
  //  x1: s=206 code 0, e=-49;       odd: ahead floor(-147/4)=-37, down -12. A2=-50
  //  x2: s=170 code 1, e=0+46=46;   even: ahead trunc(92/3)=30, down 16.   A3=17
  //  x3: s=237 code 0, e=-18;       odd: ahead floor(-54/4)=-14 (dropped), down -4.
  EXPECT_EQ(dst[0], 0x04);  // only x2 has a dot (code 1)
  // Row 1, backward and last, B = [-1, -12, 16, -4]; downs go to the carry row:
  //  x3: s=216 code 0, e=-39+46=7; odd: ahead floor(21/4)=5, down 2.       B2=21
  //  x2: s=241 code 0, e=-14;      even: ahead trunc(-28/3)=-9, down -5.   B1=-21
  //  x1: s=199 code 0, e=-56+46=-10; odd: ahead floor(-30/4)=-8, down -2.  B0=-9
  //  x0: s=211 code 0, e=-44;      even: ahead trunc(-88/3)=-29 (dropped), down -15.
  EXPECT_EQ(dst[4], 0x00);
  const std::int16_t* carry = e->rows.carry_all();
  EXPECT_EQ(carry[0], -15);
  EXPECT_EQ(carry[1], -2);
  EXPECT_EQ(carry[2], -5);
  EXPECT_EQ(carry[3], 2);
}

TEST(LevelBiasFourLevel, PresetDecidesFirstPixel) {
  // s = v - 13: 77 reaches the threshold 64 exactly (code 3), 78 does not (code 2).
  for (auto [v, code] : {std::pair{77, 3u}, std::pair{78, 2u}}) {
    auto e = MakeEngine();
    auto src = Flat(1, 1, 1, v);
    auto dst = OutputFor(1, 1, 1, 2);
    ASSERT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kFourLevel, src.data(), dst.data(), 1, 1, Flags(1, kStart)), 0);
    EXPECT_EQ(Code2(dst.data(), 0), code) << "level " << v;
  }
}

TEST(LevelBiasBilevel, CarryPresetsShiftTheFirstThreshold) {
  // The highest level that still prints at the first pixel of a job is 128 - preset.
  struct Case {
    LevelBiasMember member;
    int last_dot_level;
  };
  for (const Case c : {Case{LevelBiasMember::kBilevelWide, 153}, Case{LevelBiasMember::kBilevelHalves, 163},
                       Case{LevelBiasMember::kBilevelLight, 128}, Case{LevelBiasMember::kBilevelHalving, 128}}) {
    for (int v : {c.last_dot_level, c.last_dot_level + 1}) {
      auto e = MakeEngine();
      auto src = Flat(1, 1, 1, v);
      auto dst = OutputFor(1, 1, 1, 1);
      ASSERT_EQ(LevelBiasDiffusion(*e, c.member, src.data(), dst.data(), 1, 1, Flags(1, kStart)), 0);
      EXPECT_EQ(Dot(dst.data(), 0), v == c.last_dot_level) << "member " << static_cast<int>(c.member) << " v " << v;
    }
  }
}

TEST(LevelBiasBilevel, FloorAndTruncationDifferOnOddNegativeErrors) {
  {
    // Plain halving truncates: e = 252 - 255 = -3, ahead -1 (dropped at the row end), down -2.
    auto e = MakeEngine();
    auto src = Flat(1, 1, 1, 252);
    auto dst = OutputFor(1, 1, 1, 1);
    ASSERT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kBilevelHalving, src.data(), dst.data(), 1, 1, Flags(1, kStart)),
              0);
    EXPECT_EQ(e->rows.b()[0], -2);
  }
  {
    // Carry -35, forward row, no bias on forward rows:
    //  x0 (252): s=217, e=-38; light band even: ahead trunc(-76/3)=-25, down -13. A1=-60
    //  x1 (254): s=194, e=-61; light band odd: ahead floor(-61/2)=-31, down -30.
    auto e = MakeEngine();
    auto src = MakeSource(2, 1, 1, [](std::size_t x, std::size_t, unsigned) { return x == 0 ? 252 : 254; });
    auto dst = OutputFor(2, 1, 1, 1);
    ASSERT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kBilevelHalves, src.data(), dst.data(), 2, 1, Flags(1, kStart)),
              0);
    EXPECT_EQ(e->rows.b()[0], -13);
    EXPECT_EQ(e->rows.b()[1], -30);
    EXPECT_EQ(dst[0], 0x00);
  }
}

TEST(LevelBiasFamily, BlackPrintsEverywhereAndOnlyEvenBandsCarry) {
  for (auto m : {LevelBiasMember::kFourLevel, LevelBiasMember::kBilevelWide, LevelBiasMember::kBilevelHalves,
                 LevelBiasMember::kBilevelLight, LevelBiasMember::kBilevelHalving}) {
    const unsigned bits = m == LevelBiasMember::kFourLevel ? 2 : 1;
    auto e = MakeEngine();
    auto black = Flat(9, 4, 2, 0);
    auto dst = OutputFor(9, 4, 2, bits);
    ASSERT_EQ(LevelBiasDiffusion(*e, m, black.data(), dst.data(), 9, 4, Flags(2, kStart)), 0);
    for (std::size_t r = 0; r < 8; ++r)
      for (std::size_t x = 0; x < 9; ++x) {
        const std::uint8_t* row = dst.data() + r * DotStride(9, bits);
        if (bits == 2)
          EXPECT_EQ(Code2(row, x), 3u);
        else
          EXPECT_TRUE(Dot(row, x));
      }
    // An odd-height band leaves nothing in the carry row; an even one carries its last row.
    auto grey = Flat(9, 1, 2, 150);
    ASSERT_EQ(LevelBiasDiffusion(*e, m, grey.data(), dst.data(), 9, 1, Flags(2, kMiddle)), 0);
    for (std::size_t i = 0; i < 18; ++i) EXPECT_EQ(e->rows.carry_all()[i], 0);
    auto grey2 = Flat(9, 2, 2, 150);
    ASSERT_EQ(LevelBiasDiffusion(*e, m, grey2.data(), dst.data(), 9, 2, Flags(2, kMiddle)), 0);
    int nonzero = 0;
    for (std::size_t i = 0; i < 18; ++i) nonzero += e->rows.carry_all()[i] != 0;
    EXPECT_GT(nonzero, 0);
  }
}

TEST(LevelBiasFamily, SeedsOnlyAtTheStartOfAJob) {
  // Mid-tones draw a bit at most pixels; a later band must continue the same sequence whatever
  // the clock says by then.
  auto run = [](long long second_band_time) {
    auto e = MakeEngine(5000);
    auto src = MakeSource(40, 6, 1, [](std::size_t x, std::size_t y, unsigned) { return 100 + (x * 3 + y * 7) % 80; });
    std::vector<std::uint8_t> dst(DotStride(40, 2) * 6);
    EXPECT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kFourLevel, src.data(), dst.data(), 40, 6, Flags(1, kStart)), 0);
    e->clock.SetFixed(second_band_time);
    EXPECT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kFourLevel, src.data(), dst.data(), 40, 6, Flags(1, kMiddle)), 0);
    return dst;
  };
  EXPECT_EQ(run(5000), run(123456));
}

TEST(LevelBiasFamily, RefusesBandsOutsideTheJob) {
  auto e = MakeEngine();
  auto src = Flat(8, 2, 1, 0);
  auto dst = OutputFor(8, 2, 1, 1);
  const auto untouched = dst;
  EXPECT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kBilevelWide, src.data(), dst.data(), 8, 2, Flags(1, kMiddle)),
            kErrOutOfContract);
  EXPECT_EQ(dst, untouched);
  ASSERT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kBilevelWide, src.data(), dst.data(), 4, 2, Flags(1, kStart)), 0);
  auto dst2 = OutputFor(8, 2, 1, 1);
  EXPECT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kBilevelWide, src.data(), dst2.data(), 8, 2, Flags(1, kMiddle)),
            kErrOutOfContract);
  EXPECT_EQ(dst2, untouched);
  // After the last band the rows are gone.
  ASSERT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kBilevelWide, src.data(), dst.data(), 4, 2, Flags(1, 3)), 0);
  EXPECT_EQ(LevelBiasDiffusion(*e, LevelBiasMember::kBilevelWide, src.data(), dst.data(), 4, 2, Flags(1, kMiddle)),
            kErrOutOfContract);
}

}  // namespace
}  // namespace halftone
