// The pieces of the fast level-keyed bias diffusion: the four-level window over every value,
// the draw counts over awkward widths. Whole jobs are compared with the reference in tier_test.
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

}  // namespace
}  // namespace halftone
