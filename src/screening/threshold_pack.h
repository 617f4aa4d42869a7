// Sixteen threshold tests at a time, packed straight into dot bytes: the fast path of the
// threshold screens. Every result equals the per-pixel test it replaces.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace halftone::threshold_pack {

// How a sample meets its threshold to print a dot.
enum class Compare { kAtMost, kBelow };  // v <= t, v < t

inline constexpr std::size_t kChunk = 16;

// Bit i of a byte moved to bit 7 - i: the compare mask holds pixel 0 in its lowest bit, a dot
// row holds it in the highest.
inline constexpr std::array<std::uint8_t, 256> kReversed = [] {
  std::array<std::uint8_t, 256> r{};
  for (unsigned v = 0; v < 256; ++v) {
    unsigned b = 0;
    for (unsigned i = 0; i < 8; ++i)
      if (v & (1u << i)) b |= 0x80u >> i;
    r[v] = static_cast<std::uint8_t>(b);
  }
  return r;
}();

template <Compare C>
inline bool Dot(std::uint8_t v, std::uint8_t t) {
  return C == Compare::kAtMost ? v <= t : v < t;
}

// The two dot bytes of 16 samples `in` against 16 thresholds `t`.
#if defined(__SSE2__)
inline __m128i Load16Bytes(const std::uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
template <Compare C>
inline void PackChunk(__m128i v, __m128i m, std::uint8_t* out) {
  const __m128i low = _mm_min_epu8(v, m);
  unsigned bits;
  if constexpr (C == Compare::kAtMost)
    bits = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(low, v)));  // min(v, t) == v: v <= t
  else
    bits = ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(low, m))) & 0xFFFFu;  // not t <= v
  out[0] = kReversed[bits & 0xFFu];
  out[1] = kReversed[bits >> 8];
}
#else
template <Compare C>
inline void PackChunk(const std::uint8_t* in, const std::uint8_t* t, std::uint8_t* out) {
  for (std::size_t k = 0; k < 2; ++k) {
    unsigned b = 0;
    for (std::size_t i = 0; i < 8; ++i) b |= static_cast<unsigned>(Dot<C>(in[8 * k + i], t[8 * k + i])) << (7 - i);
    out[k] = static_cast<std::uint8_t>(b);
  }
}
#endif

// Dots of pixels [0, w rounded down to 16) of one row into a cleared dot row. `row` holds the
// thresholds of one tile row as pixel x meets them at row[x & period_mask]; the period is a
// multiple of 16. Returns the pixels done; the caller finishes the row pixel by pixel.
template <Compare C>
inline std::size_t PackRow(const std::uint8_t* in, std::uint8_t* out, std::size_t w, const std::uint8_t* row,
                           std::size_t period_mask) {
  const std::size_t whole = w - w % kChunk;
#if defined(__SSE2__)
  if (period_mask == kChunk - 1) {
    // A tile one chunk wide: its thresholds stay in a register. (Read from the tile every
    // chunk, since a store of dots may alias it, the screens ran at 0.73 to 1.0 times this
    // speed from one build of unrelated code to the next.)
    const __m128i m = Load16Bytes(row);
    for (std::size_t x = 0; x < whole; x += kChunk) PackChunk<C>(Load16Bytes(in + x), m, out + x / 8);
    return whole;
  }
  for (std::size_t x = 0; x < whole; x += kChunk)
    PackChunk<C>(Load16Bytes(in + x), Load16Bytes(row + (x & period_mask)), out + x / 8);
#else
  for (std::size_t x = 0; x < whole; x += kChunk) PackChunk<C>(in + x, row + (x & period_mask), out + x / 8);
#endif
  return whole;
}

// The two dot bytes of 16 working-row values `v` (any 16-bit value) below 16 thresholds `t`.
inline void PackChunkBelowWide(const std::int16_t* v, const std::uint8_t* t, std::uint8_t* out) {
#if defined(__SSE2__)
  const __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i*>(t));
  const __m128i zero = _mm_setzero_si128();
  const __m128i below_lo =
      _mm_cmplt_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(v)), _mm_unpacklo_epi8(m, zero));
  const __m128i below_hi =
      _mm_cmplt_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(v + 8)), _mm_unpackhi_epi8(m, zero));
  // Each 16-bit mask (0 or -1) narrows to a byte of the same sign.
  const auto bits = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(below_lo, below_hi)));
  out[0] = kReversed[bits & 0xFFu];
  out[1] = kReversed[bits >> 8];
#else
  for (std::size_t k = 0; k < 2; ++k) {
    unsigned b = 0;
    for (std::size_t i = 0; i < 8; ++i) b |= static_cast<unsigned>(v[8 * k + i] < t[8 * k + i]) << (7 - i);
    out[k] = static_cast<std::uint8_t>(b);
  }
#endif
}

// PackRow<kBelow> for a row of 16-bit working values.
inline std::size_t PackRowBelowWide(const std::int16_t* v, std::uint8_t* out, std::size_t w, const std::uint8_t* row,
                                    std::size_t period_mask) {
  const std::size_t whole = w - w % kChunk;
  for (std::size_t x = 0; x < whole; x += kChunk) PackChunkBelowWide(v + x, row + (x & period_mask), out + x / 8);
  return whole;
}

}  // namespace halftone::threshold_pack
