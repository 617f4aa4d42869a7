// What every diffusion's vector rows share, where the target has them (HALFTONE_VECTOR_ROWS):
// a group of up to four planes as the 16-bit lanes of one 128-bit vector, its rows kept
// interleaved (entry 4x + l is lane l at column x) in one block of scratch memory, the
// truncating shares of a 16-bit error on lanes, interleaving rows in and packing dots out, and
// the spreading of groups over the threads.
#pragma once

#include "frame/vector_rows.h"

#if HALFTONE_VECTOR_ROWS
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "frame/engine.h"
#include "frame/force_inline.h"
#include "frame/lockstep.h"
#include "frame/share_arithmetic.h"

namespace halftone {

// Planes a vector group holds: four 16-bit lanes, the low half of a 128-bit vector.
inline constexpr unsigned kVectorLanes = 4;
// Smallest group worth the interleaving: two planes ran 8-15 % slower as vector lanes than as
// a scalar lockstep pair, three already faster.
inline constexpr unsigned kVectorMinLanes = 3;

namespace vec {

// Eight 16-bit lanes in one 128-bit vector (SSE2 on x86, NEON on AArch64), a group in the low
// four; the upper four carry whatever the arithmetic leaves there and are never stored. The
// lanes are unsigned so that adds and subtracts wrap modulo 2^16, as the working rows store
// values; compares and arithmetic shifts read them as signed.
using V16 = std::uint16_t __attribute__((vector_size(16)));
using Signed16 = std::int16_t __attribute__((vector_size(16)));
using Bytes = std::uint8_t __attribute__((vector_size(16)));
using Words = std::uint32_t __attribute__((vector_size(16)));
using Quads = std::uint64_t __attribute__((vector_size(16)));

HALFTONE_FORCE_INLINE inline V16 Splat(int v) { return V16{} + static_cast<std::uint16_t>(v); }
// All ones where a > b, read as signed.
HALFTONE_FORCE_INLINE inline V16 Greater(V16 a, V16 b) {
  return std::bit_cast<V16>(std::bit_cast<Signed16>(a) > std::bit_cast<Signed16>(b));
}
HALFTONE_FORCE_INLINE inline V16 Equal(V16 a, V16 b) { return std::bit_cast<V16>(a == b); }
// Arithmetic shift right.
HALFTONE_FORCE_INLINE inline V16 Sar(V16 v, int n) { return std::bit_cast<V16>(std::bit_cast<Signed16>(v) >> n); }
// Lane l as the signed value it stands for.
HALFTONE_FORCE_INLINE inline std::int16_t At(V16 v, unsigned l) { return static_cast<std::int16_t>(v[l]); }
// Whether any of the group's four lanes of a mask is set.
HALFTONE_FORCE_INLINE inline bool AnyOfGroup(V16 mask) { return std::bit_cast<Quads>(mask)[0] != 0; }
// The high word of the signed product, lane by lane. GCC 12 makes the widening form below a
// dozen unpacks and pmuludq on SSE2 where pmulhw does it in one, so x86 names the instruction;
// on AArch64 the widening form becomes sxtl and mul for a constant factor, so it names smull
// and uzp2 too. Clang makes pmulhw of the widening form, which stays for other targets.
HALFTONE_FORCE_INLINE inline V16 MulHi(V16 a, V16 b) {
#if defined(__SSE2__)
  return std::bit_cast<V16>(_mm_mulhi_epi16(std::bit_cast<__m128i>(a), std::bit_cast<__m128i>(b)));
#elif defined(__aarch64__)
  const int16x8_t sa = std::bit_cast<int16x8_t>(a), sb = std::bit_cast<int16x8_t>(b);
  const int32x4_t lo = vmull_s16(vget_low_s16(sa), vget_low_s16(sb)), hi = vmull_high_s16(sa, sb);
  return std::bit_cast<V16>(vuzp2q_s16(vreinterpretq_s16_s32(lo), vreinterpretq_s16_s32(hi)));
#else
  using Wide = std::int32_t __attribute__((vector_size(32)));
  const Wide p = __builtin_convertvector(std::bit_cast<Signed16>(a), Wide) *
                 __builtin_convertvector(std::bit_cast<Signed16>(b), Wide);
  return std::bit_cast<V16>(__builtin_convertvector(p >> 16, Signed16));
#endif
}

// Four 16-bit entries (one column of every lane).
HALFTONE_FORCE_INLINE inline V16 Load16(const std::int16_t* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return std::bit_cast<V16>(Quads{word, 0});
}
HALFTONE_FORCE_INLINE inline void Store16(std::int16_t* p, V16 v) {
  const std::uint64_t word = std::bit_cast<Quads>(v)[0];
  std::memcpy(p, &word, sizeof word);
}
// Four bytes, widened to 16-bit lanes.
HALFTONE_FORCE_INLINE inline V16 Load8(const std::uint8_t* p) {
  std::uint32_t word;
  std::memcpy(&word, p, sizeof word);
  const Bytes b = std::bit_cast<Bytes>(Words{word, 0, 0, 0});
  return std::bit_cast<V16>(__builtin_shufflevector(b, Bytes{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
}
// Four 16-bit lanes holding 0..255, narrowed to bytes. The narrowing as written below (of the
// doubled vector, one pack) costs SSE2 a pand before the packuswb, as GCC and Clang cannot know
// the lanes fit: one instruction more on the pixel loop of the plainest passes, 6 % of their
// rate. So x86 packs with unsigned saturation, the same for lanes of 0..255.
HALFTONE_FORCE_INLINE inline void Store8(std::uint8_t* p, V16 v) {
#if defined(__SSE2__)
  const __m128i b = _mm_packus_epi16(std::bit_cast<__m128i>(v), std::bit_cast<__m128i>(v));
#else
  const Bytes b = __builtin_convertvector(__builtin_shufflevector(v, v, 0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7), Bytes);
#endif
  const std::uint32_t word = std::bit_cast<Words>(b)[0];
  std::memcpy(p, &word, sizeof word);
}
// Truncating halves, as DivTrunc2: add the sign bit, then shift.
HALFTONE_FORCE_INLINE inline V16 Half(V16 e) { return Sar(e + (e >> 15), 1); }
// Truncating thirds of a 16-bit e: the high word of e times 2^16 / 3 rounded up (21846), one
// added for negative e. e * 21846 / 2^16 exceeds e / 3 by e / 98304, under a third of a unit
// for |e| < 32768 and exactly a third at -32768, which still floors to the same result.
HALFTONE_FORCE_INLINE inline V16 Third(V16 e) { return MulHi(e, Splat(21846)) - Sar(e, 15); }
// Truncating two thirds, (2e) / 3: 2^17 / 3 rounded up is 43691, out of the signed 16-bit
// range, so e times (43691 - 2^16) plus e; the excess is e / 196608, under a sixth of a unit.
// The sum wraps on the way but the result fits in 16 bits, so it comes out exact.
HALFTONE_FORCE_INLINE inline V16 TwoThirds(V16 e) { return MulHi(e, Splat(43691 - 65536)) + e - Sar(e, 15); }
// Truncating quarters: add 3 to negative e, then shift.
HALFTONE_FORCE_INLINE inline V16 Quarter(V16 e) { return Sar(e + (Sar(e, 15) >> 14), 2); }
// Truncating three quarters, (3e) / 4, for every 16-bit e: the high word of e times -2^14 is
// floor(-e / 4), so adding e gives floor(3e / 4) without leaving 16 bits; a negative e that 4
// does not divide then rounds up by one.
HALFTONE_FORCE_INLINE inline V16 ThreeQuarters(V16 e) {
  const V16 floored = MulHi(e, Splat(-(1 << 14))) + e;
  const V16 exact = Equal(e & 3, V16{});
  return floored - (~exact & Sar(e, 15));
}
// Flooring three quarters: e - ceil(e / 4) for either sign. Exact for e up to 32764.
HALFTONE_FORCE_INLINE inline V16 ThreeQuartersFloor(V16 e) { return e - Sar(e + 3, 2); }

// The vector form of a fraction (frame/share_arithmetic.h), chosen at compile time: the
// truncated halves, thirds and quarters above for every 16-bit e, the floored half and three
// quarters (the latter exact up to 32764), the whole error, none of it, and rests.
template <Fraction F>
HALFTONE_FORCE_INLINE inline V16 ShareOf(V16 e) {
  if constexpr (!Divides(F)) {
    return IsWhole(F) ? e : V16{};
  } else {
    constexpr bool kTrunc = F.rounding == Rounding::kTrunc;
    V16 part;
    if constexpr (F.num == 1 && F.den == 2) part = kTrunc ? Half(e) : Sar(e, 1);
    else if constexpr (F.num == 3 && F.den == 4) part = kTrunc ? ThreeQuarters(e) : ThreeQuartersFloor(e);
    else if constexpr (kTrunc && F.num == 1 && F.den == 3) part = Third(e);
    else if constexpr (kTrunc && F.num == 2 && F.den == 3) part = TwoThirds(e);
    else if constexpr (kTrunc && F.num == 1 && F.den == 4) part = Quarter(e);
    else static_assert(F.den == 0, "a fraction without a vector form");
    return F.rest ? e - part : part;
  }
}
// Whether a fraction has a vector form.
constexpr bool HasVectorForm(const Fraction& f) {
  if (!Divides(f)) return true;
  if ((f.num == 1 && f.den == 2) || (f.num == 3 && f.den == 4)) return true;
  return f.rounding == Rounding::kTrunc && ((f.den == 3 && f.num <= 2) || (f.num == 1 && f.den == 4));
}

}  // namespace vec

// A vector decision by fixed ascending thresholds on the corrected value alone: after i
// thresholds passed, level kLevels[i] and code kTopCode - i. The raw sample plays no part.
template <const auto& kThresholds, const auto& kLevels, unsigned kTopCode>
struct FixedStepsDecide {
  static constexpr std::size_t kSteps = std::size(kThresholds);
  static_assert(std::size(kLevels) == kSteps + 1);
  struct Sample {};
  HALFTONE_FORCE_INLINE Sample Prepare(vec::V16) const { return {}; }
  // The error v - level + term, and the code.
  HALFTONE_FORCE_INLINE vec::V16 Error(vec::V16 v, Sample, vec::V16 term, vec::V16& code) const {
    vec::V16 steps{}, count{};
    for (std::size_t i = 0; i < kSteps; ++i) {
      const vec::V16 passed = vec::Greater(v, vec::Splat(kThresholds[i]));  // all ones: -1
      steps += passed & vec::Splat(kLevels[i + 1] - kLevels[i]);
      count += passed;
    }
    code = vec::Splat(kTopCode) + count;
    return v + term - vec::Splat(kLevels[0]) - steps;
  }
};

// The interleaved rows of one vector group, carved from one block of scratch memory.
struct VectorRowsMemory {
  std::int16_t* cur;           // the working row being scanned
  std::int16_t* next;          // the row below, prepared by this row
  std::int16_t* terms[2];      // curve terms of left-to-right rows (odd x) and right-to-left (even x);
                               // adjacent, so together one row of 32-bit entries (`records`)
  std::uint8_t* samples;       // this row's samples
  std::uint8_t* below;         // the next row's samples
  std::uint8_t* codes;         // split codes by scan position
  std::uint8_t* dots;          // dot codes by column, zero past the row's end

  static constexpr std::size_t kAlign = 16;
  static constexpr std::size_t Round(std::size_t n) { return (n + kAlign - 1) / kAlign * kAlign; }
  // Columns held: the band's width rounded up to 16, so the interleaving may work 16 columns a
  // step and the dot packing whole bytes.
  static constexpr std::size_t Columns(std::size_t w) { return Round(w); }
  static constexpr std::size_t Bytes(std::size_t w) {
    const std::size_t n = Columns(w) * kVectorLanes;
    return 4 * Round(n * sizeof(std::int16_t)) + 4 * Round(n);
  }
  // terms[0] and terms[1] as one row of 32-bit entries (a row's size in bytes is a multiple of
  // the alignment, so they abut).
  std::uint32_t* records() const { return reinterpret_cast<std::uint32_t*>(terms[0]); }
  static VectorRowsMemory In(void* memory, std::size_t w) {
    const std::size_t n = Columns(w) * kVectorLanes;
    auto* p = static_cast<unsigned char*>(memory);
    const auto take16 = [&] {
      auto* r = reinterpret_cast<std::int16_t*>(p);
      p += Round(n * sizeof(std::int16_t));
      return r;
    };
    const auto take8 = [&] {
      auto* r = reinterpret_cast<std::uint8_t*>(p);
      p += Round(n);
      return r;
    };
    VectorRowsMemory m{};
    m.cur = take16();
    m.next = take16();
    m.terms[0] = take16();
    m.terms[1] = take16();
    m.samples = take8();
    m.below = take8();
    m.codes = take8();
    m.dots = take8();
    return m;
  }
};

// Interleaves four byte rows of w entries: out[4x + l] = rows[l][x].
inline void InterleaveBytes(const std::uint8_t* const rows[kVectorLanes], std::size_t w, std::uint8_t* out) {
  constexpr std::size_t kStep = 16;
  std::size_t x = 0;
  for (; x + kStep <= w; x += kStep) {
    vec::Bytes r[kVectorLanes];
    for (unsigned l = 0; l < kVectorLanes; ++l) std::memcpy(&r[l], rows[l] + x, sizeof r[l]);
    const auto lo = [](vec::Bytes a, vec::Bytes b) HALFTONE_FORCE_INLINE {
      return std::bit_cast<vec::V16>(
          __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
    };
    const auto hi = [](vec::Bytes a, vec::Bytes b) HALFTONE_FORCE_INLINE {
      return std::bit_cast<vec::V16>(
          __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
    };
    const vec::V16 lo01 = lo(r[0], r[1]), hi01 = hi(r[0], r[1]), lo23 = lo(r[2], r[3]), hi23 = hi(r[2], r[3]);
    const vec::V16 o[4] = {__builtin_shufflevector(lo01, lo23, 0, 8, 1, 9, 2, 10, 3, 11),
                           __builtin_shufflevector(lo01, lo23, 4, 12, 5, 13, 6, 14, 7, 15),
                           __builtin_shufflevector(hi01, hi23, 0, 8, 1, 9, 2, 10, 3, 11),
                           __builtin_shufflevector(hi01, hi23, 4, 12, 5, 13, 6, 14, 7, 15)};
    std::memcpy(out + kVectorLanes * x, o, sizeof o);
  }
  for (; x < w; ++x)
    for (unsigned l = 0; l < kVectorLanes; ++l) out[kVectorLanes * x + l] = rows[l][x];
}

// Split codes of n draws of four lanes, interleaved: out[4i + l] = (words[l][i] >> 1) & mask.
inline void InterleaveCodes(const std::uint32_t* const words[kVectorLanes], std::size_t n, unsigned mask,
                            std::uint8_t* out) {
  constexpr std::size_t kStep = 4;
  std::size_t i = 0;
  for (; i + kStep <= n; i += kStep) {
    // Each draw's four codes (each at most the mask) in the four bytes of a 32-bit word.
    vec::Words draws{};
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      vec::Words c;
      std::memcpy(&c, words[l] + i, sizeof c);
      draws |= ((c >> 1) & mask) << (8 * l);
    }
    std::memcpy(out + kVectorLanes * i, &draws, sizeof draws);
  }
  for (; i < n; ++i)
    for (unsigned l = 0; l < kVectorLanes; ++l)
      out[kVectorLanes * i + l] = static_cast<std::uint8_t>((words[l][i] >> 1) & mask);
}

// A row's dots (a code a column, interleaved, zero past the row's end) into the output rows
// of lanes 0 .. n-1: 8 / kBits columns a byte, the first at the high end. A step packs byte k
// of all four lanes at once, a lane's codes in its own byte of one 32-bit word.
template <unsigned kBits>
inline void PackDots(const std::uint8_t* dots, std::size_t w, std::uint8_t* const out[], unsigned n) {
  constexpr unsigned kPerByte = 8 / kBits;
  const std::size_t bytes = (w + kPerByte - 1) / kPerByte;
  for (std::size_t k = 0; k < bytes; ++k, dots += kPerByte * kVectorLanes) {
    std::uint32_t packed = 0;
    for (unsigned j = 0; j < kPerByte; ++j) {
      std::uint32_t column;
      std::memcpy(&column, dots + kVectorLanes * j, sizeof column);
      packed |= column << (8 - kBits * (j + 1));
    }
    for (unsigned l = 0; l < n; ++l) out[l][k] = static_cast<std::uint8_t>(out[l][k] | (packed >> (8 * l)));
  }
}

// Whether every thread's share of a band's planes fills a whole vector group.
inline bool FillsVectorGroups(const Engine& engine, unsigned planes) {
  return LockstepGroupSize(planes, engine.threads.count()) >= kVectorLanes;
}

// Calls group(first, n, memory) for every group of a band's planes: groups of up to
// kVectorLanes planes spread evenly over the engine's threads, each with its own interleaved
// rows. The caller runs a group too small for its lanes as a scalar lockstep group: with two
// threads a four-plane band runs as two scalar pairs, one a thread, which measured 1.3-2.3
// times as fast as a vector group of three beside a lone plane (or of four beside an idle
// thread).
template <class Group>
void ForEachVectorGroup(Engine& engine, unsigned planes, std::size_t w, Group&& group) {
  const unsigned size = LockstepGroupSize(planes, engine.threads.count(), kVectorLanes);
  const std::size_t bytes = VectorRowsMemory::Bytes(w);
  auto* memory = static_cast<unsigned char*>(engine.draws.Scratch(bytes * ((planes + size - 1) / size)));
  ForEachLockstepGroup(engine.threads, planes, kVectorLanes, 1, [&](unsigned first, unsigned n) {
    group(first, n, VectorRowsMemory::In(memory + bytes * (first / size), w));
  });
}

}  // namespace halftone
#endif
