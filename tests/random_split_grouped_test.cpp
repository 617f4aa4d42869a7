// Grouped four-level and single-dot-size diffusion: hand-worked bands at a fixed time, the
// band-carry row, the row-B quirk of the single-dot routines and their shared dot positions.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "diffusion/random_split.h"
#include "frame/engine.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

// At 1 s the two-bit split draws of a call are 1, 0, 1, 2, 1, ... (see random_bits_test).
constexpr long long kTime = 1;

int Grouped(Engine& e, std::vector<std::uint8_t>& src, std::vector<std::uint8_t>& dst, std::size_t w, std::size_t h,
            unsigned phase, GroupedMethod m = GroupedMethod::kFixedLevels, unsigned planes = 1) {
  return GroupedFourLevel(e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}, m);
}

// Fixed levels 0/85/170/255 cut at 64/128/192; curves A and B are the all-zero slot 0.
TEST(RandomSplitGrouped, FixedLevelsHandWorkedTwoBands) {
  auto e = MakeEngine(kTime);
  // Band 1, w = 3, h = 2 (stride 4 in, 4 out per row).
  std::vector<std::uint8_t> src = {100, 100, 100, 0, 50, 200, 30, 0};
  std::vector<std::uint8_t> dst(8 + 4, kCanary);
  ASSERT_EQ(Grouped(*e, src, dst, 3, 2, 1), 0);
  // Row 0, left to right over A = 100 100 100, next row loaded into B = 50 200 30:
  //   x0: 100 -> code 2 (85), err 15; draw 1: all down, B0 = 65.
  //   x1: 100 -> code 2, err 15; draw 0: halves 7/7, A2 = 107, B1 = 207.
  //   x2 ends the row: 107 -> code 2, err 22; draw ignored; B2 = 30 + 44/3 = 44.
  // Row 1 is the last row, right to left over B = 65 207 44:
  //   x2: 44 -> code 3 (0), err 44; draw 2: B1 += 44/3 = 221, carry2 = 88/3 = 29.
  //   x1: 221 -> code 0 (255), err -34; draw 1: all along, B0 = 31, carry1 stays 0.
  //   x0 ends the band: 31 -> code 3, nothing else.
  EXPECT_EQ(dst[0], 0xA8);  // 2 2 2
  EXPECT_EQ(dst[4], 0xCC);  // 3 0 3
  EXPECT_EQ(dst[1], 0);
  EXPECT_EQ(dst[8], kCanary);
  const std::int16_t* carry = e->rows.carry_all();
  ExpectCells<int>(carry, {{0, 0}, {1, 0}, {2, 29}});

  // Band 2, h = 1: A = 40 40 40 + carry = 40 40 69; the only row runs left to right and is
  // the last row, so it writes carry too (odd heights carry, unlike the spine routine):
  //   x0: 40 -> code 3, err 40; draw 1: all along, A1 = 80.
  //   x1: 80 -> code 2, err -5; draw 0: A2 += -10/3 = 66, carry1 = -5/3 = -1.
  //   x2: 66 -> code 2 (without the carried 29 it would be 37 -> code 3).
  std::vector<std::uint8_t> src2 = {40, 40, 40, 0};
  std::vector<std::uint8_t> dst2(4, kCanary);
  ASSERT_EQ(Grouped(*e, src2, dst2, 3, 1, 0), 0);
  EXPECT_EQ(dst2[0], 0xE8);  // 3 2 2
  ExpectCells<int>(carry, {{0, 0}, {1, -1}, {2, 0}});
}

// The pixel ending a left-to-right last row is decided on working row B.
TEST(RandomSplitGrouped, SingleDotLastPixelOfOddBandReadsRowB) {
  const GroupedMethod methods[] = {GroupedMethod::kSmallDotOnly, GroupedMethod::kMediumDotOnly,
                                   GroupedMethod::kLargeDotOnly};
  const std::uint8_t expected[] = {0x10, 0x20, 0x30};
  for (int i = 0; i < 3; ++i) {
    auto e = MakeEngine(kTime);
    // w = 2, h = 1 right after the start of a job, so B is all zero.
    //   x0: 200 -> no dot, err -55; draw 1: all along, A1 = 145 (which would be no dot).
    //   x1 ends the band: decided on B1 = 0 -> a dot.
    std::vector<std::uint8_t> src = {200, 200, 0, 0};
    std::vector<std::uint8_t> dst(4, kCanary);
    ASSERT_EQ(Grouped(*e, src, dst, 2, 1, 1, methods[i]), 0);
    EXPECT_EQ(dst[0], expected[i]);
  }
  // h = 3: B1 still holds the corrected value of the first pixel of the right-to-left row 1.
  auto e = MakeEngine(kTime);
  std::vector<std::uint8_t> src = {200, 200, 0, 0, 0, 0, 0, 0, 100, 255, 0, 0};
  std::vector<std::uint8_t> dst(12, kCanary);
  ASSERT_EQ(Grouped(*e, src, dst, 2, 3, 1, GroupedMethod::kSmallDotOnly), 0);
  // Row 0 over 200 200: x0 none, err -55, draw 1: all down, B0 = -55; x1 ends the row: none,
  //   err -55, draw ignored, B1 = 0 + -110/3 = -36.
  // Row 1 right to left over -55 -36: x1 dot, err -36, draw 1: all down, A1 = 255 - 36 = 219;
  //   x0 ends the row: dot, err -55, draw ignored, A0 = 100 - 36 = 64.
  // Row 2, the last, left to right: x0 64 dot, err 64, draw 1: all along, A1 = 283 (no dot);
  //   x1 ends the band and is decided on B1 = -36: a dot.
  EXPECT_EQ(dst[0], 0x00);
  EXPECT_EQ(dst[4], 0x50);
  EXPECT_EQ(dst[8], 0x50);
}

// Decision by the corrected value alone at the fixed thresholds: single pixels whose value is
// set through the carry row (h = 1, w = 1: the pixel ends the band and is only decided).
TEST(RandomSplitGrouped, FixedLevelThresholdsIgnoreLevelValuesAndRawSample) {
  struct Case {
    int carry;
    std::uint8_t sample;
    std::uint8_t byte;
  } cases[] = {{0, 64, 0xC0}, {1, 64, 0x80}, {-10, 202, 0x40}, {-9, 202, 0x00}, {128, 0, 0x80}};
  auto e = MakeEngine(kTime);
  e->levels.L = {200, 210, 220, 230};  // would move every cut if they were used
  std::vector<std::uint8_t> dst(4);
  std::vector<std::uint8_t> src(4);
  ASSERT_EQ(Grouped(*e, src, dst, 1, 1, 1), 0);
  for (const Case& c : cases) {
    e->rows.carry_all()[0] = static_cast<std::int16_t>(c.carry);
    src[0] = c.sample;
    ASSERT_EQ(Grouped(*e, src, dst, 1, 1, 0), 0);
    EXPECT_EQ(dst[0], c.byte) << "value " << c.sample + c.carry;
  }
}

// The three single-dot routines put the same dots in the same places; only the code differs.
TEST(RandomSplitGrouped, SingleDotRoutinesShareDotPositions) {
  constexpr std::size_t w = 37, planes = 2;
  const std::size_t heights[] = {5, 4, 1, 7};
  std::mt19937 gen(7);
  const GroupedMethod methods[] = {GroupedMethod::kSmallDotOnly, GroupedMethod::kMediumDotOnly,
                                   GroupedMethod::kLargeDotOnly};
  std::unique_ptr<Engine> engines[3];
  for (auto& e : engines) {
    e = MakeEngine(kTime);
    e->curves.curve_a = 3;  // non-zero built-in curves, so the curve terms take part
    e->curves.curve_b = 4;
  }
  std::size_t dots = 0, pixels = 0;
  for (std::size_t band = 0; band < 4; ++band) {
    const std::size_t h = heights[band];
    std::vector<std::uint8_t> src(40 * planes * h);
    for (auto& s : src) s = static_cast<std::uint8_t>(gen());
    std::vector<std::uint8_t> out[3];
    for (int m = 0; m < 3; ++m) {
      out[m].assign(DotStride(w, 2) * planes * h, 0);
      ASSERT_EQ(Grouped(*engines[m], src, out[m], w, h, band == 0 ? 1 : 0, methods[m], planes), 0);
    }
    for (std::size_t i = 0; i < out[0].size(); ++i) {
      for (int shift = 0; shift < 8; shift += 2) {
        const unsigned small = (out[0][i] >> shift) & 3u;
        EXPECT_TRUE(small == 0 || small == 1);
        EXPECT_EQ((out[1][i] >> shift) & 3u, small * 2);
        EXPECT_EQ((out[2][i] >> shift) & 3u, small * 3);
        dots += small;
        ++pixels;
      }
    }
  }
  EXPECT_GT(dots, pixels / 8);  // random input: plenty of dots, and plenty of gaps
  EXPECT_LT(dots, pixels * 2 / 3);
}

// Out-of-contract calls are refused before anything is touched.
TEST(RandomSplitGrouped, RefusesBandsOutsideTheContract) {
  auto e = MakeEngine(kTime);
  std::vector<std::uint8_t> src(64, 9), dst(64, kCanary);
  const auto m = GroupedMethod::kLevelValues;
  EXPECT_EQ(Grouped(*e, src, dst, 4, 2, 0, m), kErrOutOfContract);  // no start-of-job call
  EXPECT_EQ(Grouped(*e, src, dst, 0, 2, 1, m), kErrOutOfContract);
  EXPECT_EQ(Grouped(*e, src, dst, 4, 0, 1, GroupedMethod::kSmallDotOnly), kErrOutOfContract);
  EXPECT_FALSE(e->rows.live());
  ASSERT_EQ(Grouped(*e, src, dst, 4, 2, 1, m), 0);
  std::fill(dst.begin(), dst.end(), kCanary);
  EXPECT_EQ(Grouped(*e, src, dst, 5, 2, 0, m), kErrOutOfContract);  // wider than the job
  EXPECT_EQ(Grouped(*e, src, dst, 4, 2, 0, GroupedMethod::kFixedLevels, 2), kErrOutOfContract);  // more planes
  for (std::uint8_t b : dst) EXPECT_EQ(b, kCanary);
}

}  // namespace
}  // namespace halftone
