// The fast random-split scans that draw a row at a time: the generator jump that lets each
// plane start its own copy of the random stream where its slice begins, and whole jobs on the
// shapes where per-row drawing could slip (row lengths around the register's 31 words,
// one-pixel rows, many planes, thread counts, extreme samples).
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "diffusion/four_level.h"
#include "diffusion/random_split.h"
#include "frame/dispatch.h"
#include "frame/engine.h"
#include "frame/random_bits.h"
#include "test_support.h"

namespace halftone {
namespace {

// Jumps of every small size (inside one register length, across it, around its multiples) and
// large ones made of random bit patterns, from registers at every pointer position.
TEST(RandomJump, SkipLeavesTheRegisterOfPlainDrawing) {
  std::mt19937 gen(11);
  std::vector<std::uint64_t> sizes;
  for (std::uint64_t n = 0; n <= 100; ++n) sizes.push_back(n);
  for (std::uint64_t n : {123u, 930u, 961u, 4095u, 4096u, 4097u, 65535u, 1048575u}) sizes.push_back(n);
  for (int i = 0; i < 8; ++i) sizes.push_back(gen() % 3000000);
  for (const std::uint64_t n : sizes) {
    const RandomJump jump(n);
    RandomBitSource drawn, skipped;
    drawn.Seed(static_cast<std::uint32_t>(gen()));
    for (unsigned k = gen() % 31; k > 0; --k) drawn.NextStateWord();  // any pointer position
    skipped = drawn;
    for (std::uint64_t k = 0; k < n; ++k) drawn.NextStateWord();
    skipped.Skip(jump);
    ASSERT_EQ(drawn.front(), skipped.front()) << n;
    ASSERT_EQ(drawn.rear(), skipped.rear()) << n;
    ASSERT_EQ(drawn.state(), skipped.state()) << n;
    for (int k = 0; k < 40; ++k) ASSERT_EQ(drawn.NextStateWord(), skipped.NextStateWord()) << n;
  }
}

TEST(RandomJump, RepeatedJumpsComposeLikeOneLongJump) {
  // Plane p starts p slices in: p jumps of one slice, against one jump of p slices and drawing.
  RandomBitSource stepped, direct, drawn;
  stepped.Seed(1700000000u);
  direct = drawn = stepped;
  const RandomJump slice(4097 * 3 + 5);
  for (unsigned p = 1; p <= 5; ++p) {
    stepped.Skip(slice);
    for (std::uint64_t k = 0; k < slice.draws(); ++k) drawn.NextStateWord();
    RandomBitSource from_start = direct;
    from_start.Skip(RandomJump(slice.draws() * p));
    ASSERT_EQ(stepped.state(), drawn.state()) << p;
    ASSERT_EQ(from_start.state(), drawn.state()) << p;
    ASSERT_EQ(from_start.front(), drawn.front()) << p;
  }
}

using halftone_test::DotStride;
using halftone_test::Flags;
using halftone_test::kCanary;
using halftone_test::MakeBand;
using halftone_test::MakeEngine;

// A whole job of routines whose fast scans draw per row, fast against reference: dots, carry, both shared working rows and the generator after every band.
// Widths around the register length and odd ones, one-row bands, many planes, samples that
// are mostly 0 and 255 with noise between, level sets ascending or not, curves up to 255.
struct JobResult {
  std::vector<std::uint8_t> dots;
  std::vector<std::int16_t> carry, a, b;
  std::uint32_t next_word = 0;
  bool operator==(const JobResult&) const = default;
};

template <class Call>
std::vector<JobResult> RunJob(Call call, unsigned bits, bool fast, int threads, std::size_t w,
                              const std::vector<std::size_t>& hs, unsigned planes, unsigned seed) {
  SetForceScalar(fast ? 0 : 1);
  auto e = MakeEngine(2000 + seed);
  e->threads.SetCount(threads);
  std::mt19937 gen(seed);
  for (auto& l : e->levels.L) l = static_cast<std::uint8_t>(gen());
  if (seed % 3 == 0) e->levels.L = {255, 170, 85, 0, 0, 0, 0, 0, 0};
  for (auto& slot : e->curves.slots)
    for (auto& c : slot) c = static_cast<std::uint8_t>(gen() % (seed % 2 ? 256 : 32));
  e->curves.curve_a = 4;
  e->curves.curve_b = 9;
  std::vector<JobResult> out;
  for (std::size_t i = 0; i < hs.size(); ++i) {
    const std::size_t h = hs[i];
    auto src = MakeBand(w, h, planes, [&](std::size_t, std::size_t, unsigned) {
      const unsigned k = gen() % 4;
      return k == 0 ? 0u : k == 1 ? 255u : gen() & 0xFF;
    });
    std::vector<std::uint8_t> dst(DotStride(w, bits) * planes * h + 4, kCanary);
    const unsigned phase = i == 0 ? 1 : (i + 1 == hs.size() ? 3 : 0);
    EXPECT_EQ(call(*e, src.data(), dst.data(), w, h, HalftoneFlags{Flags(planes, phase)}), 0);
    JobResult r;
    r.dots = dst;
    if (e->rows.live()) {
      r.carry.assign(e->rows.carry_all(), e->rows.carry_all() + w * planes);
      r.a.assign(e->rows.a(), e->rows.a() + w);
      r.b.assign(e->rows.b(), e->rows.b() + w);
    }
    r.next_word = e->random.NextStateWord();
    out.push_back(r);
  }
  SetForceScalar(-1);
  return out;
}

TEST(RandomSplitFast2, JobsAcrossRowLengthsAndPlaneCountsMatchTheReference) {
  auto spine = [](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h, HalftoneFlags f) {
    return SerpentineFourLevel(e, s, d, w, h, f);
  };
  auto grouped = [](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h, HalftoneFlags f) {
    return GroupedFourLevel(e, s, d, w, h, f, GroupedMethod::kLevelValues);
  };
  auto one_bit = [](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h, HalftoneFlags f) {
    return BilevelRandomSplit(e, s, d, w, h, f, BilevelMethod::kLightnessOneBitJobSeed);
  };
  auto eight = [](Engine& e, std::uint8_t* s, std::uint8_t* d, std::size_t w, std::size_t h, HalftoneFlags f) {
    return EightLevel(e, s, d, w, h, f, EightLevelMethod::kLevelValues);
  };
  unsigned seed = 0;
  for (const std::size_t w : {1u, 2u, 3u, 7u, 30u, 31u, 32u, 63u, 129u})
    for (const unsigned planes : {1u, 2u, 3u, 4u, 6u}) {
      ++seed;
      const std::vector<std::size_t> hs = {seed % 2 ? 1u : 2u, 3u, 1u, 33u, 2u};
      auto check = [&](auto call, unsigned bits, const char* name) {
        const auto ref = RunJob(call, bits, false, 1, w, hs, planes, seed);
        for (int threads : {1, 2, 3}) {
          const auto fast = RunJob(call, bits, true, threads, w, hs, planes, seed);
          ASSERT_EQ(ref.size(), fast.size());
          for (std::size_t i = 0; i < ref.size(); ++i)
            ASSERT_TRUE(ref[i] == fast[i]) << name << " w " << w << " planes " << planes << " threads " << threads
                                           << " band " << i;
        }
      };
      check(spine, 2, "spine");
      check(grouped, 2, "grouped");
      check(one_bit, 1, "one-bit job seed");
      check(eight, 4, "eight");
    }
}

// A band without planes starts the job and draws nothing, in both passes.
TEST(RandomSplitFast2, BandWithoutPlanesDrawsNothing) {
  std::vector<std::uint8_t> src(64, 128), dst(64, kCanary);
  for (int fast : {0, 1}) {
    SetForceScalar(fast ? 0 : 1);
    auto e = MakeEngine(7), seeded_only = MakeEngine(7);
    seeded_only->SeedFromClock();
    EXPECT_EQ(GroupedFourLevel(*e, src.data(), dst.data(), 5, 3, HalftoneFlags{Flags(0, 1)},
                               GroupedMethod::kLevelValues), 0);
    EXPECT_EQ(EightLevel(*e, src.data(), dst.data(), 5, 3, HalftoneFlags{Flags(0, 0)}, EightLevelMethod::kFixedLevels), 0);
    EXPECT_EQ(e->random.state(), seeded_only->random.state()) << "fast " << fast;
    EXPECT_EQ(dst, std::vector<std::uint8_t>(64, kCanary));
  }
  SetForceScalar(-1);
}

}  // namespace
}  // namespace halftone
