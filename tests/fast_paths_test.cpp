// What the fast paths promise besides their bytes: every plane handed to a thread exactly once,
// and no allocation once a job has started.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "frame/engine.h"
#include "frame/plane_threads.h"
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
