// The four-way lookup diffusion: hand-worked error routes for each of the four draws, the
// dropped errors at the edges, the 128/129 boundary and the refusals.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <numeric>
#include <vector>

#include "frame/band.h"
#include "halftone/halftone.h"
#include "rotated/crt_rand.h"
#include "rotated/lookup_diffusion.h"

namespace halftone {
namespace {

std::array<std::int32_t, 256> Identity() {
  std::array<std::int32_t, 256> t{};
  std::iota(t.begin(), t.end(), 0);
  return t;
}

// Rows of up to four samples in the raster layout (4-byte stride).
std::vector<std::uint8_t> Raster(std::initializer_list<std::array<std::uint8_t, 4>> rows) {
  std::vector<std::uint8_t> out;
  for (const auto& r : rows) out.insert(out.end(), r.begin(), r.end());
  return out;
}

std::vector<std::uint8_t> Diffuse(std::vector<std::uint8_t>& src, int w, int h, const std::int32_t* lookup,
                              std::uint32_t seed) {
  std::vector<std::uint8_t> out(DotStride(static_cast<std::size_t>(w), 1) * static_cast<std::size_t>(h), 0xEE);
  CrtRand rng;
  EXPECT_EQ(FourWayLookupDiffusion({src.data(), out.data(), w, h, lookup}, rng, seed), kOk);
  return out;
}

// Seed 1: draws 41, 18467, 6334, 26500, 19169, 15724, i.e. directions 1, 3, 2, 0, 1, 0
// (1 below-ahead, 3 below-behind, 2 below, 0 along).
//   input  row 0: 100 200  60     row 1: 170  20 240
// Row 0, left to right (row 1 looked up one pixel ahead):
//   x0 100 dot, e +100; below loads x1 = 20 and x0 = 170; dir 1 -> below x1 = 120
//   x1 200 blank, e -55; below loads x2 = 240; dir 3 -> below x0 = 115
//   x2  60 dot, e +60; dir 2 -> below x2 = 300
// Row 1 (last), right to left (115 120 300):
//   x2 300 blank, e +45, dir 0 -> x1 = 165;  x1 165 blank, e -90, dir 1: no row below, dropped
//   x0 115 dot, dir 0: row end, dropped.
// Row 0 dots x0, x2 (A0); row 1 x0 (80). Thresholding alone would print row 1 at x1 instead.
TEST(FourWayDiffusion, HandWorkedRoutes) {
  const auto lookup = Identity();
  auto src = Raster({{100, 200, 60, 0}, {170, 20, 240, 0}});
  EXPECT_EQ(Diffuse(src, 3, 2, lookup.data(), 1), (std::vector<std::uint8_t>{0xA0, 0, 0, 0, 0x80, 0, 0, 0}));
  // The export seeds from the library clock.
  std::vector<std::uint8_t> out(8, 0xEE);
  halftone_set_fixed_time(1);
  EXPECT_EQ(kajdjigc23kdh(src.data(), out.data(), 3, 2, const_cast<int*>(lookup.data()), nullptr), 0);
  halftone_set_fixed_time(-1);
  EXPECT_EQ(out, (std::vector<std::uint8_t>{0xA0, 0, 0, 0, 0x80, 0, 0, 0}));
}

// Seed 3: draws 48, 7196, ... directions 0, 0: along the row both times.
//   lookup[0] = 128: x0 dot, +128 along -> x1 = 1 + 128 = 129, blank.   bits 10
//   lookup[0] = 129: x0 blank, -126 along -> x1 = -125, dot.           bits 01
TEST(FourWayDiffusion, LookupLevel128PrintsAnd129DoesNot) {
  auto lookup = Identity();
  auto src = Raster({{0, 1, 0, 0}});
  lookup[0] = 128;
  EXPECT_EQ(Diffuse(src, 2, 1, lookup.data(), 3)[0], 0x80);
  lookup[0] = 129;
  EXPECT_EQ(Diffuse(src, 2, 1, lookup.data(), 3)[0], 0x40);
}

// h = 1, seed 1: directions 1, 3, 2 all point below, so every error is dropped and the row
// 100 100 100 prints three dots (had x0's +100 gone along, x1 = 200 would be blank).
TEST(FourWayDiffusion, SingleRowMovesOnlyAlong) {
  const auto lookup = Identity();
  auto src = Raster({{100, 100, 100, 0}});
  EXPECT_EQ(Diffuse(src, 3, 1, lookup.data(), 1)[0], 0xE0);
}

// w = 1: only "below" moves error. Seed 0 draws 38, 7719, 21238: directions 2, 3, 2.
// Column 100, 100, 40 with lookup[40] = 160:
//   y0 100 dot, +100, dir 2 -> y1 = 200;  y1 blank, -55, dir 3: no pixel behind, dropped
//   y2 160 blank (105, a dot, had the -55 been sent elsewhere).
TEST(FourWayDiffusion, SingleColumnDropsAllButStraightDown) {
  auto lookup = Identity();
  lookup[40] = 160;
  auto src = Raster({{100, 0, 0, 0}, {100, 0, 0, 0}, {40, 0, 0, 0}});
  EXPECT_EQ(Diffuse(src, 1, 3, lookup.data(), 0), (std::vector<std::uint8_t>{0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(FourWayDiffusion, FlatPlanesAndPadding) {
  const auto lookup = Identity();
  // 37 pixels: raster rows of 40 bytes; dot rows of 8 bytes, bytes 0-3 full, byte 4 holds
  // pixels 32-36 (F8), padding bytes 5-7 stay 0.
  std::vector<std::uint8_t> dark(40 * 6, 0), light(40 * 6, 255);
  const auto d = Diffuse(dark, 37, 6, lookup.data(), 11);
  const auto l = Diffuse(light, 37, 6, lookup.data(), 11);
  ASSERT_EQ(d.size(), 48u);
  for (std::size_t y = 0; y < 6; ++y) {
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(d[y * 8 + i], 0xFF);
    EXPECT_EQ(d[y * 8 + 4], 0xF8);
    for (std::size_t i = 5; i < 8; ++i) EXPECT_EQ(d[y * 8 + i], 0);
    for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(l[y * 8 + i], 0);
  }
}

TEST(FourWayDiffusion, DensityFollowsTheLookedUpLevel) {
  // A flat input mapped to a quarter of the way to paper prints about three dots in four.
  std::array<std::int32_t, 256> lookup{};
  lookup.fill(64);
  const int w = 64, h = 64;
  std::vector<std::uint8_t> src(static_cast<std::size_t>(w * h), 7);
  const auto out = Diffuse(src, w, h, lookup.data(), 2024);
  std::size_t dots = 0;
  for (std::uint8_t b : out) dots += static_cast<std::size_t>(__builtin_popcount(b));
  const double density = static_cast<double>(dots) / (w * h);
  EXPECT_NEAR(density, 191.0 / 255.0, 0.05);
}

}  // namespace
}  // namespace halftone
