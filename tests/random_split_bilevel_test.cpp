// Bilevel random-split diffusion: a hand-worked band at a fixed time, the guards, the sequence
// of the routine seeded once per job, and the single-plane form.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "diffusion/random_split.h"
#include "frame/engine.h"
#include "test_support.h"

namespace halftone {
namespace {

// At 1 s the split draws of a call read 1, 0, 1, 2, ... at two bits and 1, 0, 1, 0, ... at one
// bit; at 0 s the first two-bit draw is 3.
constexpr long long kTime = 1;

using namespace halftone_test;

int RunBand(Engine& e, std::vector<std::uint8_t>& src, std::vector<std::uint8_t>& dst, std::size_t w, std::size_t h,
        unsigned phase, BilevelMethod m) {
  return BilevelRandomSplit(e, src.data(), dst.data(), w, h, HalftoneFlags{HALFTONE_FLAGS(1, phase)}, m);
}

TEST(RandomSplitBilevel, LightnessThirdsWithCurvesHandWorked) {
  auto e = MakeEngine(kTime);
  SetFlatCurves(*e, 6, 9);
  std::vector<std::uint8_t> src = {100, 255, 200, 0, 10, 255, 130, 0};
  std::vector<std::uint8_t> dst(8 + 4, kCanary);
  ASSERT_EQ(RunBand(*e, src, dst, 3, 2, 1, BilevelMethod::kLightnessThirdsCurves), 0);
  // Row 0, left to right over A = 100 255 200 (B gets row 1: 10 255 130):
  //   x0: 100 -> dot, e 100; draw 1 (0 : e): B0 = 110.
  //   x1: 255 -> none, e 0, + curve A 6 (odd x); draw 0 (e/3 : 2e/3): A2 = 202, B1 = 259.
  //   x2 ends the row: 202 -> none, e -53; no draw; B2 = 130 + -106/3 = 95.
  // Row 1, the last row, right to left over B = 110 259 95:
  //   x2: 95 -> dot, e 95 + curve B 9 = 104; draw 1 (last row: e : 0): B1 = 363.
  //   x1: 363 -> none, e 108; draw 2 (e/3 : 2e/3): B0 = 146, carry1 = 72.
  //   x0 ends the band: 146 -> none.
  EXPECT_EQ(dst[0], 0x80);
  EXPECT_EQ(dst[4], 0x20);
  EXPECT_EQ(dst[8], kCanary);
  const std::int16_t* carry = e->rows.carry_all();
  ExpectCells<int>(carry, {{0, 0}, {1, 72}, {2, 0}});
}

// A one-pixel band (w = h = 1) is only decided. Its corrected value is preset through the carry
// row to 55 under a sample of 255: paper in lightness sense, solid in ink sense.
TEST(RandomSplitBilevel, GuardsDecideSamplesOf255) {
  struct Case {
    BilevelMethod method;
    std::uint8_t at_55;   // corrected value 55, sample 255
    std::uint8_t at_255;  // no carried error
  } cases[] = {
      {BilevelMethod::kLightnessThirdsCurves, 0x00, 0x00},  // white guard
      {BilevelMethod::kLightnessOneBitJobSeed, 0x00, 0x00}, // white guard
      {BilevelMethod::kLightnessWholeError, 0x80, 0x00},    // no guard: 55 is dark
      {BilevelMethod::kInkThirdsFullGuard, 0x80, 0x80},     // full guard
      {BilevelMethod::kInkQuarters, 0x00, 0x80},            // no guard: 55 is light
      {BilevelMethod::kInkWholeError, 0x00, 0x80},
  };
  for (const Case& c : cases) {
    auto e = MakeEngine(kTime);
    std::vector<std::uint8_t> src = {255, 0, 0, 0};
    std::vector<std::uint8_t> dst(4);
    ASSERT_EQ(RunBand(*e, src, dst, 1, 1, 1, c.method), 0);
    EXPECT_EQ(dst[0], c.at_255);
    e->rows.carry_all()[0] = -200;
    ASSERT_EQ(RunBand(*e, src, dst, 1, 1, 0, c.method), 0);
    EXPECT_EQ(dst[0], c.at_55);
  }
}

// The white guard withholds the dot but still passes the error on, by the split the draw picks.
TEST(RandomSplitBilevel, GuardedPixelStillSpreadsItsError) {
  for (long long seconds : {1LL, 0LL}) {
    auto e = MakeEngine(seconds);
    std::vector<std::uint8_t> src = {255, 100, 0, 0};
    std::vector<std::uint8_t> dst(4);
    ASSERT_EQ(RunBand(*e, src, dst, 2, 1, 1, BilevelMethod::kLightnessThirdsCurves), 0);
    e->rows.carry_all()[0] = -200;
    e->rows.carry_all()[1] = 0;
    ASSERT_EQ(RunBand(*e, src, dst, 2, 1, 0, BilevelMethod::kLightnessThirdsCurves), 0);
    // x0: 55 under 255 -> no dot, e 55. Last-row split, draw 1 at 1 s: all along, x1 = 155,
    // no dot; draw 3 at 0 s: all into the carry row, x1 = 100 gets its dot.
    if (seconds == 1) {
      EXPECT_EQ(dst[0], 0x00);
      EXPECT_EQ(e->rows.carry_all()[0], 0);
    } else {
      EXPECT_EQ(dst[0], 0x40);
      EXPECT_EQ(e->rows.carry_all()[0], 55);
    }
  }
}

// Seeded at the start of the job only: the second band continues the first band's draws,
// whereas the routines seeded on every call start over.
TEST(RandomSplitBilevel, JobSeededSequenceContinuesAcrossBands) {
  auto e = MakeEngine(kTime);
  std::vector<std::uint8_t> blank = {0, 0, 0, 0};
  std::vector<std::uint8_t> src = {90, 100, 0, 0};
  std::vector<std::uint8_t> dst(4);
  // Band 1 (w = 2, h = 1): x0 is 0 -> dot, error 0, one draw (1) used up; x1 -> dot.
  ASSERT_EQ(RunBand(*e, blank, dst, 2, 1, 1, BilevelMethod::kLightnessOneBitJobSeed), 0);
  EXPECT_EQ(dst[0], 0xC0);
  // Band 2: x0 90 -> dot, e 90; the next draw is 0 (e/3 along, the rest down): x1 = 130 -> none.
  ASSERT_EQ(RunBand(*e, src, dst, 2, 1, 0, BilevelMethod::kLightnessOneBitJobSeed), 0);
  EXPECT_EQ(dst[0], 0x80);
  EXPECT_EQ(e->rows.carry_all()[0], 60);
  // A fresh job sees draw 1 first (all down): x1 stays 100 -> dot.
  auto fresh = MakeEngine(kTime);
  ASSERT_EQ(RunBand(*fresh, src, dst, 2, 1, 1, BilevelMethod::kLightnessOneBitJobSeed), 0);
  EXPECT_EQ(dst[0], 0xC0);
  EXPECT_EQ(fresh->rows.carry_all()[0], 90);
}

TEST(RandomSplitBilevel, SinglePlaneHandWorkedAndLeavesJobRowsAlone) {
  auto e = MakeEngine(kTime);
  std::vector<std::uint8_t> job_src(8, 77), job_dst(8);
  ASSERT_EQ(BilevelRandomSplit(*e, job_src.data(), job_dst.data(), 2, 2, HalftoneFlags{HALFTONE_FLAGS(1, 1)},
                               BilevelMethod::kLightnessWholeError),
            0);
  const std::vector<std::int16_t> carry_before(e->rows.carry_all(), e->rows.carry_all() + 2);
  const std::vector<std::int16_t> a_before(e->rows.a(), e->rows.a() + 2);
  const std::vector<std::int16_t> b_before(e->rows.b(), e->rows.b() + 2);

  std::vector<std::uint8_t> src = {100, 50, 0, 0, 120, 100, 0, 0};
  std::vector<std::uint8_t> dst(8 + 4, kCanary);
  ASSERT_EQ(BilevelSinglePlane(*e, src.data(), dst.data(), 2, 2), 0);
  // One-bit draws 1, 0, 1. Row 0 left to right over 100 50 (next row 120 100):
  //   x0: dot, e 100; draw 1 (0 : e): below = 220.
  //   x1 ends the row: dot, e 50; draw 0 drops the error: below stays 100.
  // Row 1, the last, right to left over 220 100:
  //   x1: 100 -> dot, e 100; draw 1 (e : 0): x0 = 320.  x0: 320 -> none.
  EXPECT_EQ(dst[0], 0xC0);
  EXPECT_EQ(dst[4], 0x40);
  EXPECT_EQ(dst[8], kCanary);

  EXPECT_EQ(std::vector<std::int16_t>(e->rows.carry_all(), e->rows.carry_all() + 2), carry_before);
  EXPECT_EQ(std::vector<std::int16_t>(e->rows.a(), e->rows.a() + 2), a_before);
  EXPECT_EQ(std::vector<std::int16_t>(e->rows.b(), e->rows.b() + 2), b_before);
  EXPECT_EQ(BilevelSinglePlane(*e, src.data(), dst.data(), 0, 2), kErrOutOfContract);
  EXPECT_EQ(BilevelSinglePlane(*e, src.data(), dst.data(), 2, 0), kErrOutOfContract);
}

}  // namespace
}  // namespace halftone
