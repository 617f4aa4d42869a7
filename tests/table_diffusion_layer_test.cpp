// Level-modulated halving diffusion: the layer term in the sum and the error, tile restarts,
// halving of negative errors, and the curve-biased random sibling.
#include <gtest/gtest.h>

#include "tablediffusion/integer_diffusion.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

int Halftone(Engine& e, TestBand& b, unsigned phase, LayerModulatedMember m = LayerModulatedMember::kLayerTiles) {
  return b.Run([&](auto... a) { return LayerModulatedDiffusion(e, m, a...); }, phase);
}

TEST(LayerModulated, MidGreyHalvesItsError) {
  // Zero layer table, level 128: x0 s=128 dot, e=128: 64 ahead, 64 down.
  // x1 s=192, e=-63: ahead trunc(-63/2)=-31 (dropped), down -32.
  auto e = MakeEngine();
  TestBand b(2, 1, 1, 128);
  ASSERT_EQ(Halftone(*e, b, kPhaseStart), 0);
  EXPECT_EQ(b.dst[0], 0x80);
  ExpectCells<int>(e->rows.b(), {{0, 64}, {1, -32}});
}

TEST(LayerModulated, NegativeTermPrintsOnWhiteAndIsDiffused) {
  // Level 255 with a term of -200 at tile (0, 0): s=55, a dot, and e=55 moves on:
  // row 0: down 55 - 27 = 28. Row 1 (backward, last): s=255+28=283, e=28, down 14 -> carry.
  auto e = MakeEngine();
  e->tables.layers[255][0][0] = -200;
  TestBand b(1, 2, 1, 255);
  ASSERT_EQ(Halftone(*e, b, kPhaseStart), 0);
  EXPECT_EQ(b.dst[0], 0x80);
  EXPECT_EQ(b.dst[4], 0x00);
  EXPECT_EQ(e->rows.carry_all()[0], 14);
}

TEST(LayerModulated, OddNegativeErrorHalvesTowardZero) {
  // Level 252: e = -3, ahead trunc(-3/2) = -1, down -2.
  auto e = MakeEngine();
  TestBand b(1, 1, 1, 252);
  ASSERT_EQ(Halftone(*e, b, kPhaseStart), 0);
  EXPECT_EQ(e->rows.b()[0], -2);
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
      EXPECT_EQ(Halftone(*e, b, page_row == 0 ? kPhaseStart : 0), 0);
      for (std::size_t r = 0; r < h; ++r)
        if (b.Dot(r, 0)) rows_with_dots.push_back(page_row + r);
      page_row += h;
    }
    return rows_with_dots;
  };
  EXPECT_EQ(dot_rows({8}), std::vector<std::size_t>{3});
  EXPECT_EQ(dot_rows({2, 6}), std::vector<std::size_t>{5});
}

// At 1002 s the first two-bit draws are 0, 1, 1, 3 (see random_stream_test).
TEST(LayerModulated, HandWorkedCurveBiasRow) {
  auto e = MakeEngine(1002);
  TestBand b(4, 1, 1, 100);
  ASSERT_EQ(Halftone(*e, b, kPhaseStart, LayerModulatedMember::kCurveBias), 0);
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
  ASSERT_EQ(Halftone(*e, b, kPhaseStart, LayerModulatedMember::kCurveBias), 0);
  // Row 0 forward: x0 bit 0: s=200, e=-55+20=-35: ahead trunc(-35/3)=-11, down -24.
  //                x1 bit 1: s=189, e=-66: down trunc(-66/3)=-22 (ahead dropped).
  // Row 1 backward, last, B = [-24, -22]:
  //                x1 bit 1: s=178, e=-77+30=-47: down -15 -> carry, ahead -32 -> B0=-56.
  //                x0 bit 1: s=144, e=-111: down -37 -> carry.
  ExpectCells<int>(b.dst, {{0, 0}, {4, 0}});
  ExpectCells<int>(e->rows.carry_all(), {{0, -37}, {1, -15}});
}

}  // namespace
}  // namespace halftone
