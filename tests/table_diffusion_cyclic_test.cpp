// Cyclic one-neighbour diffusion: the 13-step cycle, its persistence across bands, the last
// row's different limit and the per-plane state bound.
#include <gtest/gtest.h>

#include "tablediffusion/integer_diffusion.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

int Halftone(Engine& e, TestBand& b, unsigned phase) {
  return b.Run([&](auto... a) { return CyclicDiffusion(e, a...); }, phase);
}

// Width 14, counter from 0: inner pixels x0..x5 step to c=1..6 (down), x6..x11 to c=7..12
// (ahead), x12 to c=0 (down); the row end x13 steps to c=1 (<= 5: down).
TEST(CyclicDiffusion, HandWorkedTwoRowBand) {
  auto e = MakeEngine();
  TestBand b(14, 2, 1, [](std::size_t, std::size_t y, unsigned) { return y == 0 ? 64 : 100; });
  ASSERT_EQ(Halftone(*e, b, kPhaseStart), 0);
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
  ASSERT_EQ(Halftone(*e, b, kPhaseStart), 0);
  EXPECT_EQ(b.dst[0], 0xE0);
  ExpectCells<int>(e->rows.carry_all(), {{0, 64}, {1, 64}, {2, 0}});
  EXPECT_EQ(e->cycle_counter[0], 2);
  EXPECT_NE(e->cycle_direction[0], 0u);  // the next band starts backward
}

TEST(CyclicDiffusion, WidthOneRowEndsKeepErrorOnlyEarlyInTheCycle) {
  // Row r's only pixel is a row end stepping to c = (r + 1) mod 13: down while c <= 5, else dropped.
  auto e = MakeEngine();
  TestBand b(1, 27, 1, 200);
  ASSERT_EQ(Halftone(*e, b, kPhaseStart), 0);
  // Rows 0..4 (c=1..5) pass down: s = 200, 145, 90 (dot, e=90), 290, 235, then row 5 sees 180.
  EXPECT_FALSE(b.Dot(0, 0));
  EXPECT_FALSE(b.Dot(1, 0));
  EXPECT_TRUE(b.Dot(2, 0));
  EXPECT_FALSE(b.Dot(3, 0));
  // Row 5 (c=6) drops its -75 (a limit of 6 would make row 6 see 125 and print); rows 6..12 see 200.
  for (std::size_t r = 6; r <= 12; ++r) EXPECT_FALSE(b.Dot(r, 0)) << r;
}

TEST(CyclicDiffusion, WhiteStaysWhiteBlackPrints) {
  for (auto [v, density] : {std::pair{255, 0.0}, std::pair{0, 1.0}}) {
    auto e = MakeEngine();
    TestBand b(17, 5, 2, v);
    ASSERT_EQ(Halftone(*e, b, kPhaseStart), 0);
    EXPECT_EQ(b.Density(), density) << v;
  }
}

TEST(CyclicDiffusion, BandAfterAnOddBandResumesBackwardFromTheOldRow) {
  // Five white rows leave the scan backward; the black band's row 0 is then read from row B,
  // still white from the previous band, so prints nothing; its row 1 runs forward and prints.
  auto e = MakeEngine();
  TestBand white(9, 5, 1, 255), black(9, 2, 1, 0);
  ASSERT_EQ(Halftone(*e, white, kPhaseStart), 0);
  ASSERT_NE(e->cycle_direction[0], 0u);
  ASSERT_EQ(Halftone(*e, black, 0), 0);
  for (std::size_t x = 0; x < 9; ++x) {
    EXPECT_FALSE(black.Dot(0, x)) << x;
    EXPECT_TRUE(black.Dot(1, x)) << x;
  }
}

TEST(CyclicDiffusion, StartOfJobResetsTheCycle) {
  auto e = MakeEngine();
  TestBand first(5, 3, 1, 90), again(5, 3, 1, 90);
  ASSERT_EQ(Halftone(*e, first, kPhaseStart), 0);
  ASSERT_EQ(Halftone(*e, again, 0), 0);
  ASSERT_EQ(Halftone(*e, again, kPhaseStart), 0);
  EXPECT_EQ(first.dst, again.dst);
}

TEST(CyclicDiffusion, RefusesMorePlanesThanItsStateHolds) {
  auto e = MakeEngine();
  TestBand b(4, 2, 5, 0);
  const auto untouched = b.dst;
  EXPECT_EQ(Halftone(*e, b, kPhaseStart), kErrOutOfContract);
  EXPECT_EQ(b.dst, untouched);
  EXPECT_FALSE(e->rows.live());
  EXPECT_EQ(CyclicDiffusion(*e, b.src.data(), b.dst.data(), 4, 2, HalftoneFlags{Flags(4, kPhaseStart)}), 0);
}

}  // namespace
}  // namespace halftone
