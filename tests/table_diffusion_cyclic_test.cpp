// Cyclic one-neighbour diffusion: the 13-step cycle, its persistence across bands, the last
// row's different limit and the per-plane state bound.
#include <gtest/gtest.h>

#include "table_diffusion_support.h"
#include "tablediffusion/integer_diffusion.h"

namespace halftone {
namespace {

using namespace halftone::testing;

constexpr unsigned kStart = 1, kMiddle = 0;

// Width 14, counter from 0: inner pixels x0..x5 step to c=1..6 (down), x6..x11 to c=7..12
// (ahead), x12 to c=0 (down); the row end x13 steps to c=1 (<= 5: down).
TEST(CyclicDiffusion, HandWorkedTwoRowBand) {
  auto e = MakeEngine();
  auto src = MakeSource(14, 2, 1, [](std::size_t, std::size_t y, unsigned) { return y == 0 ? 64 : 100; });
  auto dst = OutputFor(14, 2, 1, 1);
  ASSERT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 14, 2, Flags(1, kStart)), 0);
  // Row 0, forward over A = 64: x0..x5 dots, e=64 down -> B = 164.
  //  x6 dot, 64 ahead -> A7=128: dot (128 <= 128), 128 ahead -> A8=192: e=-63 ahead -> A9=1: dot,
  //  1 ahead -> A10=65: dot, 65 ahead -> A11=129: e=-126 ahead -> A12=-62: dot, c=0 down -> B12=38.
  //  x13: dot, c=1, down -> B13=164.  Dots: x0..x7, x9, x10, x12, x13.
  EXPECT_EQ(dst[0], 0xFF);
  EXPECT_EQ(dst[1], 0x6C);
  // Row 1 is the last row and runs backward over B = [164 x6, 100 x6, 38, 164], c from 1:
  //  x13: e=-91 c=2 kept; x12: dot e=38 c=3 kept; x11, x10: dots e=100 c=4, 5 kept;
  //  x9: dot c=6 ahead -> B8=200: e=-55 c=7 ahead -> B7=45: dot c=8 ahead -> B6=145: e=-110
  //  c=9 ahead -> B5=54: dot c=10 ahead -> B4=218: e=-37 c=11 ahead -> B3=127: dot c=12 ahead
  //  -> B2=291: e=36 c=0 kept; x1: 164, e=-91 c=1 kept; x0: 164, no dot and nothing else.
  EXPECT_EQ(dst[4], 0x15);  // x3, x5, x7
  EXPECT_EQ(dst[5], 0x78);  // x9 .. x12
  const std::int16_t expected_carry[14] = {0, -91, 36, 0, 0, 0, 0, 0, 0, 0, 100, 100, 38, -91};
  for (std::size_t x = 0; x < 14; ++x) EXPECT_EQ(e->rows.carry_all()[x], expected_carry[x]) << x;
  // The cycle and the direction run on into the next band.
  EXPECT_EQ(e->cycle_counter[0], 1);
  EXPECT_EQ(e->cycle_direction[0], 0u);
}

TEST(CyclicDiffusion, SingleRowBandKeepsWhatDoesNotGoAhead) {
  // rows = 1: only the last-row pass runs. c=1, 2 keep 64 each; the row end only sets its dot.
  auto e = MakeEngine();
  auto src = Flat(3, 1, 1, 64);
  auto dst = OutputFor(3, 1, 1, 1);
  ASSERT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 3, 1, Flags(1, kStart)), 0);
  EXPECT_EQ(dst[0], 0xE0);
  EXPECT_EQ(e->rows.carry_all()[0], 64);
  EXPECT_EQ(e->rows.carry_all()[1], 64);
  EXPECT_EQ(e->rows.carry_all()[2], 0);
  EXPECT_EQ(e->cycle_counter[0], 2);
  EXPECT_NE(e->cycle_direction[0], 0u);  // the next band starts backward
}

TEST(CyclicDiffusion, WidthOneRowEndsKeepErrorOnlyEarlyInTheCycle) {
  // Every row's only pixel is a row end: row r steps to c = (r + 1) mod 13; its error goes
  // down while c <= 5 and is dropped for c = 6..12.
  auto e = MakeEngine();
  auto src = Flat(1, 27, 1, 200);
  std::vector<std::uint8_t> dst(DotStride(1, 1) * 27);
  ASSERT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 1, 27, Flags(1, kStart)), 0);
  // Rows 0..4 (c=1..5) pass down: s = 200, 145, 90 (dot, e=90), 290, 235, then row 5 sees 180.
  EXPECT_FALSE(Dot(&dst[0 * 4], 0));
  EXPECT_FALSE(Dot(&dst[1 * 4], 0));
  EXPECT_TRUE(Dot(&dst[2 * 4], 0));
  EXPECT_FALSE(Dot(&dst[3 * 4], 0));
  // Row 5 (c=6) drops its -75; with a limit of 6 row 6 would see 125 and print. Rows 6..12
  // see the bare 200.
  for (std::size_t r = 6; r <= 12; ++r) EXPECT_FALSE(Dot(&dst[r * 4], 0)) << r;
}

TEST(CyclicDiffusion, WhiteStaysWhiteBlackPrints) {
  for (auto [v, dot] : {std::pair{255, false}, std::pair{0, true}}) {
    auto e = MakeEngine();
    auto src = Flat(17, 5, 2, v);
    auto dst = OutputFor(17, 5, 2, 1);
    ASSERT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 17, 5, Flags(2, kStart)), 0);
    for (std::size_t r = 0; r < 10; ++r)
      for (std::size_t x = 0; x < 17; ++x) EXPECT_EQ(Dot(dst.data() + r * DotStride(17, 1), x), dot) << v;
  }
}

TEST(CyclicDiffusion, BandAfterAnOddBandResumesBackwardFromTheOldRow) {
  // Five white rows leave the plane's scan backward; the black band's row 0 is then read from
  // row B, which still holds white from the previous band, so it prints nothing. Its row 1
  // runs forward from the freshly loaded black values and prints everywhere.
  auto e = MakeEngine();
  auto white = Flat(9, 5, 1, 255);
  auto dst = OutputFor(9, 5, 1, 1);
  ASSERT_EQ(CyclicDiffusion(*e, white.data(), dst.data(), 9, 5, Flags(1, kStart)), 0);
  ASSERT_NE(e->cycle_direction[0], 0u);
  auto black = Flat(9, 2, 1, 0);
  auto out = OutputFor(9, 2, 1, 1);
  ASSERT_EQ(CyclicDiffusion(*e, black.data(), out.data(), 9, 2, Flags(1, kMiddle)), 0);
  for (std::size_t x = 0; x < 9; ++x) {
    EXPECT_FALSE(Dot(&out[0], x)) << x;
    EXPECT_TRUE(Dot(&out[4], x)) << x;
  }
}

TEST(CyclicDiffusion, StartOfJobResetsTheCycle) {
  auto e = MakeEngine();
  auto src = Flat(5, 3, 1, 90);
  auto first = OutputFor(5, 3, 1, 1);
  auto again = OutputFor(5, 3, 1, 1);
  ASSERT_EQ(CyclicDiffusion(*e, src.data(), first.data(), 5, 3, Flags(1, kStart)), 0);
  ASSERT_EQ(CyclicDiffusion(*e, src.data(), again.data(), 5, 3, Flags(1, kMiddle)), 0);
  ASSERT_EQ(CyclicDiffusion(*e, src.data(), again.data(), 5, 3, Flags(1, kStart)), 0);
  EXPECT_EQ(first, again);
}

TEST(CyclicDiffusion, RefusesWhatItsStateCannotHold) {
  auto e = MakeEngine();
  auto src = Flat(4, 2, 5, 0);
  auto dst = OutputFor(4, 2, 5, 1);
  const auto untouched = dst;
  EXPECT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 4, 2, Flags(5, kStart)), kErrOutOfContract);
  EXPECT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 0, 2, Flags(1, kStart)), kErrOutOfContract);
  EXPECT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 4, 0, Flags(1, kStart)), kErrOutOfContract);
  EXPECT_EQ(dst, untouched);
  EXPECT_FALSE(e->rows.live());
  EXPECT_EQ(CyclicDiffusion(*e, src.data(), dst.data(), 4, 2, Flags(4, kStart)), 0);
}

}  // namespace
}  // namespace halftone
