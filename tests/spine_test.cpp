// The serpentine four-level diffusion: hand-worked bands, the carry rule, and the contract.
#include <gtest/gtest.h>

#include <memory>

#include "diffusion/four_level.h"
#include "frame/engine.h"
#include "halftone/halftone.h"
#include "test_support.h"

namespace halftone {
namespace {

using halftone_test::CodeAt;
using halftone_test::Flags;
using halftone_test::MakeBand;
using halftone_test::NoiseBand;
using halftone_test::SetFlatCurves;

constexpr std::uint32_t kTime = 1234567;

std::unique_ptr<Engine> MakeEngine(const char* levels = "0,85,170,255,") {
  auto engine = std::make_unique<Engine>();
  engine->clock.SetFixed(kTime);
  ParseLevelValues(engine->levels, levels);
  SelectMode(engine->curves, 0);
  return engine;
}

// The split bits the band will draw, taken from a source seeded like the routine's.
std::vector<unsigned> SplitBits(int n) {
  RandomBitSource source;
  source.Seed(kTime);
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
  auto engine = MakeEngine();
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
  auto engine = MakeEngine();
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
    auto engine = MakeEngine();
    auto first = NoiseBand(w, first_height, planes, 1);
    std::vector<std::uint8_t> scratch(halftone_test::DotStride(w, 2) * planes * first_height);
    SerpentineFourLevel(*engine, first.data(), scratch.data(), w, first_height, HalftoneFlags{Flags(planes, 1)});
    bool carried = false;
    for (std::size_t i = 0; i < w * planes; ++i) carried |= engine->rows.carry_all()[i] != 0;
    SerpentineFourLevel(*engine, second.data(), dst.data(), w, 4, HalftoneFlags{Flags(planes, 0)});
    return carried;
  };
  auto fresh_engine = MakeEngine();
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

  auto engine = MakeEngine();
  ASSERT_EQ(SerpentineFourLevel(*engine, first.data(), scratch.data(), w, 2, HalftoneFlags{Flags(planes, 1)}), kOk);
  bool carried = false;
  for (std::size_t i = 0; i < w * planes; ++i) carried |= engine->rows.carry_all()[i] != 0;
  ASSERT_TRUE(carried) << "an even band leaves error in the carry row";
  ASSERT_EQ(SerpentineFourLevel(*engine, first.data(), scratch.data(), w, 0, HalftoneFlags{Flags(planes, 0)}), kOk);
  for (std::size_t i = 0; i < w * planes; ++i) EXPECT_EQ(engine->rows.carry_all()[i], 0) << i;
  ASSERT_EQ(SerpentineFourLevel(*engine, third.data(), after_empty.data(), w, 3, HalftoneFlags{Flags(planes, 3)}), kOk);

  auto fresh = MakeEngine();
  ASSERT_EQ(SerpentineFourLevel(*fresh, third.data(), clean.data(), w, 3, HalftoneFlags{Flags(planes, 1)}), kOk);
  EXPECT_EQ(after_empty, clean);
}

TEST(SerpentineFourLevel, NarrowPlanesUseOnlyCurveBAndTermsChangeDots) {
  // With w = 1 every pixel is x = 0: left-to-right rows (odd x only) never add curve A,
  // right-to-left rows (even x) add curve B every time.
  const std::size_t h = 16;
  auto src = MakeBand(1, h, 1, [](auto, std::size_t y, auto) { return 60 + 10 * (y % 5); });
  auto run = [&](std::uint8_t a_value, std::uint8_t b_value) {
    auto engine = MakeEngine();
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
