// The second round of the fast random-split scans: the generator jump that lets each plane
// start its own copy of the random stream where its slice begins, and whole jobs on the shapes
// where per-row drawing and the compare-based decisions could slip (row lengths around the
// register's 31 words, one-pixel rows, many planes, thread counts, extreme samples).
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "frame/random_bits.h"

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

}  // namespace
}  // namespace halftone
