// The random stream decides every split, so its sequence is part of the output: the register and
// its seeding, the draws the hand-worked bands rely on, the jump that lets each plane start
// where its slice of the stream begins, and draws taken in batches or shared among threads.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "frame/band_draws.h"
#include "frame/clock.h"
#include "frame/engine.h"
#include "frame/random_bits.h"

namespace halftone {
namespace {

// Two registers at the same place: same words, same front and rear pointers.
void ExpectSameRegister(const RandomBitSource& got, const RandomBitSource& want, const std::string& what) {
  EXPECT_EQ(got.state(), want.state()) << what;
  EXPECT_EQ(got.front(), want.front()) << what;
  EXPECT_EQ(got.rear(), want.rear()) << what;
}

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
    std::int32_t value = 0;
    for (int i = 0; i < 310; ++i) random_r(&reference, &value);
    for (int i = 0; i < 20000; ++i) {
      random_r(&reference, &value);
      ASSERT_EQ(source.Next(), static_cast<std::uint32_t>(value)) << "seed " << seed << " draw " << i;
      ASSERT_EQ((source.front() - source.rear() + 31) % 31, 3) << "front stays three words ahead";
    }
  }
#endif
  // Before any seeding the draw runs on the default register: a + rear word 0.
  RandomBitSource fresh;
  EXPECT_EQ(fresh.NextStateWord(), RandomBitSource::kDefaultState[3] + RandomBitSource::kDefaultState[0]);
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

// Jumps of every small size (inside one register length, across it, around its multiples) and
// large ones made of random bit patterns, from registers at every pointer position.
TEST(RandomJump, SkipLeavesTheRegisterOfPlainDrawing) {
  std::mt19937 gen(11);
  std::vector<std::uint64_t> sizes;
  for (std::uint64_t n = 0; n <= 100; ++n) sizes.push_back(n);
  for (std::uint64_t n : {123u, 930u, 961u, 4095u, 4096u, 4097u, 65535u, 1048575u}) sizes.push_back(n);
  for (int i = 0; i < 8; ++i) sizes.push_back(gen() % 3000000);
  for (const std::uint64_t n : sizes) {
    RandomBitSource drawn, skipped;
    drawn.Seed(static_cast<std::uint32_t>(gen()));
    for (unsigned k = gen() % 31; k > 0; --k) drawn.NextStateWord();  // any pointer position
    skipped = drawn;
    for (std::uint64_t k = 0; k < n; ++k) drawn.NextStateWord();
    skipped.Skip(RandomJump(n));
    ExpectSameRegister(skipped, drawn, "jump of " + std::to_string(n));
    for (int k = 0; k < 40; ++k) ASSERT_EQ(drawn.NextStateWord(), skipped.NextStateWord()) << n;
  }
  // Plane p starts p slices in: p jumps of one slice, one jump of p slices and drawing agree.
  RandomBitSource stepped, start;
  stepped.Seed(1700000000u);
  start = stepped;
  const RandomJump slice(4097 * 3 + 5);
  for (unsigned p = 1; p <= 5; ++p) {
    stepped.Skip(slice);
    RandomBitSource from_start = start, drawn = start;
    from_start.Skip(RandomJump(slice.draws() * p));
    for (std::uint64_t k = 0; k < slice.draws() * p; ++k) drawn.NextStateWord();
    ExpectSameRegister(stepped, drawn, "plane " + std::to_string(p) + " stepped");
    ExpectSameRegister(from_start, drawn, "plane " + std::to_string(p) + " from the start");
  }
}

// Batches of every awkward size (inside the first three words, inside the register length,
// across it, long) give the single draws' words and leave the register where they do; so do
// byte fields of draws across chunk ends and tails of every length, never writing past them.
TEST(RandomBatches, WordsAndByteFieldsMatchSingleDraws) {
  RandomBitSource batch, single;
  batch.Seed(1234567);
  single.Seed(1234567);
  for (std::size_t n : {0u, 1u, 2u, 3u, 4u, 27u, 28u, 30u, 31u, 32u, 33u, 34u, 35u, 37u, 38u, 39u, 62u, 1000u, 4099u, 5u}) {
    std::vector<std::uint32_t> words(n);
    batch.DrawWords(words.data(), n);
    for (std::size_t i = 0; i < n; ++i) ASSERT_EQ(words[i], single.NextStateWord()) << "batch of " << n << ", word " << i;
    ExpectSameRegister(batch, single, "after a batch of " + std::to_string(n));
  }
  constexpr std::size_t kChunk = RandomBitSource::kFieldChunk;
  std::vector<std::uint32_t> chunk(kChunk);
  for (const auto& [shift, mask] : {std::pair<unsigned, std::uint8_t>{1, 0xFF}, {0, 2}, {1, 3}, {7, 0x81}})
    for (std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{15}, std::size_t{16}, std::size_t{17},
                          std::size_t{47}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk + 21}) {
      std::vector<std::uint8_t> out(n + 1, 0xA5);
      batch.DrawByteFields(out.data(), n, shift, mask, chunk.data());
      for (std::size_t i = 0; i < n; ++i)
        ASSERT_EQ(out[i], (single.NextStateWord() >> shift) & mask) << "shift " << shift << ", " << n << " draws, draw " << i;
      ASSERT_EQ(out[n], 0xA5) << "wrote past " << n << " draws";
      ExpectSameRegister(batch, single, "after " + std::to_string(n) + " byte fields");
    }
}

// A band's draws shared out among threads: each part from a jumped copy of the generator, so
// the bytes, the spare byte behind them and the generator's end must be those of one thread
// drawing them all, for runs under and over the sharing threshold and parts of unequal length.
TEST(RandomBatches, BandBytesAreTheSameOnAnyThreadCount) {
  for (std::size_t n : {std::size_t{1000}, kSpreadDraws - 1, kSpreadDraws, kSpreadDraws + 12345, 3 * kSpreadDraws + 7}) {
    auto one = std::make_unique<Engine>();
    one->random.Seed(4242);
    const std::uint8_t* ref = DrawBandBytes(*one, n, 0, 1, 3, 1);
    const std::vector<std::uint8_t> expected(ref, ref + n);
    for (int threads : {2, 3}) {
      auto many = std::make_unique<Engine>();
      many->threads.SetCount(threads);
      many->random.Seed(4242);
      reinterpret_cast<std::uint8_t*>(many->draws.Reserve(n / 4 + 1))[n] = 0x5A;
      const std::uint8_t* got = DrawBandBytes(*many, n, 1, 1, 3, 4);
      ASSERT_EQ(std::vector<std::uint8_t>(got, got + n), expected) << n << " draws on " << threads << " threads";
      EXPECT_EQ(got[n], 0x5A) << "the spare byte behind the draws is left alone";
      ExpectSameRegister(many->random, one->random, "the generator must end where " + std::to_string(n) + " draws end");
    }
  }
}

}  // namespace
}  // namespace halftone
