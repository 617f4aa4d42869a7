// The 16-bit table-driven diffusions, hand-worked: the cyclic one-neighbour routine (its 13-step
// cycle across bands, the last row's limit, the per-plane state bound), the level-modulated
// halving routines (layer term, tile restarts, negative halves, the curve-biased sibling), the
// level-keyed bias routines (carry presets, rounding of negative shares, seeding) and the
// level-restricted routines (level pairs, top-level split, matrix periods, random splits).
#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "tablediffusion/integer_diffusion.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;
using M = LevelRestrictedMember;

int Cyclic(Engine& e, TestBand& b, unsigned phase) {
  return b.Run([&](auto... a) { return CyclicDiffusion(e, a...); }, phase);
}
int Layered(Engine& e, TestBand& b, unsigned phase, LayerModulatedMember m = LayerModulatedMember::kLayerTiles) {
  return b.Run([&](auto... a) { return LayerModulatedDiffusion(e, m, a...); }, phase);
}
int Halftone(Engine& e, LevelBiasMember m, TestBand& b, unsigned phase) {
  return b.Run([&](auto... a) { return LevelBiasDiffusion(e, m, a...); }, phase);
}
int Halftone(Engine& e, M m, TestBand& b, unsigned phase = kPhaseStart) {
  return b.Run([&](auto... a) { return LevelRestrictedDiffusion(e, m, a...); }, phase);
}

std::unique_ptr<Engine> EngineWithLevels() {
  auto e = MakeEngine();
  e->levels.L = {0, 85, 170, 255};
  return e;
}

// Width 14, counter from 0: inner pixels x0..x5 step to c=1..6 (down), x6..x11 to c=7..12
// (ahead), x12 to c=0 (down); the row end x13 steps to c=1 (<= 5: down).
TEST(CyclicDiffusion, HandWorkedTwoRowBand) {
  auto e = MakeEngine();
  TestBand b(14, 2, 1, [](std::size_t, std::size_t y, unsigned) { return y == 0 ? 64 : 100; });
  ASSERT_EQ(Cyclic(*e, b, kPhaseStart), 0);
  // Row 0, forward over A = 64: x0..x5 dots, e=64 down -> B = 164.
  //  x6 dot, 64 ahead -> A7=128: dot (128 <= 128), 128 ahead -> A8=192: e=-63 ahead -> A9=1: dot,
  //  1 ahead -> A10=65: dot, 65 ahead -> A11=129: e=-126 ahead -> A12=-62: dot, c=0 down -> B12=38.
  //  x13: dot, c=1, down -> B13=164.  Dots: x0..x7, x9, x10, x12, x13.
  EXPECT_EQ(b.dst[0], 0xFF);
  EXPECT_EQ(b.dst[1], 0x6C);
  // Row 1 is the last row and runs backward over B = [164 x6, 100 x6, 38, 164], c from 1:
  //  x13: e=-91 c=2 kept; x12: dot e=38 c=3 kept; x11, x10: dots e=100 c=4, 5 kept;
  //  x9: dot c=6 ahead -> B8=200: e=-55 c=7 ahead -> B7=45: dot c=8 ahead -> B6=145: e=-110
  //  c=9 ahead -> B5=54: dot c=10 ahead -> B4=218: e=-37 c=11 ahead -> B3=127: dot c=12 ahead
  //  -> B2=291: e=36 c=0 kept; x1: 164, e=-91 c=1 kept; x0: 164, no dot and nothing else.
  EXPECT_EQ(b.dst[4], 0x15);  // x3, x5, x7
  EXPECT_EQ(b.dst[5], 0x78);  // x9 .. x12
  const std::int16_t expected_carry[14] = {0, -91, 36, 0, 0, 0, 0, 0, 0, 0, 100, 100, 38, -91};
  for (std::size_t x = 0; x < 14; ++x) EXPECT_EQ(e->rows.carry_all()[x], expected_carry[x]) << x;
  // The cycle and the direction run on into the next band.
  EXPECT_EQ(e->cycle_counter[0], 1);
  EXPECT_EQ(e->cycle_direction[0], 0u);
}

TEST(CyclicDiffusion, SingleRowBandKeepsWhatDoesNotGoAhead) {
  // rows = 1: only the last-row pass runs. c=1, 2 keep 64 each; the row end only sets its dot.
  auto e = MakeEngine();
  TestBand b(3, 1, 1, 64);
  ASSERT_EQ(Cyclic(*e, b, kPhaseStart), 0);
  EXPECT_EQ(b.dst[0], 0xE0);
  ExpectCells<int>(e->rows.carry_all(), {{0, 64}, {1, 64}, {2, 0}});
  EXPECT_EQ(e->cycle_counter[0], 2);
  EXPECT_NE(e->cycle_direction[0], 0u);  // the next band starts backward
}

TEST(CyclicDiffusion, WidthOneRowEndsKeepErrorOnlyEarlyInTheCycle) {
  // Row r's only pixel is a row end stepping to c = (r + 1) mod 13: down while c <= 5, else dropped.
  auto e = MakeEngine();
  TestBand b(1, 27, 1, 200);
  ASSERT_EQ(Cyclic(*e, b, kPhaseStart), 0);
  // Rows 0..4 (c=1..5) pass down: s = 200, 145, 90 (dot, e=90), 290, 235, then row 5 sees 180.
  EXPECT_FALSE(b.Dot(0, 0));
  EXPECT_FALSE(b.Dot(1, 0));
  EXPECT_TRUE(b.Dot(2, 0));
  EXPECT_FALSE(b.Dot(3, 0));
  // Row 5 (c=6) drops its -75 (a limit of 6 would make row 6 see 125 and print); rows 6..12 see 200.
  for (std::size_t r = 6; r <= 12; ++r) EXPECT_FALSE(b.Dot(r, 0)) << r;
}

TEST(CyclicDiffusion, BandAfterAnOddBandResumesBackwardFromTheOldRow) {
  // Five white rows leave the scan backward; the black band's row 0 is then read from row B,
  // still white from the previous band, so prints nothing; its row 1 runs forward and prints.
  auto e = MakeEngine();
  TestBand white(9, 5, 1, 255), black(9, 2, 1, 0);
  ASSERT_EQ(Cyclic(*e, white, kPhaseStart), 0);
  ASSERT_NE(e->cycle_direction[0], 0u);
  ASSERT_EQ(Cyclic(*e, black, 0), 0);
  for (std::size_t x = 0; x < 9; ++x) {
    EXPECT_FALSE(black.Dot(0, x)) << x;
    EXPECT_TRUE(black.Dot(1, x)) << x;
  }
}

TEST(CyclicDiffusion, RefusesMorePlanesThanItsStateHolds) {
  auto e = MakeEngine();
  TestBand b(4, 2, 5, 0);
  const auto untouched = b.dst;
  EXPECT_EQ(Cyclic(*e, b, kPhaseStart), kErrOutOfContract);
  EXPECT_EQ(b.dst, untouched);
  EXPECT_FALSE(e->rows.live());
  EXPECT_EQ(CyclicDiffusion(*e, b.src.data(), b.dst.data(), 4, 2, HalftoneFlags{Flags(4, kPhaseStart)}), 0);
}

TEST(LayerModulated, MidGreyHalvesItsError) {
  // Zero layer table, level 128: x0 s=128 dot, e=128: 64 ahead, 64 down.
  // x1 s=192, e=-63: ahead trunc(-63/2)=-31 (dropped), down -32.
  auto e = MakeEngine();
  TestBand b(2, 1, 1, 128);
  ASSERT_EQ(Layered(*e, b, kPhaseStart), 0);
  EXPECT_EQ(b.dst[0], 0x80);
  ExpectCells<int>(e->rows.b(), {{0, 64}, {1, -32}});
}

TEST(LayerModulated, NegativeTermPrintsOnWhiteAndIsDiffused) {
  // Level 255 with a term of -200 at tile (0, 0): s=55, a dot, and e=55 moves on:
  // row 0: down 55 - 27 = 28. Row 1 (backward, last): s=255+28=283, e=28, down 14 -> carry.
  auto e = MakeEngine();
  e->tables.layers[255][0][0] = -200;
  TestBand b(1, 2, 1, 255);
  ASSERT_EQ(Layered(*e, b, kPhaseStart), 0);
  EXPECT_EQ(b.dst[0], 0x80);
  EXPECT_EQ(b.dst[4], 0x00);
  EXPECT_EQ(e->rows.carry_all()[0], 14);
}

TEST(LayerModulated, TileRestartsWithEveryBand) {
  // White with one strongly negative tile row (3): the dot lands on row 3 of the band that
  // holds it, so splitting eight rows as 2 + 6 moves it from page row 3 to page row 5.
  auto dot_rows = [](std::initializer_list<std::size_t> heights) {
    auto e = MakeEngine();
    e->tables.layers[255][3][0] = -300;
    std::vector<std::size_t> rows_with_dots;
    std::size_t page_row = 0;
    for (std::size_t h : heights) {
      TestBand b(1, h, 1, 255);
      EXPECT_EQ(Layered(*e, b, page_row == 0 ? kPhaseStart : 0), 0);
      for (std::size_t r = 0; r < h; ++r)
        if (b.Dot(r, 0)) rows_with_dots.push_back(page_row + r);
      page_row += h;
    }
    return rows_with_dots;
  };
  EXPECT_EQ(dot_rows({8}), std::vector<std::size_t>{3});
  EXPECT_EQ(dot_rows({2, 6}), std::vector<std::size_t>{5});
}

// At 1002 s the first two-bit draws are 0, 1, 1, 3 (pinned by the RandomBitSource tests).
TEST(LayerModulated, HandWorkedCurveBiasRow) {
  auto e = MakeEngine(1002);
  TestBand b(4, 1, 1, 100);
  ASSERT_EQ(Layered(*e, b, kPhaseStart, LayerModulatedMember::kCurveBias), 0);
  // Level 100 (<= 140), zero curves:
  //  x0 q=0: s=100 dot, e=100: down 33, ahead 67.
  //  x1 q=1: s=167, e=-88: all down.
  //  x2 q=1: s=100 dot, e=100: all down.
  //  x3 q=3: s=100 dot, e=100: all ahead (dropped), down 0.
  EXPECT_EQ(b.dst[0], 0xB0);
  const std::int16_t expected[4] = {33, -88, 100, 0};
  for (std::size_t x = 0; x < 4; ++x) EXPECT_EQ(e->rows.b()[x], expected[x]) << x;
}

// Light band (v >= 176): one-bit draws 0, 1, 1, 1 at time 1002; curve A = 30, curve B = 20.
// Curve B is added at even x of forward rows, curve A at odd x of backward rows.
TEST(LayerModulated, HandWorkedCurveColumns) {
  auto e = MakeEngine(1002);
  SetFlatCurves(*e, 30, 20);
  TestBand b(2, 2, 1, 200);
  ASSERT_EQ(Layered(*e, b, kPhaseStart, LayerModulatedMember::kCurveBias), 0);
  // Row 0 forward: x0 bit 0: s=200, e=-55+20=-35: ahead trunc(-35/3)=-11, down -24.
  //                x1 bit 1: s=189, e=-66: down trunc(-66/3)=-22 (ahead dropped).
  // Row 1 backward, last, B = [-24, -22]:
  //                x1 bit 1: s=178, e=-77+30=-47: down -15 -> carry, ahead -32 -> B0=-56.
  //                x0 bit 1: s=144, e=-111: down -37 -> carry.
  ExpectCells<int>(b.dst, {{0, 0}, {4, 0}});
  ExpectCells<int>(e->rows.carry_all(), {{0, -37}, {1, -15}});
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

TEST(LevelBiasFamily, CarryPresetsShiftTheFirstThreshold) {
  // The highest level that still takes the darkest code at the first pixel of a job: 64 + 13
  // for four levels (the threshold reached exactly), 128 - preset for the bilevel members.
  for (auto [m, last_dark_level] : {std::pair{LevelBiasMember::kFourLevel, 77}, std::pair{LevelBiasMember::kBilevelWide, 153},
                                    std::pair{LevelBiasMember::kBilevelHalves, 163}, std::pair{LevelBiasMember::kBilevelLight, 128},
                                    std::pair{LevelBiasMember::kBilevelHalving, 128}}) {
    const unsigned bits = m == LevelBiasMember::kFourLevel ? 2 : 1, darkest = (1u << bits) - 1;
    for (int v : {last_dark_level, last_dark_level + 1}) {
      auto e = MakeEngine();
      TestBand b(1, 1, 1, v, bits);
      ASSERT_EQ(Halftone(*e, m, b, kPhaseStart), 0);
      EXPECT_EQ(b.Code(0, 0), v == last_dark_level ? darkest : darkest - 1) << "member " << static_cast<int>(m) << " v " << v;
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

TEST(LevelRestricted, PairsFollowTheInputLevel) {
  // Levels 0/85/170/255, midpoints 42/127/212, no matrix term, zero curves:
  //  x0: 85 (<= L1) pair 3/2 split 42: s=85 -> code 2, e=0.
  //  x1: 86 (pair 2/1 split 127): s=86 -> code 2, e=1; ahead trunc(1/2)=0.
  //  x2: 171 (pair 1/0 split 212): s=171 -> code 1.
  auto e = EngineWithLevels();
  TestBand b(3, 1, 1, [](std::size_t x, std::size_t, unsigned) { return x == 0 ? 85 : x == 1 ? 86 : 171; }, 2);
  ASSERT_EQ(Halftone(*e, M::kMatrixFourLevel, b), 0);
  EXPECT_EQ(b.dst[0], 0xA4);  // codes 2, 2, 1
}

TEST(LevelRestricted, TopLevelSplitsAtTheMiddleMidpoint) {
  // The matrix entry brings s to 150: level 255 splits at 127 (code 0), 254 at 212 (code 1).
  for (auto [v, code] : {std::pair{255, 0u}, std::pair{254, 1u}}) {
    auto e = EngineWithLevels();
    e->tables.bias[0][0] = static_cast<std::int16_t>(150 - v);
    TestBand b(1, 1, 1, v, 2);
    ASSERT_EQ(Halftone(*e, M::kMatrixFourLevel, b), 0);
    EXPECT_EQ(b.Code(0, 0), code) << v;
  }
}

TEST(LevelRestricted, ErrorNeverLeavesThePair) {
  // However much error a dark or light input collects, it only ever takes one of its two codes.
  for (auto m : {M::kMatrixFourLevel, M::kRandomFourLevel}) {
    for (auto [v, bias, allowed_dark] : {std::tuple{50, 1000, 3u}, std::tuple{200, -1000, 1u}}) {
      auto e = EngineWithLevels();
      for (auto& row : e->tables.bias) row.fill(static_cast<std::int16_t>(bias));
      for (auto& c : e->curves.slots[0]) c = 40;  // curve terms pile up error too
      TestBand b(21, 6, 1, v, 2);
      ASSERT_EQ(Halftone(*e, m, b), 0);
      for (std::size_t r = 0; r < 6; ++r)
        for (std::size_t x = 0; x < 21; ++x) {
          const unsigned code = b.Code(r, x);
          EXPECT_TRUE(code == allowed_dark || code == allowed_dark - 1) << "v " << v << " code " << code;
        }
    }
  }
}

TEST(LevelRestricted, MatrixPeriods) {
  // One strongly negative matrix entry at [0][0], on white: only the columns that map to matrix
  // column 0 print; the error a printed column passes on dies out long before the next.
  auto e = EngineWithLevels();
  e->tables.bias[0][0] = -200;
  TestBand four(257, 1, 1, 255, 2), two(257, 1, 1, 255);
  ASSERT_EQ(Halftone(*e, M::kMatrixFourLevel, four), 0);
  EXPECT_EQ(four.Code(0, 0), 1u);
  EXPECT_EQ(four.Code(0, 240), 0u);
  EXPECT_EQ(four.Code(0, 256), 1u);
  e = EngineWithLevels();
  e->tables.bias[0][0] = -200;
  ASSERT_EQ(Halftone(*e, M::kMatrixBilevel, two), 0);
  for (std::size_t x = 0; x < 257; ++x) EXPECT_EQ(two.Dot(0, x), x == 0 || x == 240) << x;
}

// Bilevel, period-240 matrix; level 100, curve A[100] = 10, curve B[100] = 20, matrix[1][1] = 7.
// Forward rows add curve B at even x and send trunc(e/3) down; backward rows add curve A at odd
// x and send trunc(2e/3) ahead.
TEST(LevelRestricted, HandWorkedBilevelMatrixBand) {
  auto e = MakeEngine();
  SetFlatCurves(*e, 10, 20);
  e->tables.bias[1][1] = 7;
  TestBand b(3, 2, 1, 100);
  ASSERT_EQ(Halftone(*e, M::kMatrixBilevel, b), 0);
  // Row 0, A = 0:
  //  x0: s=100 dot, e=100+20=120: down 40, ahead 80.     B0 = 0 + 40
  //  x1: s=180, e=-75: down trunc(-25)=-25, ahead -50.   B1 = 7 - 25 = -18
  //  x2: s=50 dot, e=50+20=70: down 23 (ahead dropped).  B2 = 23
  EXPECT_EQ(b.dst[0], 0xA0);
  // Row 1, backward and last, B = [40, -18, 23]:
  //  x2: s=123 dot, e=123: ahead 82, down 41 -> carry.   B1 = 64
  //  x1: s=164, e=-91+10=-81: ahead -54, down -27.        B0 = -14
  //  x0: s=86 dot, e=86: ahead 57 dropped, down 29.
  EXPECT_EQ(b.dst[4], 0xA0);
  ExpectCells<int>(e->rows.carry_all(), {{0, 29}, {1, -27}, {2, 41}});
}

// At 1002 s the first one-bit draws are 0, 1, 1 (pinned by the RandomBitSource tests).
TEST(LevelRestricted, HandWorkedRandomBilevelRow) {
  auto e = MakeEngine(1002);
  TestBand b(3, 1, 1, 100);
  ASSERT_EQ(Halftone(*e, M::kRandomBilevel, b), 0);
  // Forward row, no curve terms forward:
  //  x0 bit 0: s=100 dot, e=100: down trunc(300/4)=75, ahead 25.
  //  x1 bit 1: s=125 dot, e=125: down trunc(125/3)=41, ahead 84.
  //  x2 bit 1: s=184, e=-71: down trunc(-71/3)=-23.
  EXPECT_EQ(b.dst[0], 0xC0);
  ExpectCells<int>(e->rows.b(), {{0, 75}, {1, 41}, {2, -23}});
}

TEST(LevelRestricted, ReseedsEveryBand) {
  // The random four-level member reseeds from the clock at every call: the same band at two
  // different times differs, at the same time it repeats.
  auto run = [](long long t) {
    auto e = EngineWithLevels();
    TestBand b(64, 4, 1, [](std::size_t x, std::size_t, unsigned) { return 60 + x; }, 2);
    EXPECT_EQ(Halftone(*e, M::kRandomFourLevel, b), 0);
    e->clock.SetFixed(t);
    EXPECT_EQ(Halftone(*e, M::kRandomFourLevel, b, 0), 0);
    return b.dst;
  };
  EXPECT_EQ(run(1002), run(1002));
  EXPECT_NE(run(1002), run(99));
}

}  // namespace
}  // namespace halftone
