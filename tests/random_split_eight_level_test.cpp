// Eight-level random-split diffusion: a hand-worked band at a fixed time, the quantiser of the
// level values with its irregular cell, and the nibble layout.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "diffusion/random_split.h"
#include "frame/engine.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

// At 1 s the two-bit draws are 1, 0, 1, 2, 1, ...
int Eight(Engine& e, std::vector<std::uint8_t>& src, std::vector<std::uint8_t>& dst, std::size_t w, std::size_t h,
          unsigned phase, EightLevelMethod m = EightLevelMethod::kFixedLevels, unsigned planes = 1) {
  return EightLevel(e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}, m);
}

TEST(RandomSplitEightLevel, FixedLevelsHandWorked) {
  auto e = MakeEngine(1);
  // w = 3, h = 2: input stride 4, output stride 4 (12 bits rounded up to a word).
  std::vector<std::uint8_t> src = {40, 100, 250, 0, 0, 130, 33, 0};
  std::vector<std::uint8_t> dst(8 + 4, kCanary);
  ASSERT_EQ(Eight(*e, src, dst, 3, 2, 1), 0);
  // Row 0 left to right over A = 40 100 250 (B gets 0 130 33):
  //   x0: 40 -> code 6 (36), e 4; draw 1: all down, B0 = 4.
  //   x1: 100 -> code 4 (109), e -9; draw 0: halves -4/-4, A2 = 246, B1 = 126.
  //   x2 ends the row: 246 -> code 0 (255), e -9; draw ignored; B2 = 33 + -18/3 = 27.
  // Row 1, the last, right to left over B = 4 126 27:
  //   x2: 27 -> code 7 (0), e 27; draw 2 (e/3 : 2e/3): B1 = 135, carry2 = 18.
  //   x1: 135 -> code 3 (145), e -10; draw 1 (e : 0): B0 = -6.
  //   x0 ends the band: -6 -> code 7.
  EXPECT_EQ(dst[0], 0x64);
  EXPECT_EQ(dst[1], 0x00);  // x2 code 0, and the low nibble past the row stays 0
  EXPECT_EQ(dst[4], 0x73);
  EXPECT_EQ(dst[5], 0x70);
  EXPECT_EQ(dst[2], 0);
  EXPECT_EQ(dst[8], kCanary);
  const std::int16_t* carry = e->rows.carry_all();
  ExpectCells<int>(carry, {{0, 0}, {1, 0}, {2, 18}});
}

// Single-pixel bands (only decided) whose corrected value is the sample plus a preset carry.
// Levels 0 36 72 109 145 182 218 255; midpoints 18 54 90 127 163 200 236.
TEST(RandomSplitEightLevel, LevelValuesQuantiserFollowsValueAndSample) {
  struct Case {
    int carry;
    std::uint8_t sample;
    unsigned code;
    const char* why;
  } cases[] = {
      {0, 10, 7, "v 10, s <= L1: darkest"},
      {-30, 40, 6, "v 10, s above L1: L0 withheld"},
      {-50, 150, 3, "v 100 (M23..M34), s in L4..L5: L4"},
      {-100, 200, 1, "v 100 (M23..M34), s in L5..L6: jumps to L6"},
      {-150, 250, 1, "v 100 (M23..M34), s above L6: L6"},
      {-50, 200, 2, "v 150 (M34..M45), s in L5..L6: L5"},
      {0, 127, 4, "v 127 = M34 falls to the band below; s in L3..L4"},
      {0, 128, 3, "v 128 above M34; s in L3..L4"},
      {0, 250, 0, "v 250, s above L6: no drop"},
      {32, 218, 1, "v 250, s = L6: no drop withheld"},
  };
  auto e = MakeEngine(1);
  e->levels.L = {0, 36, 72, 109, 145, 182, 218, 255, 99};
  std::vector<std::uint8_t> src(4), dst(4);
  ASSERT_EQ(Eight(*e, src, dst, 1, 1, 1, EightLevelMethod::kLevelValues), 0);
  for (const Case& c : cases) {
    e->rows.carry_all()[0] = static_cast<std::int16_t>(c.carry);
    src[0] = c.sample;
    ASSERT_EQ(Eight(*e, src, dst, 1, 1, 0, EightLevelMethod::kLevelValues), 0);
    EXPECT_EQ(dst[0], c.code << 4) << c.why;
  }
}

TEST(RandomSplitEightLevel, FixedThresholdsAreNotMidpoints) {
  auto e = MakeEngine(1);
  e->levels.L = {200, 201, 202, 203, 204, 205, 206, 207, 208};  // not used by the fixed quantiser
  // v = 32 -> code 7; v = 33 -> code 6 (error 33 - 36 = -3, though 33 is nearer 36 than 0
  // only by a little); v = 224 -> code 1; v = 225 -> code 0.
  const std::pair<std::uint8_t, unsigned> cases[] = {{32, 7}, {33, 6}, {224, 1}, {225, 0}, {128, 4}, {129, 3}};
  for (const auto& [v, code] : cases) {
    std::vector<std::uint8_t> src = {v, 0, 0, 0}, dst(4);
    ASSERT_EQ(Eight(*e, src, dst, 1, 1, 1), 0);
    EXPECT_EQ(dst[0], code << 4) << int(v);
  }
}

// Planes interleave row by row and each keeps its own carry entries: a blank plane 0 stays
// blank and carries nothing while plane 1 beside it prints and carries.
TEST(RandomSplitEightLevel, PlanesKeepTheirOwnRowsAndCarry) {
  constexpr std::size_t w = 5, h = 3;
  std::vector<std::uint8_t> src(8 * 2 * h), dst(4 * 2 * h);
  for (std::size_t y = 0; y < h; ++y)
    for (std::size_t x = 0; x < w; ++x) {
      src[(2 * y) * 8 + x] = 255;                                          // plane 0: paper
      src[(2 * y + 1) * 8 + x] = static_cast<std::uint8_t>(17 * x + 40 * y);  // plane 1: a ramp
    }
  auto e = MakeEngine(1);
  for (unsigned band = 0; band < 2; ++band) {
    ASSERT_EQ(Eight(*e, src, dst, w, h, band == 0 ? 1 : 0, EightLevelMethod::kFixedLevels, 2), 0);
    unsigned plane1_codes = 0;
    for (std::size_t y = 0; y < h; ++y)
      for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(dst[(2 * y) * 4 + i], 0) << "plane 0, row " << y;
        plane1_codes += dst[(2 * y + 1) * 4 + i];
      }
    EXPECT_GT(plane1_codes, 0u);
    const std::int16_t* carry = e->rows.carry_all();
    int plane1_carry = 0;
    for (std::size_t x = 0; x < w; ++x) {
      EXPECT_EQ(carry[x], 0) << "plane 0 carries nothing";
      plane1_carry |= carry[w + x];
    }
    EXPECT_NE(plane1_carry, 0);
  }
}

}  // namespace
}  // namespace halftone
