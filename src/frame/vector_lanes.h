// What every diffusion's vector rows share, where the target has them (HALFTONE_VECTOR_ROWS):
// a group of up to four planes as the 16-bit lanes of one SSE2 vector, its rows kept
// interleaved (entry 4x + l is lane l at column x) in one block of scratch memory, the
// truncating shares of a 16-bit error on lanes, interleaving rows in and packing dots out, the
// serpentine order of a band's inner rows, and the spreading of groups over the threads.
#pragma once

#include "frame/vector_rows.h"

#if HALFTONE_VECTOR_ROWS
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/engine.h"
#include "frame/force_inline.h"
#include "frame/lockstep.h"

namespace halftone {

// Planes a vector group holds: four 16-bit lanes, the low half of an SSE2 register.
inline constexpr unsigned kVectorLanes = 4;
// Smallest group worth the interleaving: two planes ran 8-15 % slower as vector lanes than as
// a scalar lockstep pair, three already faster.
inline constexpr unsigned kVectorMinLanes = 3;

namespace vec {

HALFTONE_FORCE_INLINE inline __m128i Splat(int v) { return _mm_set1_epi16(static_cast<short>(v)); }
// Four 16-bit entries (one column of every lane).
HALFTONE_FORCE_INLINE inline __m128i Load16(const std::int16_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}
HALFTONE_FORCE_INLINE inline void Store16(std::int16_t* p, __m128i v) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
}
// Four bytes, widened to 16-bit lanes.
HALFTONE_FORCE_INLINE inline __m128i Load8(const std::uint8_t* p) {
  std::int32_t word;
  std::memcpy(&word, p, sizeof word);
  return _mm_unpacklo_epi8(_mm_cvtsi32_si128(word), _mm_setzero_si128());
}
// Four 16-bit lanes holding 0..255, narrowed to bytes.
HALFTONE_FORCE_INLINE inline void Store8(std::uint8_t* p, __m128i v) {
  const std::int32_t word = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
  std::memcpy(p, &word, sizeof word);
}
// Truncating halves, as DivTrunc2: add the sign bit, then shift.
HALFTONE_FORCE_INLINE inline __m128i Half(__m128i e) {
  return _mm_srai_epi16(_mm_add_epi16(e, _mm_srli_epi16(e, 15)), 1);
}
// Truncating thirds of a 16-bit e: the high word of e times 2^16 / 3 rounded up (21846), one
// added for negative e. e * 21846 / 2^16 exceeds e / 3 by e / 98304, under a third of a unit
// for |e| < 32768 and exactly a third at -32768, which still floors to the same result.
HALFTONE_FORCE_INLINE inline __m128i Third(__m128i e) {
  constexpr short kThirdUp = 21846;
  return _mm_sub_epi16(_mm_mulhi_epi16(e, _mm_set1_epi16(kThirdUp)), _mm_srai_epi16(e, 15));
}
// Truncating two thirds, (2e) / 3: 2^17 / 3 rounded up is 43691, out of the signed 16-bit
// range, so e times (43691 - 2^16) plus e; the excess is e / 196608, under a sixth of a unit.
// The sum wraps on the way but the result fits in 16 bits, so it comes out exact.
HALFTONE_FORCE_INLINE inline __m128i TwoThirds(__m128i e) {
  constexpr short kTwoThirdsUpLess2_16 = 43691 - 65536;
  return _mm_sub_epi16(_mm_add_epi16(_mm_mulhi_epi16(e, _mm_set1_epi16(kTwoThirdsUpLess2_16)), e),
                       _mm_srai_epi16(e, 15));
}
// Truncating quarters: add 3 to negative e, then shift.
HALFTONE_FORCE_INLINE inline __m128i Quarter(__m128i e) {
  return _mm_srai_epi16(_mm_add_epi16(e, _mm_srli_epi16(_mm_srai_epi16(e, 15), 14)), 2);
}
// Truncating three quarters, (3e) / 4, for every 16-bit e: the high word of e times -2^14 is
// floor(-e / 4), so adding e gives floor(3e / 4) without leaving 16 bits; a negative e that 4
// does not divide then rounds up by one.
HALFTONE_FORCE_INLINE inline __m128i ThreeQuarters(__m128i e) {
  constexpr short kMinusQuarter = -(1 << 14);
  const __m128i floored = _mm_add_epi16(_mm_mulhi_epi16(e, _mm_set1_epi16(kMinusQuarter)), e);
  const __m128i exact = _mm_cmpeq_epi16(_mm_and_si128(e, _mm_set1_epi16(3)), _mm_setzero_si128());
  return _mm_sub_epi16(floored, _mm_andnot_si128(exact, _mm_srai_epi16(e, 15)));
}
// Flooring three quarters: e - ceil(e / 4) for either sign. Exact for e up to 32764.
HALFTONE_FORCE_INLINE inline __m128i ThreeQuartersFloor(__m128i e) {
  return _mm_sub_epi16(e, _mm_srai_epi16(_mm_add_epi16(e, _mm_set1_epi16(3)), 2));
}
// `pick ? a : b` for an all-ones or all-zeros pick.
HALFTONE_FORCE_INLINE inline __m128i Select(__m128i pick, __m128i a, __m128i b) {
  return _mm_or_si128(_mm_and_si128(pick, a), _mm_andnot_si128(pick, b));
}

}  // namespace vec

// A vector decision by fixed ascending thresholds on the corrected value alone: after i
// thresholds passed, level kLevels[i] and code kTopCode - i. The raw sample plays no part.
template <const auto& kThresholds, const auto& kLevels, unsigned kTopCode>
struct FixedStepsDecide {
  static constexpr std::size_t kSteps = std::size(kThresholds);
  static_assert(std::size(kLevels) == kSteps + 1);
  struct Sample {};
  HALFTONE_FORCE_INLINE Sample Prepare(__m128i) const { return {}; }
  // The error v - level + term, and the code.
  HALFTONE_FORCE_INLINE __m128i Error(__m128i v, Sample, __m128i term, __m128i& code) const {
    __m128i steps = _mm_setzero_si128(), count = _mm_setzero_si128();
    for (std::size_t i = 0; i < kSteps; ++i) {
      const __m128i passed = _mm_cmpgt_epi16(v, vec::Splat(kThresholds[i]));  // all ones: -1
      steps = _mm_add_epi16(steps, _mm_and_si128(passed, vec::Splat(kLevels[i + 1] - kLevels[i])));
      count = _mm_add_epi16(count, passed);
    }
    code = _mm_add_epi16(vec::Splat(kTopCode), count);
    return _mm_sub_epi16(_mm_add_epi16(v, _mm_add_epi16(term, vec::Splat(-kLevels[0]))), steps);
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
    const __m128i r0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[0] + x));
    const __m128i r1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[1] + x));
    const __m128i r2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[2] + x));
    const __m128i r3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[3] + x));
    const __m128i lo01 = _mm_unpacklo_epi8(r0, r1), hi01 = _mm_unpackhi_epi8(r0, r1);
    const __m128i lo23 = _mm_unpacklo_epi8(r2, r3), hi23 = _mm_unpackhi_epi8(r2, r3);
    auto* o = reinterpret_cast<__m128i*>(out + kVectorLanes * x);
    _mm_storeu_si128(o + 0, _mm_unpacklo_epi16(lo01, lo23));
    _mm_storeu_si128(o + 1, _mm_unpackhi_epi16(lo01, lo23));
    _mm_storeu_si128(o + 2, _mm_unpacklo_epi16(hi01, hi23));
    _mm_storeu_si128(o + 3, _mm_unpackhi_epi16(hi01, hi23));
  }
  for (; x < w; ++x)
    for (unsigned l = 0; l < kVectorLanes; ++l) out[kVectorLanes * x + l] = rows[l][x];
}

// Split codes of n draws of four lanes, interleaved: out[4i + l] = (words[l][i] >> 1) & mask.
inline void InterleaveCodes(const std::uint32_t* const words[kVectorLanes], std::size_t n, unsigned mask,
                            std::uint8_t* out) {
  constexpr std::size_t kStep = 4;
  const __m128i m = _mm_set1_epi32(static_cast<int>(mask));
  std::size_t i = 0;
  for (; i + kStep <= n; i += kStep) {
    __m128i c[kVectorLanes];
    for (unsigned l = 0; l < kVectorLanes; ++l)
      c[l] = _mm_and_si128(_mm_srli_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(words[l] + i)), 1), m);
    // Bytes lane by lane (four draws each), then transposed to draw by draw.
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(c[0], c[1]), _mm_packs_epi32(c[2], c[3]));
    const __m128i l01 = _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 4));
    const __m128i l23 = _mm_unpacklo_epi8(_mm_srli_si128(bytes, 8), _mm_srli_si128(bytes, 12));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + kVectorLanes * i), _mm_unpacklo_epi16(l01, l23));
  }
  for (; i < n; ++i)
    for (unsigned l = 0; l < kVectorLanes; ++l)
      out[kVectorLanes * i + l] = static_cast<std::uint8_t>((words[l][i] >> 1) & mask);
}

// Rows 0 .. h-2 of a band (h >= 2) in serpentine order: row.template operator()<kLtr, kKeep>(y),
// kKeep for the last of them, the only inner row whose scanned values outlast the band.
template <class RowFn>
inline void ScanInnerRows(std::size_t h, RowFn&& row) {
  for (std::size_t y = 0; y + 1 < h; ++y) {
    const bool keep = y + 2 >= h;
    if ((y & 1) == 0)
      keep ? row.template operator()<true, true>(y) : row.template operator()<true, false>(y);
    else
      keep ? row.template operator()<false, true>(y) : row.template operator()<false, false>(y);
  }
}

// After rows 0 .. h-2, hands lanes 0 .. n-1 back their working rows as a scalar scan leaves
// them before the last row: row h-2's scanned values (in `next` after the row's swap) in the row
// it scanned, row h-1's starting values (in `cur`) in the other.
inline void HandBackRows(const VectorRowsMemory& mem, std::size_t w, std::size_t h, unsigned n,
                         std::int16_t* const a[], std::int16_t* const b[]) {
  const bool ltr = ((h - 2) & 1) == 0;
  for (unsigned l = 0; l < n; ++l) {
    std::int16_t* scanned = ltr ? a[l] : b[l];
    std::int16_t* starting = ltr ? b[l] : a[l];
    for (std::size_t x = 0; x < w; ++x) {
      scanned[x] = mem.next[kVectorLanes * x + l];
      starting[x] = mem.cur[kVectorLanes * x + l];
    }
  }
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
  ForEachLockstepGroup(engine.threads, planes, kVectorLanes, [&](unsigned first, unsigned n) {
    group(first, n, VectorRowsMemory::In(memory + bytes * (first / size), w));
  });
}

}  // namespace halftone
#endif
