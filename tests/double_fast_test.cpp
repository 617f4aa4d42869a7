// The fast passes of the double-precision family against their readable reference: whole jobs
// of several bands on awkward sizes and plane counts, on one thread and two, comparing the dots,
// the bit patterns of every carried and working-row double, the fourth row and the random
// register after every band.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <cstdint>
#include <random>
#include <vector>

#include "frame/dispatch.h"
#include "tablediffusion/double_diffusion.h"
#include "test_support.h"

namespace halftone {
namespace {

using namespace halftone_test;

constexpr DoubleMethod kMethods[] = {
    DoubleMethod::kRunLength,         DoubleMethod::kRandomSplit,       DoubleMethod::kRandomSplitRowDump,
    DoubleMethod::kRandomSplitPixelDump, DoubleMethod::kQuarterColumnBias, DoubleMethod::kToneWeightRow,
    DoubleMethod::kHalfColumnBias,    DoubleMethod::kEveryColumnBias,   DoubleMethod::kDiagonal,
    DoubleMethod::kModulated,
};

// How a band's samples are drawn.
enum class Content { kNoise, kExtremes, kFlats, kDarkTail };

std::uint8_t Sample(Content c, std::mt19937& gen, std::size_t y) {
  switch (c) {
    case Content::kNoise: return static_cast<std::uint8_t>(gen());
    case Content::kExtremes: {
      const unsigned k = gen() % 4;
      return k == 0 ? 0 : k == 1 ? 255 : k == 2 ? 128 : static_cast<std::uint8_t>(gen());
    }
    case Content::kFlats: {
      constexpr std::uint8_t kFlat[] = {0, 1, 127, 128, 205, 206, 240, 241, 245, 246, 254, 255};
      return kFlat[(y / 2) % std::size(kFlat)];
    }
    case Content::kDarkTail: return y == 0 ? static_cast<std::uint8_t>(gen()) : 0;
  }
  return 0;
}

// What a job leaves after a band: dots, the bit patterns of the carry, working and fourth rows,
// and the next word of the random register.
struct Snapshot {
  std::vector<std::uint8_t> dots;
  std::vector<std::uint64_t> carry, a, b, fourth;
  std::uint32_t next_word = 0;
  bool operator==(const Snapshot&) const = default;
};

std::vector<std::uint64_t> Bits(const double* d, std::size_t n) {
  std::vector<std::uint64_t> out(n);
  for (std::size_t i = 0; i < n; ++i) out[i] = std::bit_cast<std::uint64_t>(d[i]);
  return out;
}

struct Job {
  DoubleMethod method;
  std::size_t w;
  std::vector<std::size_t> hs;
  unsigned planes;
  Content content;
  bool tiles;  // fill the per-level modulation tiles with noise
  unsigned seed;
};

std::vector<Snapshot> RunJob(const Job& job, bool fast, int threads) {
  SetForceScalar(fast ? 0 : 1);
  auto e = MakeEngine(2000 + job.seed);
  e->threads.SetCount(threads);
  std::mt19937 gen(job.seed);
  if (job.tiles)
    for (auto& level : e->tables.layers_double)
      for (auto& row : level)
        for (double& t : row) t = static_cast<double>(static_cast<int>(gen() % 2001) - 1000) / 37.0;
  std::vector<Snapshot> out;
  for (std::size_t i = 0; i < job.hs.size(); ++i) {
    const std::size_t h = job.hs[i], w = job.w;
    auto src = MakeBand(w, h, job.planes, [&](std::size_t, std::size_t y, unsigned) { return Sample(job.content, gen, y); });
    std::vector<std::uint8_t> dst(DotStride(w, 1) * job.planes * h + 4, kCanary);
    const unsigned phase = i == 0 ? kPhaseStart : (i + 1 == job.hs.size() ? kPhaseEnd : 0);
    EXPECT_EQ(DoubleDiffusion(*e, job.method, src.data(), dst.data(), w, h, HalftoneFlags{Flags(job.planes, phase)}), 0);
    Snapshot s;
    s.dots = dst;
    if (e->double_rows.live()) {
      s.carry = Bits(e->double_rows.carry_all(), w * job.planes);
      s.a = Bits(e->double_rows.a(), w);
      s.b = Bits(e->double_rows.b(), w);
    }
    s.fourth = Bits(e->double_weight_row.data(), e->double_weight_row.size());
    s.next_word = e->random.NextStateWord();
    out.push_back(s);
  }
  SetForceScalar(-1);
  return out;
}

void ExpectFastMatchesReference(const Job& job) {
  const auto ref = RunJob(job, false, 1);
  for (int threads : {1, 2}) {
    const auto fast = RunJob(job, true, threads);
    ASSERT_EQ(ref.size(), fast.size());
    for (std::size_t i = 0; i < ref.size(); ++i)
      ASSERT_TRUE(ref[i] == fast[i]) << "method " << static_cast<int>(job.method) << " w " << job.w << " planes "
                                     << job.planes << " content " << static_cast<int>(job.content) << " seed "
                                     << job.seed << " threads " << threads << " band " << i
                                     << (ref[i].dots != fast[i].dots ? " (dots differ)" : " (rows differ)");
  }
}

TEST(DoubleFast, WholeJobsMatchTheReference) {
  unsigned seed = 0;
  for (DoubleMethod m : kMethods)
    for (const std::size_t w : {1u, 2u, 3u, 7u, 8u, 9u, 17u, 64u, 131u})
      for (const unsigned planes : {1u, 2u, 3u, 4u, 5u, 9u}) {
        ++seed;
        // Odd and even band heights, so last rows run either way, and one-row bands.
        const std::vector<std::size_t> hs = {seed % 2 ? 3u : 4u, 1u, 2u, 5u};
        const Content content = static_cast<Content>(seed % 3);
        ExpectFastMatchesReference({m, w, hs, planes, content, seed % 4 == 0, seed});
      }
}

TEST(DoubleFast, TinyErrorsMatchTheReference) {
  // Black after one noisy row: on a narrow row the error drains a quarter at a time through the
  // row ends, down into subnormal doubles and zero, where a reordered operation would show.
  unsigned seed = 500;
  for (DoubleMethod m : kMethods)
    for (const std::size_t w : {1u, 2u, 3u})
      for (const unsigned planes : {1u, 4u})
        ExpectFastMatchesReference({m, w, {700u, 64u}, planes, Content::kDarkTail, false, ++seed});
}

TEST(DoubleFast, LongRowsMatchTheReference) {
  // Rows long enough for the run-length member's runs and the diagonal mask to wrap, several
  // bands of a job, with loaded modulation tiles.
  unsigned seed = 900;
  for (DoubleMethod m : kMethods)
    for (const unsigned planes : {1u, 3u, 4u})
      ExpectFastMatchesReference({m, 301, {33u, 40u, 7u}, planes, Content::kNoise, true, ++seed});
}

// The two-thirds share divides once by 1.5 where the readable pass doubles and divides by 3:
// the same double for every error, from subnormal to huge, of either sign.
TEST(DoubleFast, TwoThirdsAsOneDivisionIsTheSameDouble) {
  std::mt19937_64 gen(11);
  volatile double two = 2.0, three = 3.0, one_and_a_half = 1.5;  // no folding at compile time
  for (int i = 0; i < 2000000; ++i) {
    // Random bit patterns, every exponent short of where doubling overflows, and errors of
    // the size a diffusion carries.
    double e = std::bit_cast<double>(gen());
    if (i % 3 == 0) e = static_cast<double>(static_cast<std::int64_t>(gen() % 2000001) - 1000000) / 3.0;
    if (!std::isfinite(e) || std::fabs(e) >= std::numeric_limits<double>::max() / 2) continue;
    const std::uint64_t once = std::bit_cast<std::uint64_t>(e / one_and_a_half);
    ASSERT_EQ(std::bit_cast<std::uint64_t>((e * two) / three), once) << e;
    ASSERT_EQ(std::bit_cast<std::uint64_t>((e + e) / three), once) << e;
  }
}

}  // namespace
}  // namespace halftone
