// The random-split routines of the grouped, bilevel, eight-level and serpentine four-level kinds:
// hand-worked bands at a fixed time, the quantisers, guards and raw-sample vetoes, the band-carry
// row, the row-B quirk of the single-dot routines, seeding once per job, the single-plane form
// and the nibble layout.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "diffusion/four_level.h"
#include "diffusion/random_split.h"
#include "frame/dispatch.h"
#include "frame/engine.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

// At 1 s the split draws of a call read 1, 0, 1, 2, 1, ... at two bits and 1, 0, 1, 0, ... at
// one bit; at 0 s the first two-bit draw is 3 (pinned by the RandomBitSource tests).
constexpr long long kTime = 1;

int RunBand(Engine& e, std::vector<std::uint8_t>& src, std::vector<std::uint8_t>& dst, std::size_t w, std::size_t h,
            unsigned phase, BilevelMethod m) {
  return BilevelRandomSplit(e, src.data(), dst.data(), w, h, HalftoneFlags{HALFTONE_FLAGS(1, phase)}, m);
}
int Grouped(Engine& e, std::vector<std::uint8_t>& src, std::vector<std::uint8_t>& dst, std::size_t w, std::size_t h,
            unsigned phase, GroupedMethod m = GroupedMethod::kFixedLevels, unsigned planes = 1) {
  return GroupedFourLevel(e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}, m);
}
int Eight(Engine& e, std::vector<std::uint8_t>& src, std::vector<std::uint8_t>& dst, std::size_t w, std::size_t h,
          unsigned phase, EightLevelMethod m = EightLevelMethod::kFixedLevels, unsigned planes = 1) {
  return EightLevel(e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}, m);
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
    std::vector<std::uint8_t> src(40 * planes * h), out[3];
    for (auto& s : src) s = static_cast<std::uint8_t>(gen());
    for (int m = 0; m < 3; ++m) {
      out[m].assign(DotStride(w, 2) * planes * h, 0);
      ASSERT_EQ(Grouped(*engines[m], src, out[m], w, h, band == 0 ? 1 : 0, methods[m], planes), 0);
    }
    for (std::size_t i = 0; i < out[0].size() * 4; ++i) {
      const unsigned small = CodeAt(out[0].data(), i, 2);
      ASSERT_TRUE(small <= 1 && CodeAt(out[1].data(), i, 2) == small * 2 && CodeAt(out[2].data(), i, 2) == small * 3)
          << "band " << band << ", pixel " << i;
      dots += small;
      ++pixels;
    }
  }
  EXPECT_LT(dots, pixels * 2 / 3);
}

// A band without planes starts the job and draws nothing, in both passes.
TEST(RandomSplitGrouped, BandWithoutPlanesDrawsNothing) {
  std::vector<std::uint8_t> src(64, 128), dst(64, kCanary);
  for (Path path : {Path::kReference, Path::kLockstep, Path::kVector}) {
    SetPath(static_cast<int>(path));
    auto e = MakeEngine(7), seeded_only = MakeEngine(7);
    seeded_only->SeedFromClock();
    EXPECT_EQ(Grouped(*e, src, dst, 5, 3, 1, GroupedMethod::kLevelValues, 0), 0);
    EXPECT_EQ(EightLevel(*e, src.data(), dst.data(), 5, 3, HalftoneFlags{Flags(0, 0)}, EightLevelMethod::kFixedLevels), 0);
    EXPECT_EQ(e->random.state(), seeded_only->random.state()) << PathName(path);
    EXPECT_EQ(dst, std::vector<std::uint8_t>(64, kCanary));
  }
  SetPath(-1);
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

// The serpentine four-level routine: hand-worked bands, the raw-sample vetoes and the carry rule.
constexpr std::uint32_t kSpineTime = 1234567;

std::unique_ptr<Engine> SpineEngine(const char* levels = "0,85,170,255,") {
  auto engine = std::make_unique<Engine>();
  engine->clock.SetFixed(kSpineTime);
  ParseLevelValues(engine->levels, levels);
  SelectMode(engine->curves, 0);
  return engine;
}

// The split bits the band will draw, taken from a source seeded like the routine's.
std::vector<unsigned> SplitBits(int n) {
  RandomBitSource source;
  source.Seed(kSpineTime);
  std::vector<unsigned> bits;
  for (int i = 0; i < n; ++i) bits.push_back(source.NextBit());
  return bits;
}

TEST(SerpentineFourLevel, HandWorkedRowWithVetoesAndRandomSplit) {
  // Levels 0, 85, 170, 255: midpoints 42, 127, 212. One row [100, 30, 200], zero curves.
  // x = 0: e = 100 lies in (42, 127] and r = 100 <= 170: code 2 (L1), err = 15.
  //        bit b0 = 1: down 5, side 10; b0 = 0: side 5, down 10. So A[1] = 40 or 35.
  // x = 1: e <= 42 and r = 30 <= 85: code 3 (L0), err = e.
  //        b1 = 1: side = e - e/3; b1 = 0: side = e/3.
  //        b0=1,b1=1: 40 - 13 = 27 -> A[2] = 227; b0=1,b1=0: 13 -> 213;
  //        b0=0,b1=1: 35 - 11 = 24 -> 224;        b0=0,b1=0: 11 -> 211.
  // x = 2: r = 200 > 170, so L3 (code 0) is allowed: e > 212 gives code 0, else code 1.
  auto engine = SpineEngine();
  auto src = MakeBand(3, 1, 1, [](std::size_t x, std::size_t, unsigned) { return std::array{100, 30, 200}[x]; });
  std::vector<std::uint8_t> dst(4, 0xEE);
  ASSERT_EQ(SerpentineFourLevel(*engine, src.data(), dst.data(), 3, 1, HalftoneFlags{Flags(1, 1)}), kOk);
  const auto bits = SplitBits(3);
  const unsigned last = (bits[0] == 0 && bits[1] == 0) ? 1u : 0u;
  EXPECT_EQ(CodeAt(dst.data(), 0, 2), 2u);
  EXPECT_EQ(CodeAt(dst.data(), 1, 2), 3u);
  EXPECT_EQ(CodeAt(dst.data(), 2, 2), last);
  EXPECT_EQ(dst[0] & 0x03, 0) << "the unused fourth pixel stays clear";
  EXPECT_EQ(dst[1] | dst[2] | dst[3], 0) << "the row padding stays clear";
}

TEST(SerpentineFourLevel, RawSampleVetoesLevelsOnTheWrongSide) {
  auto engine = SpineEngine();
  const std::size_t w = 8;
  // A flat plane of L1 with no carried error: e = 85 lies in (42, 127], r <= 170: code 2,
  // err = 0 everywhere, so every pixel is code 2 whatever the splits.
  auto flat = MakeBand(w, 2, 1, [](auto, auto, auto) { return 85; });
  std::vector<std::uint8_t> dst(halftone_test::DotStride(w, 2) * 2);
  ASSERT_EQ(SerpentineFourLevel(*engine, flat.data(), dst.data(), w, 2, HalftoneFlags{Flags(1, 1)}), kOk);
  for (std::size_t y = 0; y < 2; ++y)
    for (std::size_t x = 0; x < w; ++x) EXPECT_EQ(CodeAt(&dst[y * 4], x, 2), 2u);

  // A dark sample (r <= L1) never gets code 0, however much light error it carries; a light
  // one (r > L2) never gets code 3. Push large errors in through the carry row.
  auto dark = MakeBand(w, 1, 1, [](auto, auto, auto) { return 50; });
  std::int16_t* carry = engine->rows.carry(0, w);
  for (std::size_t x = 0; x < w; ++x) carry[x] = 250;
  ASSERT_EQ(SerpentineFourLevel(*engine, dark.data(), dst.data(), w, 1, HalftoneFlags{Flags(1, 0)}), kOk);
  for (std::size_t x = 0; x < w; ++x) EXPECT_EQ(CodeAt(dst.data(), x, 2), 2u) << x;

  auto light = MakeBand(w, 1, 1, [](auto, auto, auto) { return 220; });
  for (std::size_t x = 0; x < w; ++x) carry[x] = -250;
  ASSERT_EQ(SerpentineFourLevel(*engine, light.data(), dst.data(), w, 1, HalftoneFlags{Flags(1, 0)}), kOk);
  for (std::size_t x = 0; x < w; ++x) EXPECT_EQ(CodeAt(dst.data(), x, 2), 1u) << x;
}

TEST(SerpentineFourLevel, OnlyEvenHeightBandsCarryErrorIntoTheNextBand) {
  const std::size_t w = 37;
  const unsigned planes = 2;
  auto second = NoiseBand(w, 4, planes, 2);
  std::vector<std::uint8_t> dst(halftone_test::DotStride(w, 2) * planes * 4), fresh(dst.size());

  // The second band of a job, and the same band as the first band of a fresh job.
  auto run_after = [&](std::size_t first_height) {
    auto engine = SpineEngine();
    auto first = NoiseBand(w, first_height, planes, 1);
    std::vector<std::uint8_t> scratch(halftone_test::DotStride(w, 2) * planes * first_height);
    SerpentineFourLevel(*engine, first.data(), scratch.data(), w, first_height, HalftoneFlags{Flags(planes, 1)});
    bool carried = false;
    for (std::size_t i = 0; i < w * planes; ++i) carried |= engine->rows.carry_all()[i] != 0;
    SerpentineFourLevel(*engine, second.data(), dst.data(), w, 4, HalftoneFlags{Flags(planes, 0)});
    return carried;
  };
  auto fresh_engine = SpineEngine();
  SerpentineFourLevel(*fresh_engine, second.data(), fresh.data(), w, 4, HalftoneFlags{Flags(planes, 1)});

  for (std::size_t odd : {1u, 3u, 5u}) {
    EXPECT_FALSE(run_after(odd)) << "height " << odd;
    EXPECT_EQ(dst, fresh) << "after an odd band the next band starts clean";
  }
  for (std::size_t even : {2u, 4u}) {
    EXPECT_TRUE(run_after(even)) << "height " << even;
    EXPECT_NE(dst, fresh) << "after an even band the carried error shows";
  }
}

TEST(SerpentineFourLevel, BandWithoutRowsStillSpendsTheCarriedError) {
  // Every plane starts by taking up its carry entries, whatever the band's height. A band of
  // h = 0 between two bands therefore leaves the third band to start from clean rows: it halftones
  // exactly as it would after an odd-height band.
  const std::size_t w = 11;
  const unsigned planes = 2;
  auto first = NoiseBand(w, 2, planes, 7);
  auto third = NoiseBand(w, 3, planes, 8);
  std::vector<std::uint8_t> scratch(halftone_test::DotStride(w, 2) * planes * 2);
  std::vector<std::uint8_t> after_empty(halftone_test::DotStride(w, 2) * planes * 3), clean(after_empty.size());

  auto engine = SpineEngine();
  ASSERT_EQ(SerpentineFourLevel(*engine, first.data(), scratch.data(), w, 2, HalftoneFlags{Flags(planes, 1)}), kOk);
  bool carried = false;
  for (std::size_t i = 0; i < w * planes; ++i) carried |= engine->rows.carry_all()[i] != 0;
  ASSERT_TRUE(carried) << "an even band leaves error in the carry row";
  ASSERT_EQ(SerpentineFourLevel(*engine, first.data(), scratch.data(), w, 0, HalftoneFlags{Flags(planes, 0)}), kOk);
  for (std::size_t i = 0; i < w * planes; ++i) EXPECT_EQ(engine->rows.carry_all()[i], 0) << i;
  ASSERT_EQ(SerpentineFourLevel(*engine, third.data(), after_empty.data(), w, 3, HalftoneFlags{Flags(planes, 3)}), kOk);

  auto fresh = SpineEngine();
  ASSERT_EQ(SerpentineFourLevel(*fresh, third.data(), clean.data(), w, 3, HalftoneFlags{Flags(planes, 1)}), kOk);
  EXPECT_EQ(after_empty, clean);
}

TEST(SerpentineFourLevel, NarrowPlanesUseOnlyCurveBAndTermsChangeDots) {
  // With w = 1 every pixel is x = 0: left-to-right rows (odd x only) never add curve A,
  // right-to-left rows (even x) add curve B every time.
  const std::size_t h = 16;
  auto src = MakeBand(1, h, 1, [](auto, std::size_t y, auto) { return 60 + 10 * (y % 5); });
  auto run = [&](std::uint8_t a_value, std::uint8_t b_value) {
    auto engine = SpineEngine();
    SetFlatCurves(*engine, a_value, b_value);
    std::vector<std::uint8_t> dst(4 * h);
    SerpentineFourLevel(*engine, src.data(), dst.data(), 1, h, HalftoneFlags{Flags(1, 1)});
    return dst;
  };
  EXPECT_EQ(run(0, 0), run(90, 0));
  EXPECT_NE(run(0, 0), run(0, 90));
}

}  // namespace
}  // namespace halftone
