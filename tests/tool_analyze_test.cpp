// The analysis measures against answers known beforehand: white noise is flat and isotropic, an
// ordered dither's energy sits at the frequencies of its matrix, an error diffusion's hole ends
// near the blue-noise principal frequency, and the visual error orders patterns as a viewer does.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "analyze.h"
#include "tables.h"
#include "test_support.h"

namespace {

using namespace halftone_tool;

constexpr int kSide = 256;

InkField Flat(int width, int height, double ink) {
  InkField f;
  f.width = width, f.height = height;
  f.ink.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), ink);
  return f;
}

// Each pixel inked with probability g: white noise.
InkField WhiteNoise(double g, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  InkField f = Flat(kSide, kSide, 0.0);
  for (double& v : f.ink) v = u(rng) < g ? 1.0 : 0.0;
  return f;
}

// Floyd and Steinberg's error diffusion of a field of asked-for ink, left to right.
InkField FloydSteinberg(const InkField& asked) {
  InkField out = asked;
  std::vector<double> e(asked.ink);
  const int w = asked.width;
  for (int y = 0; y < asked.height; ++y)
    for (int x = 0; x < w; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * static_cast<std::size_t>(w) + static_cast<std::size_t>(x);
      const double dot = e[i] >= 0.5 ? 1.0 : 0.0, err = e[i] - dot;
      out.ink[i] = dot;
      if (x + 1 < w) e[i + 1] += err * 7 / 16;
      if (y + 1 < asked.height) {
        if (x > 0) e[i + static_cast<std::size_t>(w) - 1] += err * 3 / 16;
        e[i + static_cast<std::size_t>(w)] += err * 5 / 16;
        if (x + 1 < w) e[i + static_cast<std::size_t>(w) + 1] += err * 1 / 16;
      }
    }
  return out;
}

InkField LastRows(const InkField& f, int rows) {
  InkField t;
  t.width = f.width, t.height = rows;
  t.ink.assign(f.ink.end() - static_cast<std::ptrdiff_t>(rows) * f.width, f.ink.end());
  return t;
}

TEST(ToolAnalyze, WhiteNoiseIsFlatAndIsotropic) {
  for (double g : {0.25, 0.5}) {
    const PatchMeasure m = MeasurePatch(WhiteNoise(g, 7), 128);
    ASSERT_TRUE(m.patterned);
    // Whole annuli from the tenth bin on hold at least 60 samples: their means stay within 3 dB
    // of white noise's level; overall the spectrum is flat within 5 %.
    double sum = 0, aniso = 0;
    int n = 0;
    for (std::size_t k = 10; k < m.spectrum.power.size() && m.spectrum.frequency[k] <= 0.5; ++k, ++n) {
      EXPECT_NEAR(10 * std::log10(m.spectrum.power[k]), 0.0, 3.0) << "g " << g << " at " << m.spectrum.frequency[k];
      sum += m.spectrum.power[k];
      aniso += m.spectrum.anisotropy[k];
    }
    EXPECT_NEAR(sum / n, 1.0, 0.05) << "g " << g;
    EXPECT_NEAR(10 * std::log10(aniso / n), 0.0, 0.5) << "a periodogram's spread equals its mean: 0 dB";
    EXPECT_NEAR(m.graininess_db, 0.0, 2.0) << "white noise is as grainy as white noise";
  }
}

TEST(ToolAnalyze, OrderedDitherEnergySitsAtItsMatrixFrequencies) {
  halftone_method_info m{};
  ASSERT_TRUE(FindMethod("Kaocosyx", m));
  std::string message;
  ASSERT_EQ(PrepareTables(m.tables, "", message), 0) << message;
  GrayImage patch;
  patch.width = kSide;
  patch.height = kSide + 64;
  RunOptions run;
  run.levels = "0,85,170,255,";
  for (int level : {64, 128, 200}) {
    patch.pixels.assign(static_cast<std::size_t>(patch.width) * static_cast<std::size_t>(patch.height), static_cast<std::uint8_t>(level));
    DotPlanes dots;
    ASSERT_EQ(RunMethod(m, {patch}, run, dots), "");
    const InkField field = DotInk(dots, 0, 64);
    const std::vector<double> p = Periodogram(field);
    const int half = kSide / 2 + 1, period = 16, step = kSide / period;
    double on = 0, off = 0, low = 0;
    for (int v = 0; v < kSide; ++v)
      for (int u = 0; u < half; ++u) {
        const double e = p[static_cast<std::size_t>(v) * half + static_cast<std::size_t>(u)];
        (u % step == 0 && v % step == 0 ? on : off) += e;
        const int fv = v <= kSide / 2 ? v : kSide - v;
        if ((u > 0 || v > 0) && u < step && fv < step) low += e;
      }
    EXPECT_GT(on, 0) << "level " << level;
    EXPECT_LT(off, 1e-9 * on) << "level " << level << ": a 16 x 16 matrix repeats every 16 pixels";
    EXPECT_LT(low, 1e-9 * on) << "level " << level << ": nothing below 1/16 cycle a pixel";
  }
}

TEST(ToolAnalyze, ErrorDiffusionHoleEndsNearTheBlueNoiseFrequency) {
  for (double g : {0.125, 0.25, 0.5, 0.75}) {
    const InkField dots = LastRows(FloydSteinberg(Flat(kSide, kSide + 64, g)), kSide);
    const PatchMeasure m = MeasurePatch(dots, 128);
    ASSERT_TRUE(m.patterned);
    EXPECT_NEAR(m.coverage, g, 0.01);
    EXPECT_LT(m.principal_error, 0.25) << "g " << g << ": smoothed " << m.spectrum.power.size() << ": principal " << m.principal << " against " << m.ideal;
    EXPECT_LT(m.graininess_db, -6.0) << "g " << g << ": blue noise has little low-frequency energy";
  }
  EXPECT_DOUBLE_EQ(IdealPrincipalFrequency(0.25), 0.5);
  EXPECT_DOUBLE_EQ(IdealPrincipalFrequency(0.75), 0.5);
}

TEST(ToolAnalyze, VisualErrorOrdersPatternsAsTheEyeDoes) {
  // A grey ramp of asked-for ink, and three renderings of it.
  InkField ramp = Flat(512, 128, 0.0);
  for (int y = 0; y < ramp.height; ++y)
    for (int x = 0; x < ramp.width; ++x) ramp.ink[static_cast<std::size_t>(y * ramp.width + x)] = x / 511.0;
  static const int kBayer8[8][8] = {{0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26}, {12, 44, 4, 36, 14, 46, 6, 38},
                                    {60, 28, 52, 20, 62, 30, 54, 22}, {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
                                    {15, 47, 7, 39, 13, 45, 5, 37},  {63, 31, 55, 23, 61, 29, 53, 21}};
  InkField ordered = ramp, random = ramp;
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int y = 0; y < ramp.height; ++y)
    for (int x = 0; x < ramp.width; ++x) {
      const std::size_t i = static_cast<std::size_t>(y * ramp.width + x);
      ordered.ink[i] = ramp.ink[i] > (kBayer8[y % 8][x % 8] + 0.5) / 64.0 ? 1.0 : 0.0;
      random.ink[i] = ramp.ink[i] > u(rng) ? 1.0 : 0.0;
    }
  const InkField diffused = FloydSteinberg(ramp);
  const Viewing viewing;
  EXPECT_DOUBLE_EQ(VisualError(ramp, ramp, viewing), 0.0);
  const double e_fs = VisualError(ramp, diffused, viewing), e_ordered = VisualError(ramp, ordered, viewing),
               e_random = VisualError(ramp, random, viewing);
  EXPECT_LT(e_ordered, e_random);
  EXPECT_LT(e_fs, e_random);
  // Farther away the eye blurs more: every error shrinks.
  Viewing far = viewing;
  far.distance_mm = 1000;
  EXPECT_LT(VisualError(ramp, random, far), e_random);
  // The eye's sensitivity: full below its peak, falling above.
  EXPECT_DOUBLE_EQ(ContrastSensitivity(0.0), 1.0);
  EXPECT_DOUBLE_EQ(ContrastSensitivity(4.0), 1.0);
  EXPECT_LT(ContrastSensitivity(30.0), 0.3);
  EXPECT_GT(ContrastSensitivity(15.0), ContrastSensitivity(30.0));
}

TEST(ToolAnalyze, CommandWritesTablesAndPictures) {
  halftone_test::TempFolder dir;
  const std::string out = (dir.path() / "an").string();
  const std::string cmd = "'" HALFTONE_TOOL_FILE "' analyze -m RoundFaxest -m nchsuw56xd --patch 64 --patch-levels 64,128,192 "
                          "--time 1 -q -o '" + out + "' 2>/dev/null";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  for (const char* name : {"ranking.csv", "ranking.png", "patches.csv", "spectra.csv", "spectra-RoundFaxest.png", "spectra-nchsuw56xd.png"})
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(out) / name)) << name;
  std::ifstream ranking(std::filesystem::path(out) / "ranking.csv");
  std::string line;
  int rows = 0;
  while (std::getline(ranking, line)) ++rows;
  EXPECT_EQ(rows, 3) << "a header and a row a method";
  std::ifstream patches(std::filesystem::path(out) / "patches.csv");
  rows = 0;
  while (std::getline(patches, line)) ++rows;
  EXPECT_EQ(rows, 1 + 2 * 3) << "a row a method and level";
}

}  // namespace
