// The fast level-keyed bias diffusion against its readable pass: the multiply-and-shift splits
// over every error a pixel can hold, the draw counts over awkward widths, and whole jobs (dots,
// carry and working rows after every band, the random register) on awkward sizes, plane counts,
// inputs and loaded carry rows, on one thread and two.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <tuple>
#include <vector>

#include "frame/dispatch.h"
#include "tablediffusion/level_bias_fast.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;
using level_bias::AheadShare;
using level_bias::MulShiftOf;

TEST(LevelBiasFast, MulShiftSplitsRoundAsDividedForEveryError) {
  // A pixel's error is a 16-bit value plus a sample, less a level, plus a bias byte: well
  // inside +-2^17. Every rule the members use, and the other forms the helper accepts.
  const ShareRule rules[] = {level_bias::kTwoThirds, level_bias::kThreeQuartersFloor, level_bias::kHalfFloor,
                             level_bias::kHalfTrunc,  kAllAhead,
                             {1, 3, Rounding::kTrunc, true},
                             {1, 4, Rounding::kTrunc, true},
                             {3, 4, Rounding::kTrunc, true},
                             {1, 4, Rounding::kFloor, true},
                             {0, 2, Rounding::kFloor, true}};
  for (const ShareRule& r : rules) {
    ASSERT_TRUE(level_bias::HasMulShift(r));
    const level_bias::MulShift m = MulShiftOf(r);
    for (int e = -(1 << 17); e <= (1 << 17); ++e)
      ASSERT_EQ(AheadShare(e, m), DivideRounded(r.num * e, r.den, r.rounding))
          << r.num << "/" << r.den << (r.rounding == Rounding::kFloor ? " floor" : " trunc") << " e " << e;
  }
  EXPECT_FALSE(level_bias::HasMulShift({2, 3, Rounding::kFloor, true}));
  EXPECT_FALSE(level_bias::HasMulShift({1, 5, Rounding::kTrunc, true}));
  EXPECT_FALSE(level_bias::HasMulShift({1, 2, Rounding::kTrunc, false}));
}

// The four-level window table must give what the sign-mask quantiser gives for every value a
// 16-bit error can make, on both sides of each window edge and of each threshold.
TEST(LevelBiasFast, FourLevelWindowMatchesTheQuantiserForEveryValue) {
  using level_bias::FourLevelWindow;
  const FourLevelWindow& window = level_bias::kFourLevelWindow;
  for (std::int64_t v = -32768 - 255; v <= 32767 + 255; ++v) {
    const FourLevelWindow::Result got = window.Decide(v), want = FourLevelWindow::Arithmetic(v);
    ASSERT_EQ(got.err, want.err) << "value " << v;
    ASSERT_EQ(got.code_less_max, want.code_less_max) << "value " << v;
  }
  // The levels themselves, so the table cannot agree with a wrong quantiser: 0/85/170/255 split
  // at 64/128/192, the darkest dot (code 3, kept as 0 less the maximum) at level 0.
  for (const auto& [v, level, code_less_max] :
       {std::tuple{64, 0, 0}, std::tuple{65, 85, -1}, std::tuple{128, 85, -1}, std::tuple{129, 170, -2},
        std::tuple{192, 170, -2}, std::tuple{193, 255, -3}, std::tuple{-600, 0, 0}, std::tuple{600, 255, -3}}) {
    const FourLevelWindow::Result r = window.Decide(v);
    EXPECT_EQ(r.err, v - level) << "value " << v;
    EXPECT_EQ(r.code_less_max, code_less_max) << "value " << v;
  }
}

TEST(LevelBiasFast, DrawCountsMatchAPlainCount) {
  std::mt19937 gen(3);
  for (std::size_t w = 0; w < 70; ++w) {
    std::vector<std::uint8_t> row(w);
    for (auto& s : row) s = static_cast<std::uint8_t>(gen());
    if (w % 5 == 0)
      for (auto& s : row) s = static_cast<std::uint8_t>(gen() % 2 ? 255 : 0);
    for (int limit : {0, 1, 127, 128, 166, 185, 213, 216, 255, 256}) {
      std::size_t n = 0;
      for (std::uint8_t s : row) n += s < limit;
      ASSERT_EQ(level_bias::CountBelow(row.data(), w, limit), n) << "w " << w << " limit " << limit;
    }
  }
}

const LevelBiasMember kMembers[] = {LevelBiasMember::kFourLevel, LevelBiasMember::kBilevelWide,
                                    LevelBiasMember::kBilevelHalves, LevelBiasMember::kBilevelLight,
                                    LevelBiasMember::kBilevelHalving};
unsigned BitsOf(LevelBiasMember m) { return m == LevelBiasMember::kFourLevel ? 2 : 1; }

// What a job leaves behind after a band: the dots (with the canary past them), the carry
// entries, both shared working rows and the next word of the random register.
struct Snapshot {
  std::vector<std::uint8_t> dots;
  std::vector<std::int16_t> carry, a, b;
  std::uint32_t next_word = 0;
  bool operator==(const Snapshot&) const = default;
};

struct BandShape {
  std::size_t w, h;
};

enum class Content { kNoise, kExtremes, kRamps };

// A job of bands of the given shapes; before every middle band the carry row is loaded with
// arbitrary 16-bit errors when `wild_carry` is set, so the 16-bit truncation of every store and
// the splits of the largest errors take part.
std::vector<Snapshot> RunJob(LevelBiasMember m, bool fast, int threads, const std::vector<BandShape>& bands,
                             unsigned planes, Content content, bool wild_carry, unsigned seed) {
  SetForceScalar(fast ? 0 : 1);
  auto e = MakeEngine(2000 + seed);
  e->threads.SetCount(threads);
  std::mt19937 gen(seed);
  const unsigned bits = BitsOf(m);
  std::vector<Snapshot> out;
  for (std::size_t i = 0; i < bands.size(); ++i) {
    const auto [w, h] = bands[i];
    if (i > 0 && wild_carry && e->rows.live())
      for (std::size_t k = 0; k < e->rows.width() * e->rows.planes(); ++k)
        e->rows.carry_all()[k] = static_cast<std::int16_t>(gen());
    auto src = MakeBand(w, h, planes, [&](std::size_t x, std::size_t y, unsigned p) -> unsigned {
      switch (content) {
        case Content::kExtremes: return gen() % 2 ? 255u : 0u;
        case Content::kRamps: return static_cast<unsigned>((x * 7 + y * 3 + p * 50) % 256);
        default: break;
      }
      const unsigned k = gen() % 8;
      return k == 0 ? 0u : k == 1 ? 255u : gen() & 0xFF;
    });
    std::vector<std::uint8_t> dst(DotStride(w, bits) * planes * h + 4, kCanary);
    const unsigned phase = i == 0 ? kPhaseStart : (i + 1 == bands.size() ? kPhaseEnd : 0);
    EXPECT_EQ(LevelBiasDiffusion(*e, m, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}), 0);
    Snapshot s;
    s.dots = dst;
    if (e->rows.live()) {
      s.carry.assign(e->rows.carry_all(), e->rows.carry_all() + e->rows.width() * e->rows.planes());
      s.a.assign(e->rows.a(), e->rows.a() + e->rows.width());
      s.b.assign(e->rows.b(), e->rows.b() + e->rows.width());
    }
    s.next_word = e->random.NextStateWord();
    out.push_back(s);
  }
  SetForceScalar(-1);
  return out;
}

void ExpectSameJob(LevelBiasMember m, const std::vector<BandShape>& bands, unsigned planes, Content content,
                   bool wild_carry, unsigned seed) {
  const auto ref = RunJob(m, false, 1, bands, planes, content, wild_carry, seed);
  for (int threads : {1, 2}) {
    const auto fast = RunJob(m, true, threads, bands, planes, content, wild_carry, seed);
    ASSERT_EQ(ref.size(), fast.size());
    for (std::size_t i = 0; i < ref.size(); ++i) {
      ASSERT_EQ(ref[i].dots, fast[i].dots) << "member " << static_cast<int>(m) << " w " << bands[i].w << " h "
                                           << bands[i].h << " planes " << planes << " threads " << threads
                                           << " band " << i;
      ASSERT_TRUE(ref[i] == fast[i]) << "rows differ: member " << static_cast<int>(m) << " w " << bands[i].w
                                     << " planes " << planes << " threads " << threads << " band " << i;
    }
  }
}

TEST(LevelBiasFast, WholeJobsMatchTheReference) {
  unsigned seed = 0;
  for (const LevelBiasMember m : kMembers)
    for (const std::size_t w : {1u, 2u, 3u, 5u, 7u, 8u, 9u, 17u, 33u, 64u})
      for (const unsigned planes : {1u, 2u, 3u, 4u, 5u, 6u}) {
        ++seed;
        const std::size_t first_h = seed % 2 ? 3 : 4;
        const std::vector<BandShape> bands = {{w, first_h}, {w, 1}, {w, 2}, {w, 0}, {w, 5}, {w, 6}};
        const Content content = seed % 3 == 0 ? Content::kRamps : Content::kNoise;
        ExpectSameJob(m, bands, planes, content, false, seed);
      }
}

TEST(LevelBiasFast, ExtremeInputsAndLoadedCarryRowsMatchTheReference) {
  // Pure black and white only, and carry rows loaded with any 16-bit error: the largest
  // errors, the stores that wrap, later bands narrower than the job, and a band of no rows
  // after a narrower one (it must leave row B as it was).
  unsigned seed = 500;
  for (const LevelBiasMember m : kMembers)
    for (const unsigned planes : {1u, 3u, 4u, 6u})
      for (const bool wild : {false, true}) {
        ++seed;
        const std::vector<BandShape> bands = {{41, 2}, {41, 4}, {13, 3}, {41, 0}, {41, 2}, {40, 8}};
        ExpectSameJob(m, bands, planes, wild ? Content::kNoise : Content::kExtremes, wild, seed);
        ExpectSameJob(m, bands, planes, Content::kExtremes, true, seed + 1000);
      }
}

TEST(LevelBiasFast, ZeroPlanesAndZeroWidthTouchNothing) {
  for (const LevelBiasMember m : kMembers) {
    ExpectSameJob(m, {{16, 2}, {0, 3}, {16, 2}}, 2, Content::kNoise, false, 9);
    ExpectSameJob(m, {{16, 2}, {16, 3}}, 0, Content::kNoise, false, 9);
  }
}

}  // namespace
}  // namespace halftone
