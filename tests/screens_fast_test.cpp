// The screens' and the lookup diffusions' fast paths against their reference passes: runs of
// every length at every byte offset, odd widths, irregular stack geometry and edge masks, and
// lookup tables that wrap, must give the same bytes (job rows included) either way.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <vector>

#include "frame/dispatch.h"
#include "frame/engine.h"
#include "rotated/lookup_diffusion.h"
#include "screening/loaders.h"
#include "screening/screens.h"
#include "test_support.h"

namespace halftone {
namespace {

using halftone_test::DotStride;
using halftone_test::Flags;
using halftone_test::RasterStride;

// Samples in runs of random length (1 .. max_run) and level, so run ends fall everywhere.
std::vector<std::uint8_t> RunBand(std::size_t w, std::size_t h, unsigned planes, unsigned max_run, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<std::uint8_t> band(RasterStride(w) * planes * h, 0);
  for (std::size_t r = 0; r < h * planes; ++r) {
    std::uint8_t* row = band.data() + r * RasterStride(w);
    for (std::size_t x = 0; x < w;) {
      const std::size_t n = 1 + rng() % max_run;
      const auto level = static_cast<std::uint8_t>(rng() % 4 == 0 ? rng() % 3 : rng());
      for (std::size_t k = 0; k < n && x < w; ++k) row[x++] = level;
    }
  }
  return band;
}

class FastPathsMatch : public ::testing::Test {
 protected:
  void SetUp() override {
    std::mt19937 rng(7);
    for (auto& slot : e->tables.mono)
      for (auto& row : slot)
        for (auto& b : row) b = static_cast<std::uint8_t>(rng());
    for (auto& slot : e->tables.duo)
      for (auto& row : slot)
        for (auto& b : row) b = static_cast<std::uint8_t>(rng());
    for (auto& row : e->tables.bitmap)
      for (auto& b : row) b = static_cast<std::uint8_t>(rng());
    for (auto& row : e->tables.bayer)
      for (auto& b : row) b = static_cast<std::uint8_t>(rng());
  }
  void TearDown() override { SetForceScalar(-1); }

  // The job state a screen reads or leaves: carry row, rows A and B, row counters.
  struct JobState {
    std::vector<std::int16_t> carry, a, b;
    std::array<std::uint32_t, kPlaneRowCounterCount> counters{};
    bool operator==(const JobState&) const = default;
  };
  JobState Save() {
    JobState s;
    const std::size_t w = e->rows.width();
    s.carry.assign(e->rows.carry_all(), e->rows.carry_all() + w * e->rows.planes());
    s.a.assign(e->rows.a(), e->rows.a() + w);
    s.b.assign(e->rows.b(), e->rows.b() + w);
    s.counters = e->tables.plane_row_counters;
    return s;
  }
  void Restore(const JobState& s) {
    std::copy(s.carry.begin(), s.carry.end(), e->rows.carry_all());
    std::copy(s.a.begin(), s.a.end(), e->rows.a());
    std::copy(s.b.begin(), s.b.end(), e->rows.b());
    e->tables.plane_row_counters = s.counters;
  }

  // Runs `call(out)` on the reference and the fast path from the same job state.
  template <class Call>
  void ExpectSame(std::size_t out_bytes, Call call, const char* what) {
    const JobState before = Save();
    std::vector<std::uint8_t> ref(out_bytes, 0xEE), fast(out_bytes, 0xEE);
    SetForceScalar(1);
    call(ref.data());
    const JobState after_ref = Save();
    Restore(before);
    SetForceScalar(0);
    call(fast.data());
    ASSERT_EQ(ref, fast) << what;
    ASSERT_TRUE(after_ref == Save()) << what << ": job rows or counters differ";
  }

  std::unique_ptr<Engine> e = std::make_unique<Engine>();
};

TEST_F(FastPathsMatch, PatternScreens) {
  const EdgeMasks mono{{0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE}, {0xFF, 0x7F, 0x3F, 0x1F, 0x0F, 0x07, 0x03, 0x01}};
  const EdgeMasks duo{{0x00, 0xC0, 0xF0, 0xFC, 0xFF, 0xFF, 0xFF, 0xFF}, {0xFF, 0x3F, 0x0F, 0x03, 0x00, 0x00, 0x00, 0x00}};
  const PatternGeometry geometries[] = {{256, 256, 32}, {64, 5, 8}, {24, 3, 3}, {256, 256, 64}, {40, 300, 5}, {16, 4, 2}};
  unsigned seed = 1;
  for (const EdgeMasks& masks : {mono, duo, EdgeMasks{}})
    for (const PatternGeometry& g : geometries) {
      e->tables.masks = masks;
      e->tables.geometry = g;
      for (PatternScreen screen : {PatternScreen::kMonoLoadedGeometry, PatternScreen::kMonoFixed, PatternScreen::kDuoFixed})
        for (std::size_t w : {1u, 2u, 3u, 8u, 9u, 31u, 64u, 250u, 777u})
          for (unsigned max_run : {1u, 3u, 17u, 400u}) {
            const unsigned bits = screen == PatternScreen::kDuoFixed ? 2 : 1;
            // One plane or two: the planes of a band row read the same block of pattern rows.
            const std::size_t h = 7, planes = 1 + seed % 2;
            auto src = RunBand(w, h, planes, max_run, seed++);
            ExpectSame(DotStride(w, bits) * planes * h, [&](std::uint8_t* out) {
              ASSERT_EQ(ScreenWithPatterns(*e, screen, src.data(), out, w, h, HalftoneFlags{Flags(planes, 0)}), kOk);
            }, "pattern screen");
          }
    }
}

TEST_F(FastPathsMatch, ThresholdScreens) {
  unsigned seed = 100;
  for (ThresholdScreen screen : {ThresholdScreen::kBitmap, ThresholdScreen::kBayer, ThresholdScreen::kClusteredAm})
    for (std::size_t w : {1u, 15u, 16u, 17u, 100u, 300u, 1000u})
      for (unsigned planes : {1u, 3u}) {
        const std::size_t h = 19;
        auto src = RunBand(w, h, planes, 5, seed++);
        ExpectSame(DotStride(w, 1) * planes * h, [&](std::uint8_t* out) {
          ASSERT_EQ(ScreenWithThresholds(*e, screen, src.data(), out, w, h, HalftoneFlags{Flags(planes, 0)}), kOk);
        }, "threshold screen");
      }
}

TEST_F(FastPathsMatch, DispersedAmJob) {
  unsigned seed = 200;
  for (std::size_t w : {1u, 15u, 33u, 260u})
    for (unsigned planes : {1u, 2u}) {
      for (std::size_t h : {1u, 2u, 3u, 4u, 9u}) {
        auto src = RunBand(w, h, planes, 7, seed++);
        // A start band leaves a carry from a previous routine in place; middle bands follow.
        e->rows.Start(w, planes);
        // Every seventh entry near either end of the 16-bit range, so row 0 wraps.
        for (std::size_t i = 0; i < w; ++i)
          e->rows.carry_all()[i] = static_cast<std::int16_t>(i % 7 == 3 ? (i % 2 ? 32767 : -32768) : i * 37 % 300 - 150);
        ExpectSame(DotStride(w, 1) * planes * h, [&](std::uint8_t* out) {
          ASSERT_EQ(ScreenDispersedAmJob(*e, src.data(), out, w, h, HalftoneFlags{Flags(planes, 0)}), kOk);
        }, "dispersed amplitude screen");
      }
    }
}

TEST_F(FastPathsMatch, LookupDiffusions) {
  std::mt19937 rng(9);
  std::vector<std::int32_t> wild(256), gentle(256);
  for (std::size_t v = 0; v < 256; ++v) {
    wild[v] = static_cast<std::int32_t>(rng());
    gentle[v] = static_cast<std::int32_t>(v * v / 255) - 8;
  }
  const RotatedMember members[] = {RotatedMember::kTurnedLastRowFlat, RotatedMember::kTransposedLastRowFlat,
                                   RotatedMember::kTurned, RotatedMember::kTransposed,
                                   RotatedMember::kRowsReversed, RotatedMember::kMixed};
  unsigned seed = 300;
  for (const auto* lookup : {&gentle, &wild})
    for (int w : {1, 2, 3, 4, 9, 40, 129})
      for (int h : {1, 2, 3, 6, 17}) {
        auto src = RunBand(static_cast<std::size_t>(w), static_cast<std::size_t>(h), 1, 6, seed++);
        const std::size_t bytes = std::max(static_cast<std::size_t>(h) * DotStride(static_cast<std::size_t>(w), 1),
                                           static_cast<std::size_t>(w) * DotStride(static_cast<std::size_t>(h), 1));
        for (int m = -1; m < 6; ++m) {
          CrtRand ref_rng, fast_rng;
          std::vector<std::uint8_t> ref(bytes, 0xEE), fast(bytes, 0xEE);
          auto run = [&](std::uint8_t* out, CrtRand& r) {
            const LookupPlane plane{src.data(), out, w, h, lookup->data()};
            if (m < 0) return FourWayLookupDiffusion(plane, r, 4321);
            return RotatedLookupDiffusion(members[m], plane, r, 4321);
          };
          SetForceScalar(1);
          ASSERT_EQ(run(ref.data(), ref_rng), kOk);
          SetForceScalar(0);
          ASSERT_EQ(run(fast.data(), fast_rng), kOk);
          ASSERT_EQ(ref, fast) << "member " << m << ", " << w << " x " << h;
          ASSERT_EQ(ref_rng.Next(), fast_rng.Next()) << "the generator must end where the reference leaves it";
        }
      }
}

}  // namespace
}  // namespace halftone
