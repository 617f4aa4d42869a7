// The random bit source of the random-split diffusion routines.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace halftone {

// A jump of the generator by a fixed number of draws, as a linear map of the register. Each
// word is the word 31 draws back plus the word 3 back, over Z/2^32, so the word n draws ahead
// is a fixed combination of the 31 register words: the coefficients of x^n modulo
// x^31 - x^28 - 1 (the recurrence's characteristic polynomial), found by square-and-multiply.
// Lets planes scanned side by side each start their own copy of the generator where their
// slice of the band's stream begins, without drawing the stream ahead.
class RandomJump {
 public:
  static constexpr int kTerms = 31;  // RandomBitSource::kDegree
  using Coefficients = std::array<std::uint32_t, kTerms>;

  explicit RandomJump(std::uint64_t draws);
  std::uint64_t draws() const { return draws_; }
  // c with word n = sum c[i] * word i, words counted from the oldest in the register.
  const Coefficients& coefficients() const { return c_; }

 private:
  std::uint64_t draws_;
  Coefficients c_{};
};

// Additive lagged-Fibonacci generator of degree 31 and separation 3 (trinomial x^31 + x^3 + 1),
// the layout and draw of the classic BSD random() of type 3. Seeding uses the multiplier
// 1103515145, which fixes the sequence the dots depend on.
class RandomBitSource {
 public:
  static constexpr int kDegree = 31;
  static constexpr int kSeparation = 3;
  static constexpr std::uint32_t kSeedMultiplier = 1103515145u;  // required: not the BSD 1103515245
  static constexpr std::uint32_t kSeedIncrement = 12345u;
  static constexpr int kDiscardedDraws = 10 * kDegree;
  static const std::array<std::uint32_t, kDegree> kDefaultState;

  RandomBitSource() : state_(kDefaultState) {}

  // The register as seeding fills it, before the discarded draws: word 0 is the seed and each
  // next word is the previous one times the multiplier plus the increment (mod 2^32).
  static std::array<std::uint32_t, kDegree> SeededRegister(std::uint32_t seed);

  // Fills the register from `seed`, resets the pointers and discards 310 draws.
  void Seed(std::uint32_t seed);

  // One draw: adds the rear word into the front word and returns the new front word. Callers
  // take their split bits from it: bit 1 is the split bit, bits 1-2 a two-bit choice.
  std::uint32_t NextStateWord() {
    std::uint32_t word = state_[front_] + state_[rear_];
    state_[front_] = word;
    if (++front_ == kDegree) {
      front_ = 0;
      ++rear_;
    } else if (++rear_ == kDegree) {
      rear_ = 0;
    }
    return word;
  }

  // n draws at once into out[0..n-1], each the word NextStateWord would have returned; the
  // register ends as after n single draws. Word i is word i-31 plus word i-3, so a run of
  // draws is one flat loop without the register's wrap-around.
  void DrawWords(std::uint32_t* out, std::size_t n);

  // n draws kept as a byte each, (word >> shift) & mask, for scans that need only a few bits of
  // every draw: a quarter of the memory the words take. The words pass through `chunk`
  // (kFieldChunk words) a chunk at a time, so they never leave the cache.
  static constexpr std::size_t kFieldChunk = 2048;
  void DrawByteFields(std::uint8_t* out, std::size_t n, unsigned shift, std::uint8_t mask, std::uint32_t* chunk);

  // Advances the register as jump.draws() single draws would, in 31 x 31 multiply-adds.
  void Skip(const RandomJump& jump);

  // The 31-bit result of a draw.
  std::uint32_t Next() { return NextStateWord() >> 1; }
  unsigned NextBit() { return (NextStateWord() >> 1) & 1u; }
  unsigned NextTwoBits() { return (NextStateWord() >> 1) & 3u; }

  const std::array<std::uint32_t, kDegree>& state() const { return state_; }
  int front() const { return front_; }
  int rear() const { return rear_; }

 private:
  std::array<std::uint32_t, kDegree> state_;
  int front_ = kSeparation;
  int rear_ = 0;
};

}  // namespace halftone
