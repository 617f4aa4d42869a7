#include "frame/random_bits.h"

#include <bit>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace halftone {

const std::array<std::uint32_t, RandomBitSource::kDegree> RandomBitSource::kDefaultState = {
    0x9a319039u, 0x32d9c024u, 0x9b663182u, 0x5da1f342u, 0xde3b81e0u, 0xdf0a6fb5u, 0xf103bc02u,
    0x48f340fbu, 0x7449e56bu, 0xbeb1dbb0u, 0xab5c5918u, 0x946554fdu, 0x8c2e680fu, 0xeb3d799fu,
    0xb11ee0b7u, 0x2d436b86u, 0xda672e2au, 0x1588ca88u, 0xe369735du, 0x904f35f7u, 0xd7158fd6u,
    0x6fa6f051u, 0x616e6b96u, 0xac94efdcu, 0x36413f93u, 0xc622c298u, 0xf5a42ab8u, 0x8a88d77bu,
    0xf5ad9d0eu, 0x8999220bu, 0x27fb47b9u};

std::array<std::uint32_t, RandomBitSource::kDegree> RandomBitSource::SeededRegister(std::uint32_t seed) {
  std::array<std::uint32_t, kDegree> words{};
  words[0] = seed;
  for (std::size_t i = 1; i < words.size(); ++i) words[i] = words[i - 1] * kSeedMultiplier + kSeedIncrement;
  return words;
}

void RandomBitSource::Seed(std::uint32_t seed) {
  state_ = SeededRegister(seed);
  front_ = kSeparation;
  rear_ = 0;
  for (int i = 0; i < kDiscardedDraws; ++i) NextStateWord();
}

namespace {

constexpr std::size_t kJumpTerms = RandomJump::kTerms;
constexpr std::size_t kJumpNear = RandomBitSource::kDegree - RandomBitSource::kSeparation;  // x^31 = x^28 + 1

// p * q modulo x^31 - x^28 - 1, coefficients mod 2^32.
RandomJump::Coefficients MulMod(const RandomJump::Coefficients& p, const RandomJump::Coefficients& q) {
  std::uint32_t prod[2 * kJumpTerms - 1] = {};
  for (std::size_t i = 0; i < kJumpTerms; ++i)
    for (std::size_t j = 0; j < kJumpTerms; ++j) prod[i + j] += p[i] * q[j];
  // From the top down: x^d = x^(d-3) + x^(d-31), and a term landing at 31 or above is folded
  // again on a later step.
  for (std::size_t d = 2 * kJumpTerms - 2; d >= kJumpTerms; --d) {
    prod[d - (kJumpTerms - kJumpNear)] += prod[d];
    prod[d - kJumpTerms] += prod[d];
  }
  RandomJump::Coefficients r;
  for (std::size_t i = 0; i < kJumpTerms; ++i) r[i] = prod[i];
  return r;
}

// p * x modulo x^31 - x^28 - 1.
RandomJump::Coefficients MulX(const RandomJump::Coefficients& p) {
  RandomJump::Coefficients r;
  const std::uint32_t top = p[kJumpTerms - 1];
  for (std::size_t i = kJumpTerms - 1; i > 0; --i) r[i] = p[i - 1];
  r[0] = top;
  r[kJumpNear] += top;
  return r;
}

}  // namespace

static_assert(RandomJump::kTerms == RandomBitSource::kDegree, "a jump combines the words of one register");

RandomJump::RandomJump(std::uint64_t draws) : draws_(draws) {
  c_[0] = 1;  // x^0, which squares to itself: the count's leading zero bits need no steps
  for (int bit = static_cast<int>(std::bit_width(draws)) - 1; bit >= 0; --bit) {
    c_ = MulMod(c_, c_);
    if ((draws >> bit) & 1u) c_ = MulX(c_);
  }
}

void RandomBitSource::Skip(const RandomJump& jump) {
  constexpr std::size_t kDeg = kDegree, kBack = kDegree - kSeparation;
  // The register oldest word first, then the 30 words after it, so that word n + j is the
  // same combination of words j .. j + 30 for every j.
  std::uint32_t s[2 * kDeg - 1];
  for (std::size_t k = 0; k < kDeg; ++k) s[k] = state_[(static_cast<std::size_t>(front_) + k) % kDeg];
  for (std::size_t k = kDeg; k < 2 * kDeg - 1; ++k) s[k] = s[k - kDeg] + s[k - (kDeg - kBack)];
  const RandomJump::Coefficients& c = jump.coefficients();
  const std::size_t n = static_cast<std::size_t>(jump.draws() % kDeg);
  const std::size_t front = (static_cast<std::size_t>(front_) + n) % kDeg;
  for (std::size_t j = 0; j < kDeg; ++j) {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < kDeg; ++i) word += c[i] * s[i + j];
    state_[(front + j) % kDeg] = word;
  }
  front_ = static_cast<int>(front);
  rear_ = static_cast<int>((front + kBack) % kDeg);
}

void RandomBitSource::DrawWords(std::uint32_t* out, std::size_t n) {
  constexpr std::size_t kDeg = kDegree, kBack = kDegree - kSeparation;  // the newer term, 3 draws back
  // The register oldest word first: the word at the front pointer was written kDegree draws ago.
  std::uint32_t past[kDegree];
  for (std::size_t k = 0; k < kDeg; ++k) past[k] = state_[(static_cast<std::size_t>(front_) + k) % kDeg];
  std::size_t i = 0;
  for (; i < n && i < kDeg - kBack; ++i) out[i] = past[i] + past[kBack + i];
  for (; i < n && i < kDeg; ++i) out[i] = past[i] + out[i - (kDeg - kBack)];
  // The three newest words stay in registers, so each word is one load, one add and one store
  // rather than a chain through memory.
  if (i + 3 <= n) {
    std::uint32_t r0 = out[i - 3], r1 = out[i - 2], r2 = out[i - 1];
    for (; i + 3 <= n; i += 3) {
      r0 += out[i - kDeg];
      r1 += out[i + 1 - kDeg];
      r2 += out[i + 2 - kDeg];
      out[i] = r0;
      out[i + 1] = r1;
      out[i + 2] = r2;
    }
  }
  for (; i < n; ++i) out[i] = out[i - kDeg] + out[i - (kDeg - kBack)];
  // Draw j wrote register slot (front + j) mod kDegree; the last kDegree draws are the register.
  for (std::size_t j = n > kDeg ? n - kDeg : 0; j < n; ++j)
    state_[(static_cast<std::size_t>(front_) + j) % kDeg] = out[j];
  front_ = static_cast<int>((static_cast<std::size_t>(front_) + n) % kDeg);
  rear_ = static_cast<int>((static_cast<std::size_t>(front_) + kBack) % kDeg);
}

namespace {

// Byte (word >> shift) & mask of each of m words, sixteen at a time where SSE2 is there.
void ByteFieldsOf(const std::uint32_t* words, std::size_t m, unsigned shift, std::uint8_t mask, std::uint8_t* out) {
  std::size_t j = 0;
#if defined(__SSE2__)
  const __m128i field_mask = _mm_set1_epi32(mask);
  const __m128i count = _mm_cvtsi32_si128(static_cast<int>(shift));
  auto fields = [&](std::size_t at) {
    const __m128i word = _mm_loadu_si128(reinterpret_cast<const __m128i*>(words + at));
    return _mm_and_si128(_mm_srl_epi32(word, count), field_mask);
  };
  for (; j + 16 <= m; j += 16) {
    // Values below 256 pass the signed 32->16 and unsigned 16->8 saturating packs unchanged.
    const __m128i lo = _mm_packs_epi32(fields(j), fields(j + 4));
    const __m128i hi = _mm_packs_epi32(fields(j + 8), fields(j + 12));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + j), _mm_packus_epi16(lo, hi));
  }
#endif
  for (; j < m; ++j) out[j] = static_cast<std::uint8_t>((words[j] >> shift) & mask);
}

}  // namespace

void RandomBitSource::DrawByteFields(std::uint8_t* out, std::size_t n, unsigned shift, std::uint8_t mask,
                                     std::uint32_t* chunk) {
  for (std::size_t done = 0; done < n; done += kFieldChunk) {
    const std::size_t m = n - done < kFieldChunk ? n - done : kFieldChunk;
    DrawWords(chunk, m);
    ByteFieldsOf(chunk, m, shift, mask, out + done);
  }
}

}  // namespace halftone
