// The job frame of the double-precision family (refusals, carry, reseeding, release), the
// members whose inner steps are this library's own, and the exported entry points.
#include <gtest/gtest.h>

#include "tablediffusion/double_diffusion.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

constexpr long long kTime = 1000;

int Halftone(Engine& e, DoubleMethod m, TestBand& b, unsigned phase) {
  return b.Run([&](auto... a) { return DoubleDiffusion(e, m, a...); }, phase);
}

constexpr DoubleMethod kAll[] = {
    DoubleMethod::kRunLength,         DoubleMethod::kRandomSplit,    DoubleMethod::kRandomSplitRowDump,
    DoubleMethod::kRandomSplitPixelDump, DoubleMethod::kQuarterColumnBias, DoubleMethod::kToneWeightRow,
    DoubleMethod::kHalfColumnBias,    DoubleMethod::kEveryColumnBias, DoubleMethod::kDiagonal,
    DoubleMethod::kModulated,
};

TEST(DoubleFrame, OutOfContractBandsAreRefusedUntouched) {
  for (DoubleMethod m : kAll) {
    auto e = MakeEngine(kTime);
    TestBand band(8, 2, 1, 100);
    band.dst.assign(band.dst.size(), 0x5A);
    EXPECT_EQ(Halftone(*e, m, band, 0), kErrOutOfContract);  // no job started
    EXPECT_EQ(band.dst[0], 0x5A);
    std::uint8_t byte = 0;
    EXPECT_EQ(DoubleDiffusion(*e, m, band.src.data(), &byte, 0, 2, HalftoneFlags{Flags(1, kPhaseStart)}),
              kErrOutOfContract);
    EXPECT_EQ(DoubleDiffusion(*e, m, band.src.data(), &byte, 8, 0, HalftoneFlags{Flags(1, kPhaseStart)}),
              kErrOutOfContract);
    ASSERT_EQ(Halftone(*e, m, band, kPhaseStart), 0);
    TestBand wider(9, 2, 1, 100);
    EXPECT_EQ(Halftone(*e, m, wider, 0), kErrOutOfContract);
    TestBand more_planes(8, 2, 2, 100);
    EXPECT_EQ(Halftone(*e, m, more_planes, 0), kErrOutOfContract);
  }
}

TEST(DoubleFrame, EndOfJobHalftonesThenReleases) {
  auto e = MakeEngine(kTime);
  TestBand band(8, 2, 1, 0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, kPhaseStart), 0);
  EXPECT_TRUE(e->double_rows.live());
  EXPECT_EQ(e->double_weight_row.size(), 8u);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, kPhaseEnd), 0);
  EXPECT_EQ(band.Density(), 1.0);
  EXPECT_FALSE(e->double_rows.live());
  EXPECT_TRUE(e->double_weight_row.empty());
  EXPECT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, 0), kErrOutOfContract);
}

TEST(DoubleFrame, ToneWeightRowJoinsAJobAnotherMemberStarted) {
  auto e = MakeEngine(kTime);
  TestBand band(40, 2, 1, 128);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kQuarterColumnBias, band, kPhaseStart), 0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kToneWeightRow, band, 0), 0);
  EXPECT_GE(e->double_weight_row.size(), 40u);
}

TEST(DoubleFrame, EvenBandsCarryAndEachBandRestartsLeftToRight) {
  // A mid-grey plane in two bands of two rows: the first band's last row runs right to left
  // and hands its errors on, so the second band starts from them rather than from zero.
  auto e = MakeEngine(kTime);
  TestBand first(16, 2, 1, 128), second(16, 2, 1, 128), fresh(16, 2, 1, 128);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kHalfColumnBias, first, kPhaseStart), 0);
  double carried = 0.0;
  for (std::size_t x = 0; x < 16; ++x) carried += std::abs(e->double_rows.carry_all()[x]);
  EXPECT_GT(carried, 0.0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kHalfColumnBias, second, 0), 0);
  auto e2 = MakeEngine(kTime);
  ASSERT_EQ(Halftone(*e2, DoubleMethod::kHalfColumnBias, fresh, kPhaseStart), 0);
  EXPECT_NE(second.dst, fresh.dst);
  EXPECT_EQ(first.dst, fresh.dst);  // same start, same dots
}

TEST(DoubleFrame, ReseedEveryCallOrOnlyAtTheStartOfAJob) {
  auto state_after = [](DoubleMethod m) {
    auto e = MakeEngine(kTime);
    TestBand band(8, 1, 1, 0);
    EXPECT_EQ(Halftone(*e, m, band, kPhaseStart), 0);
    e->clock.SetFixed(kTime + 77);
    EXPECT_EQ(Halftone(*e, m, band, 0), 0);
    return e->random.state();
  };
  RandomBitSource later;
  later.Seed(static_cast<std::uint32_t>(kTime + 77));
  RandomBitSource at_start;
  at_start.Seed(static_cast<std::uint32_t>(kTime));
  // These members draw nothing, so the state shows exactly when they seeded.
  EXPECT_EQ(state_after(DoubleMethod::kQuarterColumnBias), later.state());
  EXPECT_EQ(state_after(DoubleMethod::kHalfColumnBias), later.state());
  EXPECT_EQ(state_after(DoubleMethod::kEveryColumnBias), at_start.state());
  EXPECT_EQ(state_after(DoubleMethod::kDiagonal), at_start.state());
  EXPECT_EQ(state_after(DoubleMethod::kModulated), at_start.state());
}

TEST(DoubleFrame, PlanesAreHalftonedApartAndMidGreyStartsWithADot) {
  for (DoubleMethod m : kAll) {
    auto e = MakeEngine(kTime);
    // Three rows: the last runs left to right, so no member's reversed end test applies.
    TestBand band(37, 3, 2, [](std::size_t, std::size_t, unsigned p) { return p == 0 ? 255 : 0; });
    ASSERT_EQ(Halftone(*e, m, band, kPhaseStart), 0);
    for (std::size_t y = 0; y < 3; ++y)
      for (std::size_t x = 0; x < 37; ++x) {
        EXPECT_FALSE(band.Dot(y, x, 0));
        EXPECT_TRUE(band.Dot(y, x, 1));
      }
    // Padding bits past the width stay clear.
    EXPECT_EQ(band.DotRow(0, 1)[4], 0xF8);
    EXPECT_EQ(band.DotRow(0, 1)[5] | band.DotRow(0, 1)[6] | band.DotRow(0, 1)[7], 0x00);
    TestBand grey(9, 3, 2, 128);  // s = 128 is a dot
    ASSERT_EQ(Halftone(*e, m, grey, kPhaseStart), 0);
    EXPECT_TRUE(grey.Dot(0, 0, 0) && grey.Dot(0, 0, 1)) << static_cast<int>(m);
  }
}

// The members whose inner steps are this library's own must reproduce tone: the share of dots
// over a flat patch follows the darkness of the input.
TEST(DoubleDesignedMembers, DotDensityFollowsTheTone) {
  for (DoubleMethod m : {DoubleMethod::kRunLength, DoubleMethod::kRandomSplit, DoubleMethod::kToneWeightRow}) {
    for (int level : {32, 96, 160, 224}) {
      auto e = MakeEngine(kTime);
      TestBand band(128, 64, 1, static_cast<std::uint8_t>(level));
      ASSERT_EQ(Halftone(*e, m, band, kPhaseStart), 0);
      EXPECT_NEAR(band.Density(), 1.0 - level / 255.0, 0.03) << static_cast<int>(m) << " level " << level;
    }
  }
}

TEST(DoubleDesignedMembers, DumpingVariantsMakeTheSameDots) {
  auto e = MakeEngine(kTime);
  TestBand plain(50, 7, 2, 140), rows(50, 7, 2, 140), pixels(50, 7, 2, 140);
  for (std::size_t x = 0; x < 50; ++x) plain.Set(3, 1, x, static_cast<std::uint8_t>(x * 5));
  rows.src = pixels.src = plain.src;
  ASSERT_EQ(Halftone(*e, DoubleMethod::kRandomSplit, plain, kPhaseStart), 0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kRandomSplitRowDump, rows, kPhaseStart), 0);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kRandomSplitPixelDump, pixels, kPhaseStart), 0);
  EXPECT_EQ(plain.dst, rows.dst);
  EXPECT_EQ(plain.dst, pixels.dst);
}

TEST(DoubleDesignedMembers, RandomSplitDependsOnTheSeed) {
  auto e = MakeEngine(kTime);
  TestBand a(64, 8, 1, 150), b(64, 8, 1, 150);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kRandomSplit, a, kPhaseStart), 0);
  e->clock.SetFixed(kTime + 1);
  ASSERT_EQ(Halftone(*e, DoubleMethod::kRandomSplit, b, kPhaseStart), 0);
  EXPECT_NE(a.dst, b.dst);
}

TEST(DoubleExports, EveryExportHasARegistryRowAndReachesItsMethod) {
  const std::pair<const char*, DoubleMethod> exports[] = {
      {"suiruiskao", DoubleMethod::kRunLength},          {"suiruiskao2", DoubleMethod::kRandomSplit},
      {"suiruiskao3", DoubleMethod::kRandomSplitRowDump}, {"suiruiskao4", DoubleMethod::kRandomSplitPixelDump},
      {"suiruiskao5", DoubleMethod::kQuarterColumnBias},  {"suiruiskao6", DoubleMethod::kToneWeightRow},
      {"suiruiskao7", DoubleMethod::kHalfColumnBias},     {"suiruiskao9", DoubleMethod::kEveryColumnBias},
      {"suiruiskao10", DoubleMethod::kDiagonal},          {"CrisixOut_double", DoubleMethod::kModulated},
  };
  halftone_set_fixed_time(kTime);
  for (const auto& [name, method] : exports) {
    halftone_method_info info{};
    ASSERT_TRUE(FindMethod(name, info)) << name;
    EXPECT_EQ(info.output_bits, 1);
    EXPECT_EQ(info.entry_kind, HALFTONE_ENTRY_BAND_UNSIGNED);
    TestBand via_export(33, 6, 2, [](std::size_t x, std::size_t y, unsigned p) { return p ? 255 - x * 3 : x * 7 + y * 13; });
    TestBand via_engine = via_export;
    auto* s = via_export.src.data();
    ASSERT_EQ(CallMethod(info, s, via_export.dst.data(), 33, 6, Flags(2, kPhaseStart)), 0);
    EXPECT_EQ(CallMethod(info, s, via_export.dst.data(), 0, 6, Flags(2, kPhaseEnd)), kErrOutOfContract);
    auto e = MakeEngine(kTime);
    ASSERT_EQ(Halftone(*e, method, via_engine, kPhaseStart), 0);
    EXPECT_EQ(via_export.dst, via_engine.dst) << name;
  }
  halftone_set_fixed_time(-1);
}

}  // namespace
}  // namespace halftone
