// The decision-table cache: a table is made once per kind and key, remade when either changes.
// (tier_test runs set-ups with other level values one after the other on one engine, so a stale
// table shows there as wrong dots.)
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "frame/dispatch.h"
#include "frame/table_cache.h"
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

}  // namespace
}  // namespace halftone_test
