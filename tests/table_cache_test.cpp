// The decision-table cache: a table is made once per kind and key, remade when either changes,
// and a run of jobs on one engine whose level values change between them gets the dots of the
// reference passes for the levels of each job (a stale table would keep the old levels).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "frame/dispatch.h"
#include "frame/table_cache.h"
#include "random_split_jobs.h"
#include "test_support.h"

namespace halftone_test {
namespace {

struct SmallTable {
  std::array<int, 16> v;
};
struct KeyA {
  int level;
};
struct KeyB {
  int level;
};
struct NoKey {};

TEST(TableCache, MakesOncePerKindAndKey) {
  halftone::TableCache cache;
  int made = 0;
  auto make = [&](int fill) {
    return [&made, fill] {
      ++made;
      SmallTable t{};
      t.v.fill(fill);
      return t;
    };
  };
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{1}, make(10)).v[3], 10);
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{1}, make(11)).v[3], 10) << "same kind and key: the table kept";
  EXPECT_EQ(made, 1);
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{2}, make(12)).v[3], 12) << "another key";
  EXPECT_EQ(cache.Get<SmallTable>(KeyB{2}, make(13)).v[3], 13) << "same key bytes, another kind";
  EXPECT_EQ(cache.Get<SmallTable>(KeyA{2}, make(14)).v[3], 14) << "only the last table is kept";
  EXPECT_EQ(made, 4);
  EXPECT_EQ(cache.Get<SmallTable>(NoKey{}, make(15)).v[0], 15);
  EXPECT_EQ(cache.Get<SmallTable>(NoKey{}, make(16)).v[0], 15) << "an empty key matches itself";
  cache.Clear();
  EXPECT_EQ(cache.Get<SmallTable>(NoKey{}, make(17)).v[0], 17) << "cleared";
  EXPECT_EQ(made, 6);
}

// One engine, one-band jobs, level values changing between jobs (and back), each against a
// fresh engine on the reference passes with the same levels, seed and samples.
TEST(TableCache, LevelChangesBetweenJobsReachTheDots) {
  using halftone::Engine;
  const std::array<std::array<std::uint8_t, 9>, 3> level_sets = {{
      {0, 85, 170, 255, 0, 0, 0, 0, 0},
      {0, 36, 72, 109, 145, 182, 218, 255, 99},
      {0, 85, 170, 255, 0, 0, 0, 0, 0},
  }};
  constexpr std::size_t kW = 61, kH = 3;
  constexpr unsigned kPlanes = 2;
  for (const DiffuseRoutine& r : RandomSplitRoutines()) {
    auto fast = MakeEngine(1003);
    for (std::size_t job = 0; job < level_sets.size() * 2; ++job) {
      const auto& levels = level_sets[job % level_sets.size()];
      auto reference = MakeEngine(1003);
      std::copy(levels.begin(), levels.end(), reference->levels.L.begin());
      std::copy(levels.begin(), levels.end(), fast->levels.L.begin());
      // A start band and an end band.
      for (unsigned phase : {halftone::kPhaseStart, halftone::kPhaseEnd}) {
        auto src = NoiseBand(kW, kH, kPlanes, static_cast<unsigned>(job * 2 + phase));
        std::vector<std::uint8_t> want(DotStride(kW, r.bits) * kPlanes * kH, kCanary), got = want;
        const halftone::HalftoneFlags flags{Flags(kPlanes, phase)};
        halftone::SetForceScalar(1);
        ASSERT_EQ(r.call(*reference, src.data(), want.data(), kW, kH, flags), 0);
        halftone::SetForceScalar(0);
        ASSERT_EQ(r.call(*fast, src.data(), got.data(), kW, kH, flags), 0);
        halftone::SetForceScalar(-1);
        ASSERT_EQ(got, want) << r.name << " routine, job " << job << ", phase " << phase;
      }
    }
  }
}

}  // namespace
}  // namespace halftone_test
