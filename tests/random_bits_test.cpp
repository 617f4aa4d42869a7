// The random bit source decides every split; its sequence is part of the output.
#include "frame/random_bits.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "frame/clock.h"

namespace halftone {
namespace {

TEST(RandomBitSource, SeedingFillsTheRegisterWithTheLibraryMultiplier) {
  // Seed 1: word 1 = 1 * 1103515145 + 12345 = 1103527490; word 2 = 1103527490 * 1103515145
  // + 12345 mod 2^32 = 863943819.
  const auto words = RandomBitSource::SeededRegister(1);
  EXPECT_EQ(words[0], 1u);
  EXPECT_EQ(words[1], 1103527490u);
  EXPECT_EQ(words[2], 863943819u);

#if defined(__GLIBC__)
  // glibc's random_r draws exactly like the register above: load the seeded state into it,
  // let both discard 310 draws, and compare a long run of results.
  for (std::uint32_t seed : {0u, 1u, 1700000000u, 0xFFFFFFFFu}) {
    const auto seeded = RandomBitSource::SeededRegister(seed);

    char statebuf[128];
    random_data reference{};
    ASSERT_EQ(initstate_r(1, statebuf, sizeof statebuf, &reference), 0);
    std::memcpy(reference.state, seeded.data(), sizeof(std::uint32_t) * seeded.size());
    reference.fptr = reference.state + 3;
    reference.rptr = reference.state;

    RandomBitSource source;
    source.Seed(seed);
    for (int i = 0; i < 310; ++i) {
      std::int32_t discard = 0;
      random_r(&reference, &discard);
    }
    for (int i = 0; i < 20000; ++i) {
      std::int32_t expected = 0;
      random_r(&reference, &expected);
      ASSERT_EQ(source.Next(), static_cast<std::uint32_t>(expected)) << "seed " << seed << " draw " << i;
      ASSERT_EQ((source.front() - source.rear() + 31) % 31, 3) << "front stays three words ahead";
    }
  }
#endif
}

// The draws the hand-worked bands of the other tests rely on.
TEST(RandomBitSource, DrawsAtTheFixedTimesTheHandWorkUses) {
  const struct {
    std::uint32_t seed;
    bool two_bits;
    std::vector<unsigned> draws;
  } cases[] = {{1, true, {1, 0, 1, 2, 1}}, {1, false, {1, 0, 1, 0}}, {0, true, {3}},
               {1002, true, {0, 1, 1, 3}}, {1002, false, {0, 1, 1, 1}}};
  for (const auto& c : cases) {
    RandomBitSource r;
    r.Seed(c.seed);
    for (unsigned d : c.draws) EXPECT_EQ(c.two_bits ? r.NextTwoBits() : r.NextBit(), d) << "seed " << c.seed;
  }
}

TEST(RandomBitSource, SameSeedSameSequenceAndDefaultsBeforeSeeding) {
  RandomBitSource a, b;
  // Before any seeding the draw runs on the default register: a + rear word 0.
  const std::uint32_t expected_first = RandomBitSource::kDefaultState[3] + RandomBitSource::kDefaultState[0];
  EXPECT_EQ(a.NextStateWord(), expected_first);
  a.Seed(7);
  b.Seed(7);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(a.Next(), b.Next());
  b.Seed(8);
  int differing = 0;
  for (int i = 0; i < 100; ++i) differing += a.Next() != b.Next();
  EXPECT_GT(differing, 90);
}

TEST(SeedClock, FixedTimeOverridesAndNegativeRestoresTheClock) {
  SeedClock clock;
  EXPECT_FALSE(clock.fixed());
  clock.SetFixed(123456789012LL);
  EXPECT_EQ(clock.Seconds(), static_cast<std::uint32_t>(123456789012LL));
  clock.SetFixed(-1);
  EXPECT_FALSE(clock.fixed());
}

}  // namespace
}  // namespace halftone
