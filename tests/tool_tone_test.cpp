// Tone response measurement: ink coverage counted as each code's share of full ink, and the
// whole measurement driven the way a host drives a method, checked against a threshold screen
// whose coverage at every level is known exactly.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "halftone/halftone.h"
#include "runner.h"
#include "test_support.h"
#include "tone.h"

namespace {

using namespace halftone_tool;

// A 4 x 4 ordered-dither screen: a dot where the sample is below 16 * M + 8. M holds 0..15 once
// each, so a flat level v prints on exactly the cells with 16 * M + 8 > v.
constexpr int kBayer4[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};

// What the screen saw, to check the calls a host would make.
std::vector<unsigned> g_phases;
std::vector<int> g_heights;

int ThresholdScreen(unsigned char* src, unsigned char* dst, int w, int h, unsigned flags) {
  const unsigned planes = (flags >> 8) & 0xFF;
  g_phases.push_back((flags >> 16) & 0xFF);
  g_heights.push_back(h);
  const std::size_t in_stride = halftone_test::RasterStride(static_cast<std::size_t>(w));
  const std::size_t out_stride = halftone_test::DotStride(static_cast<std::size_t>(w), 1);
  std::memset(dst, 0, out_stride * planes * static_cast<std::size_t>(h));
  for (int y = 0; y < h; ++y)
    for (unsigned p = 0; p < planes; ++p)
      for (int x = 0; x < w; ++x) {
        const std::size_t row = static_cast<std::size_t>(y) * planes + p;
        if (src[row * in_stride + static_cast<std::size_t>(x)] < 16 * kBayer4[y % 4][x % 4] + 8)
          dst[row * out_stride + static_cast<std::size_t>(x >> 3)] |= static_cast<std::uint8_t>(0x80 >> (x & 7));
      }
  return 0;
}

halftone_method_info ScreenInfo() {
  return {"TestBayer4", "test screens", "4 x 4 ordered dither", 1, HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0u,
          reinterpret_cast<void (*)(void)>(&ThresholdScreen)};
}

TEST(ToolTone, ThresholdScreenCoverageIsExact) {
  ToneOptions options;
  options.patch = 64;
  options.run.band_rows = 16;
  options.run.levels = "0,85,170,255,";
  g_phases.clear();
  g_heights.clear();
  ToneCurve curve;
  std::vector<int> seen;
  ASSERT_EQ(MeasureTone(ScreenInfo(), options, curve, [&](int level) { seen.push_back(level); }), "");
  EXPECT_EQ(curve.method, "TestBayer4");
  ASSERT_EQ(curve.coverage.size(), 256u);
  // Level 0: every threshold (8 .. 248) is above it: full coverage.
  EXPECT_DOUBLE_EQ(curve.coverage[0], 1.0);
  // Level 8: 16 * 0 + 8 = 8 is not above 8, the other 15 are.
  EXPECT_DOUBLE_EQ(curve.coverage[8], 15.0 / 16.0);
  // Level 100: thresholds 104 .. 248 (M = 6 .. 15) are above it: 10 of 16.
  EXPECT_DOUBLE_EQ(curve.coverage[100], 10.0 / 16.0);
  // Level 247: only 248 (M = 15) is above it.
  EXPECT_DOUBLE_EQ(curve.coverage[247], 1.0 / 16.0);
  EXPECT_DOUBLE_EQ(curve.coverage[248], 0.0);
  EXPECT_DOUBLE_EQ(curve.coverage[255], 0.0);
  for (int v = 1; v < 256; ++v) EXPECT_LE(curve.coverage[static_cast<std::size_t>(v)], curve.coverage[static_cast<std::size_t>(v - 1)]);
  ASSERT_EQ(seen.size(), 256u);
  EXPECT_EQ(seen.front(), 0);
  EXPECT_EQ(seen.back(), 255);

  // Each level is its own job of four 16-row bands: start, two further bands, end.
  ASSERT_EQ(g_phases.size(), 256u * 4u);
  for (std::size_t level = 0; level < 256; ++level) {
    EXPECT_EQ(g_phases[level * 4], HALFTONE_PHASE_START);
    EXPECT_EQ(g_phases[level * 4 + 1], HALFTONE_PHASE_MIDDLE);
    EXPECT_EQ(g_phases[level * 4 + 2], HALFTONE_PHASE_MIDDLE);
    EXPECT_EQ(g_phases[level * 4 + 3], HALFTONE_PHASE_END);
  }
  for (int h : g_heights) EXPECT_EQ(h, 16);
}

// One plane of `rows` rows of 4 bytes, the first row starting with `bytes`.
DotPlanes Rows(int bits, int pixels, std::vector<std::uint8_t> bytes, int rows = 1) {
  bytes.resize(4 * static_cast<std::size_t>(rows));
  return DotPlanes{bits, pixels, rows, 4, {std::move(bytes)}};
}

TEST(ToolTone, CoverageCountsEachCodeAsItsShareOfFullInkPastTheSettlingRows) {
  EXPECT_DOUBLE_EQ(InkCoverage(Rows(1, 8, {0xE0}), 0, 0), 3.0 / 8.0);
  // 2 bits: codes 0, 1, 2, 3 -> (0 + 1 + 2 + 3) / (4 * 3); code 1 alone is a third of full ink.
  EXPECT_DOUBLE_EQ(InkCoverage(Rows(2, 4, {0x1B}), 0, 0), 0.5);
  EXPECT_DOUBLE_EQ(InkCoverage(Rows(2, 4, {0x55}), 0, 0), 1.0 / 3.0);
  // 4 bits: codes 5 and 3 -> 8 / (2 * 7); the largest drop is code 7, not 15.
  EXPECT_DOUBLE_EQ(InkCoverage(Rows(4, 2, {0x53}), 0, 0), 8.0 / 14.0);
  EXPECT_DOUBLE_EQ(InkCoverage(Rows(4, 2, {0x77}), 0, 0), 1.0);
  // Only row 0 of four has ink: leaving it out as a settling row leaves none.
  EXPECT_DOUBLE_EQ(InkCoverage(Rows(1, 8, {0xFF}, 4), 0, 0), 0.25);
  EXPECT_DOUBLE_EQ(InkCoverage(Rows(1, 8, {0xFF}, 4), 0, 1), 0.0);
}

TEST(ToolTone, CsvHasOneRowPerLevelAndOneColumnPerMethod) {
  halftone_test::TempFolder dir;
  const std::string path = (dir.path() / "tone.csv").string();
  ToneCurve a{"A", std::vector<double>(256, 0.25), ""}, b{"B", std::vector<double>(256, 1.0), ""};
  a.coverage[255] = 0.125;
  ASSERT_EQ(WriteToneCsv(path, {a, b}), "");
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 257u);
  EXPECT_EQ(lines[0], "level,A,B");
  EXPECT_EQ(lines[1], "0,0.250000,1.000000");
  EXPECT_EQ(lines[256], "255,0.125000,1.000000");
}

}  // namespace
