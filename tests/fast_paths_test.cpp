// The pieces the fast paths stand on: the random stream drawn in a batch, the plane threads, and
// no allocation once a job has started.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "frame/band_draws.h"
#include "frame/engine.h"
#include "frame/plane_threads.h"
#include "frame/random_bits.h"
#include "golden_jobs.h"
#include "test_support.h"

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"  // the counting new below is malloc-based
#endif

// Counts every allocation of this test binary (the library's included: it shares the heap
// functions of the process).
namespace {
std::atomic<long long> g_allocations{0};
}
void* operator new(std::size_t n) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using halftone::RandomBitSource;

// Batches of every awkward size (inside the first three words, inside the register length,
// across it, long) must give the single draws' words and leave the register where they do.
TEST(DrawWords, MatchesSingleDrawsAndLeavesTheSameRegister) {
  RandomBitSource batch, single;
  batch.Seed(1234567);
  single.Seed(1234567);
  for (std::size_t n : {0u, 1u, 2u, 3u, 4u, 27u, 28u, 30u, 31u, 32u, 33u, 34u, 35u, 37u, 38u, 39u, 62u, 1000u, 4099u, 5u}) {
    std::vector<std::uint32_t> words(n);
    batch.DrawWords(words.data(), n);
    for (std::size_t i = 0; i < n; ++i) ASSERT_EQ(words[i], single.NextStateWord()) << "batch of " << n << ", word " << i;
    ASSERT_EQ(batch.state(), single.state()) << "after a batch of " << n;
    ASSERT_EQ(batch.front(), single.front());
    ASSERT_EQ(batch.rear(), single.rear());
  }
  EXPECT_EQ(batch.NextStateWord(), single.NextStateWord());
}

// Byte fields of draws, in chunks and sixteen at a time: every field must be the single draw's
// bits, across chunk ends and tails of every length, with the register left as single draws
// leave it.
TEST(DrawByteFields, MatchesSingleDrawsAcrossChunksAndTails) {
  constexpr std::size_t kChunk = RandomBitSource::kFieldChunk;
  std::vector<std::uint32_t> chunk(kChunk);
  RandomBitSource batch, single;
  batch.Seed(98765);
  single.Seed(98765);
  struct Field {
    unsigned shift;
    std::uint8_t mask;
  };
  for (const Field f : {Field{1, 0xFF}, Field{0, 2}, Field{1, 3}, Field{7, 0x81}}) {
    for (std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{15}, std::size_t{16}, std::size_t{17},
                          std::size_t{47}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk + 21}) {
      std::vector<std::uint8_t> out(n + 1, 0xA5);
      batch.DrawByteFields(out.data(), n, f.shift, f.mask, chunk.data());
      for (std::size_t i = 0; i < n; ++i)
        ASSERT_EQ(out[i], (single.NextStateWord() >> f.shift) & f.mask)
            << "shift " << f.shift << ", " << n << " draws, draw " << i;
      ASSERT_EQ(out[n], 0xA5) << "wrote past " << n << " draws";
      ASSERT_EQ(batch.state(), single.state());
      ASSERT_EQ(batch.front(), single.front());
    }
  }
}

// A band's draws shared out among threads: each part from a jumped copy of the generator, so
// the bytes, the spare bytes behind them and the generator's end must be those of one thread
// drawing them all, for runs under and over the sharing threshold and parts of unequal length.
TEST(DrawBandBytes, SameBytesAndGeneratorOnAnyThreadCount) {
  using halftone::kSpreadDraws;
  for (std::size_t n : {std::size_t{1000}, kSpreadDraws - 1, kSpreadDraws, kSpreadDraws + 12345, 3 * kSpreadDraws + 7}) {
    auto one = std::make_unique<halftone::Engine>();
    one->random.Seed(4242);
    const std::uint8_t* ref = halftone::DrawBandBytes(*one, n, 0, 1, 3, 1);
    const std::vector<std::uint8_t> expected(ref, ref + n);
    for (int threads : {2, 3}) {
      auto many = std::make_unique<halftone::Engine>();
      many->threads.SetCount(threads);
      many->random.Seed(4242);
      // The spare byte behind the draws is left alone.
      reinterpret_cast<std::uint8_t*>(many->draws.Reserve(n / 4 + 1))[n] = 0x5A;
      const std::uint8_t* got = halftone::DrawBandBytes(*many, n, 1, 1, 3, 4);
      ASSERT_EQ(std::vector<std::uint8_t>(got, got + n), expected) << n << " draws on " << threads << " threads";
      EXPECT_EQ(got[n], 0x5A);
      EXPECT_EQ(many->random.state(), one->random.state()) << "the generator must end where " << n << " draws end";
      EXPECT_EQ(many->random.front(), one->random.front());
      EXPECT_EQ(many->random.rear(), one->random.rear());
    }
  }
}

TEST(PlaneThreads, EveryPlaneOnceWhateverTheCount) {
  halftone::PlaneThreads threads;
  for (int n : {1, 2, 3, 1, 4}) {
    threads.SetCount(n);
    EXPECT_EQ(threads.count(), n);
    for (unsigned planes : {1u, 2u, 4u, 7u}) {
      std::vector<std::atomic<int>> seen(planes);
      for (int round = 0; round < 50; ++round) threads.ForEachPlane(planes, [&](unsigned p) { seen[p].fetch_add(1); });
      for (unsigned p = 0; p < planes; ++p) EXPECT_EQ(seen[p].load(), 50) << n << " threads, plane " << p;
    }
  }
  threads.SetCount(0);
  EXPECT_EQ(threads.count(), 1) << "counts below one mean the caller alone";
}

// After the first band of a job, further bands of the same size allocate nothing, on one
// thread or two.
class NoAllocationPerBand : public testing::TestWithParam<int> {};

TEST_P(NoAllocationPerBand, AfterTheFirstBand) {
  // A folder of its own: ctest runs the two parameters at once.
  const halftone_test::TempFolder folder;
  const std::filesystem::path host = folder.path() / "host";
  ASSERT_EQ(golden::LoadFixedTables(host), 0);
  ASSERT_EQ(halftone_set_threads(GetParam()), GetParam());
  constexpr std::size_t kW = 301, kH = 8;
  constexpr unsigned kPlanes = 4;
  for (int i = 0, n = halftone_method_count(); i < n; ++i) {
    halftone_method_info m{};
    ASSERT_EQ(halftone_method_get(i, &m), 0);
    if (m.entry_kind != HALFTONE_ENTRY_BAND && m.entry_kind != HALFTONE_ENTRY_BAND_UNSIGNED) continue;
    auto src = golden::ChartBand(kW, 0, kH, kPlanes);
    std::vector<std::uint8_t> dst(golden::DstStride(kW, static_cast<unsigned>(m.output_bits)) * kPlanes * kH);
    const long long at_start = g_allocations.load();
    golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_START));
    if (std::string(m.name) == "RoundFaxest") {
      EXPECT_GT(g_allocations.load(), at_start) << "the counter must see the library make its job rows";
    }
    golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_MIDDLE));
    const long long before = g_allocations.load();
    for (int band = 0; band < 3; ++band)
      golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_MIDDLE));
    EXPECT_EQ(g_allocations.load(), before) << m.name << " allocates in a middle band";
    golden::CallBand(m, src.data(), dst.data(), kW, kH, HALFTONE_FLAGS(kPlanes, HALFTONE_PHASE_END));
  }
  halftone_set_threads(1);
  halftone_set_host_folder(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Threads, NoAllocationPerBand, testing::Values(1, 2));

}  // namespace
