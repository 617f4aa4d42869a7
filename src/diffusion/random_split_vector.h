// Inner rows of a lockstep group with the planes as the 16-bit lanes of one SSE2 vector. The
// scalar lockstep scan keeps every lane's chain in general registers; with four planes their
// pointers outnumber the registers and each pixel costs some forty instructions a lane. Here a
// column of the group is one vector step: the working rows, samples, draws, curve terms and
// dots are kept interleaved (entry 4x + l is lane l at column x), so one 64-bit load fetches
// the column for every plane.
//
// A pass takes this path by offering a vector decision, `Vector()`, returning an engaged
// optional where its decision can be written with 16-bit compares and masks: the decision for
// a sample is one or more thresholds on the corrected value with fixed steps of level between
// them. A pass whose decision has no such form may ask (`kVectorTable`) for its lanes to read
// their entries from its scalar decision table (TableDecide). The arithmetic is the scalar scan's, modulo 2^16 as the working rows store it, so the
// dots and every row left behind are the same.
//
// Each row is three steps: the row's draws, the samples below and the curve terms are
// interleaved; the pixels are scanned; the dots are packed into the planes' output rows.
// The pixel ending each row, and the band's last row (thirds, the carry row), stay with the
// scalar lockstep scan: one column in a row and one row in a band.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "diffusion/random_split_fast.h"
#include "frame/dispatch.h"
#include "frame/vector_lanes.h"

#if HALFTONE_VECTOR_ROWS
namespace halftone::random_split {

// A vector decision by the pass's scalar decision table (ClampedDecisionTable), for quantisers
// no fixed steps describe: each lane's entry is looked up on its own, by its sample class's
// origin (found off the chain, when the samples are prepared) plus its value. A column where a
// lane's value lies outside the table's window takes the table's clamped lookup lane by lane.
template <class Table>
struct TableDecide {
  const Table* table;
  struct Sample {
    __m128i origin;  // each lane's class origin in the table
    __m128i s;       // the raw samples, for a lookup outside the window
  };
  // Lane kLane of v as an unsigned 16-bit value (the lane is a constant of the instruction).
  template <int kLane>
  HALFTONE_FORCE_INLINE static unsigned LaneOf(__m128i v) {
    return static_cast<unsigned>(_mm_extract_epi16(v, kLane));
  }
  HALFTONE_FORCE_INLINE Sample Prepare(__m128i s) const {
    const auto origin = [&](unsigned sample) HALFTONE_FORCE_INLINE {
      return static_cast<short>(table->origin_of[sample]);
    };
    return {_mm_setr_epi16(origin(LaneOf<0>(s)), origin(LaneOf<1>(s)), origin(LaneOf<2>(s)), origin(LaneOf<3>(s)), 0,
                           0, 0, 0),
            s};
  }
  // The error v - level + term, and the code.
  HALFTONE_FORCE_INLINE __m128i Error(__m128i v, Sample k, __m128i term, __m128i& code) const {
    constexpr int kGroupBytes = 0xFF;  // movemask bits of the low four lanes
    const __m128i outside = _mm_or_si128(_mm_cmpgt_epi16(v, vec::Splat(Table::kWindowHi)),
                                         _mm_cmpgt_epi16(vec::Splat(Table::kWindowLo), v));
    __m128i err;
    if ((_mm_movemask_epi8(outside) & kGroupBytes) == 0) [[likely]] {
      const __m128i at = _mm_add_epi16(v, k.origin);
      const auto entry = [&](unsigned index) HALFTONE_FORCE_INLINE {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(table->EntryAt(index)));
      };
      // Entries {err, part, code, rest}: lanes 0 and 1, 2 and 3 side by side, then err and code
      // apart (the group's four lanes of each; the upper lanes hold parts and rests).
      const __m128i e01 = _mm_unpacklo_epi16(entry(LaneOf<0>(at)), entry(LaneOf<1>(at)));
      const __m128i e23 = _mm_unpacklo_epi16(entry(LaneOf<2>(at)), entry(LaneOf<3>(at)));
      err = _mm_unpacklo_epi32(e01, e23);
      code = _mm_unpackhi_epi32(e01, e23);
    } else {
      err = Outside(v, k.s, code);
    }
    return _mm_add_epi16(err, term);
  }
  [[gnu::noinline]] __m128i Outside(__m128i v, __m128i s, __m128i& code) const {
    alignas(16) std::int16_t vs[8], ss[8], err[8] = {}, codes[8] = {};
    _mm_store_si128(reinterpret_cast<__m128i*>(vs), v);
    _mm_store_si128(reinterpret_cast<__m128i*>(ss), s);
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      const PartOutcome o = table->DecideWithPart(vs[l], ss[l]);
      err[l] = static_cast<std::int16_t>(o.err);
      codes[l] = static_cast<std::int16_t>(o.code);
    }
    code = _mm_load_si128(reinterpret_cast<const __m128i*>(codes));
    return _mm_load_si128(reinterpret_cast<const __m128i*>(err));
  }
};

// The shares the vector rows form: every share of the split tables.
constexpr bool VectorShare(Share s) {
  return s == Share::kNone || s == Share::kAll || s == Share::kHalf || s == Share::kThird ||
         s == Share::kTwoThirds || s == Share::kRestAfterThird || s == Share::kQuarter ||
         s == Share::kThreeQuarters;
}
// Whether the vector rows can form a pass's inner-row splits.
template <class Pass>
constexpr bool VectorSplits() {
  constexpr unsigned kCodes = Pass::kScan.draw_bits == 2 ? 4 : 2;
  for (const Split* row : {Pass::kScan.splits.inner_ltr, Pass::kScan.splits.inner_rtl})
    for (unsigned c = 0; c < kCodes; ++c)
      if (!VectorShare(row[c].along) || !VectorShare(row[c].below)) return false;
  return true;
}

template <class Pass, class VectorDecider, class Decider>
class VectorRows {
 public:
  // lanes[0 .. n-1] are the group's planes (n <= kVectorLanes); a missing lane repeats
  // lane 0's inputs and its results are dropped.
  VectorRows(const VectorDecider& vdecide, const Decider& decide, const Band& band, const FastLane* lanes, unsigned n,
             const ToneCurveSet& curves, VectorRowsMemory mem)
      : vdecide_(vdecide), decide_(decide), band_(band), n_(n), curve_a_(curves.a().data()),
        curve_b_(curves.b().data()), mem_(mem) {
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      const FastLane& from = lanes[l < n ? l : 0];
      rows_[l] = from.rows;
      random_[l] = from.random;
      words_[l] = from.words;
      p_[l] = from.p;
    }
  }

  const RandomBitSource& random(unsigned l) const { return random_[l]; }

  // Rows 0 .. h-2 (h >= 2). Leaves each lane's working rows as the scalar scan leaves them
  // before the band's last row: the scanned values of row h-2 and the starting values of row
  // h-1.
  void Run() {
    const std::size_t w = band_.w, h = band_.h;
    const std::size_t n = VectorRowsMemory::Columns(w) * kVectorLanes;
    std::memset(mem_.terms[0], 0, n * sizeof(std::int16_t));
    std::memset(mem_.terms[1], 0, n * sizeof(std::int16_t));
    std::memset(mem_.dots, 0, n);
    const std::uint8_t* row0[kVectorLanes];
    for (unsigned l = 0; l < kVectorLanes; ++l) row0[l] = band_.In(0, p_[l]);
    InterleaveBytes(row0, w, mem_.samples);
    for (unsigned l = 0; l < n_; ++l) {
      std::int16_t* carry = rows_[l].carry;
      for (std::size_t x = 0; x < w; ++x) {
        mem_.cur[kVectorLanes * x + l] = Store16(row0[l][x] + (carry ? carry[x] : 0));
        if (carry) carry[x] = 0;
      }
    }
    for (unsigned l = n_; l < kVectorLanes; ++l)
      for (std::size_t x = 0; x < w; ++x) mem_.cur[kVectorLanes * x + l] = mem_.cur[kVectorLanes * x];

    ScanInnerRows(h, [&]<bool kLtr, bool kKeep>(std::size_t y) { Row<kLtr, kKeep>(y); });
    std::int16_t* a[kVectorLanes];
    std::int16_t* b[kVectorLanes];
    for (unsigned l = 0; l < n_; ++l) {
      a[l] = rows_[l].a;
      b[l] = rows_[l].b;
    }
    HandBackRows(mem_, w, h, n_, a, b);
  }

 private:
  static constexpr const ScanTraits& kScan = Pass::kScan;
  static constexpr unsigned kBits = Pass::kBits;
  static constexpr unsigned kPerByte = 8 / kBits;
  static constexpr unsigned kCodeMask = kScan.draw_bits == 2 ? 3u : 1u;
  static constexpr unsigned kCodes = kScan.draw_bits == 2 ? 4 : 2;
  static constexpr std::size_t kRowEndDraws = kScan.inner_row_end.draw == EndDraw::kNone ? 0 : 1;

  // The parts of an error e a share can be, each formed once a pixel (and only if used).
  struct Parts {
    __m128i e, half, third, two_thirds, quarter, three_quarters;
  };
  HALFTONE_FORCE_INLINE static __m128i PartOf(Share share, const Parts& p) {
    switch (share) {
      case Share::kAll: return p.e;
      case Share::kHalf: return p.half;
      case Share::kThird: return p.third;
      case Share::kTwoThirds: return p.two_thirds;
      case Share::kRestAfterThird: return _mm_sub_epi16(p.e, p.third);
      case Share::kQuarter: return p.quarter;
      case Share::kThreeQuarters: return p.three_quarters;
      default: return _mm_setzero_si128();
    }
  }
  // The share a column takes for split code c in a row of one direction.
  template <bool kLtr, bool kBelow>
  static constexpr Share ShareAt(unsigned c) {
    return Pick(kLtr ? kScan.splits.inner_ltr[c] : kScan.splits.inner_rtl[c], kBelow);
  }
  // The split codes whose share in a column is `kKind`, as a lane mask (the compares are off
  // the error's chain).
  template <bool kLtr, bool kBelow, Share kKind>
  HALFTONE_FORCE_INLINE static __m128i CodesOf(__m128i code) {
    __m128i m = _mm_setzero_si128();
    [&]<unsigned... c>(std::integer_sequence<unsigned, c...>) HALFTONE_FORCE_INLINE {
      ((m = ShareAt<kLtr, kBelow>(c) == kKind ? _mm_or_si128(m, _mm_cmpeq_epi16(code, vec::Splat(c))) : m), ...);
    }(std::make_integer_sequence<unsigned, kCodes>{});
    return m;
  }
  template <bool kLtr, bool kBelow, Share kKind>
  static constexpr bool kUses = [] {
    for (unsigned c = 0; c < kCodes; ++c)
      if (ShareAt<kLtr, kBelow>(c) == kKind) return true;
    return false;
  }();
  // A column's share for each lane's split code: the part its code's split names.
  template <bool kLtr, bool kBelow>
  HALFTONE_FORCE_INLINE static __m128i ShareFor(__m128i code, const Parts& parts) {
    __m128i share = _mm_setzero_si128();
    const auto add = [&]<Share kKind>() HALFTONE_FORCE_INLINE {
      if constexpr (kUses<kLtr, kBelow, kKind>)
        share = _mm_or_si128(share, _mm_and_si128(CodesOf<kLtr, kBelow, kKind>(code), PartOf(kKind, parts)));
    };
    add.template operator()<Share::kAll>();
    add.template operator()<Share::kHalf>();
    add.template operator()<Share::kThird>();
    add.template operator()<Share::kTwoThirds>();
    add.template operator()<Share::kRestAfterThird>();
    add.template operator()<Share::kQuarter>();
    add.template operator()<Share::kThreeQuarters>();
    return share;
  }

  // The row's draws, the samples below it and its curve terms, interleaved.
  template <bool kLtr>
  void PrepareRow(std::size_t y) {
    const std::size_t w = band_.w;
    const std::uint32_t* words[kVectorLanes];
    const std::uint8_t* below[kVectorLanes];
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      if (l < n_) random_[l].DrawWords(words_[l], w - 1 + kRowEndDraws);
      words[l] = words_[l < n_ ? l : 0];
      below[l] = band_.In(y + 1, p_[l]);
    }
    InterleaveCodes(words, w - 1, kCodeMask, mem_.codes);
    InterleaveBytes(below, w, mem_.below);
    if constexpr (kScan.curve_terms) {
      // Terms fall on odd columns left to right and even ones right to left; the other
      // columns stay zero.
      const std::uint8_t* curve = kLtr ? curve_a_ : curve_b_;
      std::int16_t* terms = mem_.terms[kLtr ? 0 : 1];
      const std::size_t n = w * kVectorLanes;
      for (std::size_t i = (kLtr ? 1 : 0) * kVectorLanes; i < n; i += 2 * kVectorLanes)
        for (unsigned l = 0; l < kVectorLanes; ++l) terms[i + l] = curve[mem_.samples[i + l]];
    }
  }

  template <bool kLtr, bool kKeep>
  void Row(std::size_t y) {
    PrepareRow<kLtr>(y);
    const std::size_t w = band_.w;
    const VectorDecider vdecide = vdecide_;
    std::int16_t* const cur = mem_.cur;
    std::int16_t* const next = mem_.next;
    const std::int16_t* const terms = mem_.terms[kLtr ? 0 : 1];
    const std::uint8_t* const samples = mem_.samples;
    const std::uint8_t* const below = mem_.below;
    const std::uint8_t* const codes = mem_.codes;
    std::uint8_t* const dots = mem_.dots;
    constexpr std::ptrdiff_t kStep = kLtr ? kVectorLanes : -static_cast<std::ptrdiff_t>(kVectorLanes);

    std::size_t at = kLtr ? 0 : (w - 1) * kVectorLanes;  // column x's entries
    __m128i v = vec::Load16(cur + at);
    for (std::size_t i = 0; i + 1 < w; ++i, at += kStep) {
      const auto sample = vdecide.Prepare(vec::Load8(samples + at));
      if constexpr (kKeep) vec::Store16(cur + at, v);
      __m128i dot;
      const __m128i e = vdecide.Error(v, sample, vec::Load16(terms + at), dot);
      vec::Store8(dots + at, dot);
      const Parts parts{e, vec::Half(e), vec::Third(e), vec::TwoThirds(e), vec::Quarter(e), vec::ThreeQuarters(e)};
      const __m128i code = vec::Load8(codes + kVectorLanes * i);
      const __m128i along = ShareFor<kLtr, false>(code, parts);
      const __m128i down = ShareFor<kLtr, true>(code, parts);
      vec::Store16(next + at, _mm_add_epi16(vec::Load8(below + at), down));
      v = _mm_add_epi16(vec::Load16(cur + at + kStep), along);
    }
    EndPixel<kLtr>(v);
    PackRow(y);
    std::swap(mem_.cur, mem_.next);
    std::swap(mem_.samples, mem_.below);
  }

  // The pixel ending an inner row, lane by lane: part of its error goes down, the rest is lost.
  template <bool kLtr>
  void EndPixel(__m128i v) {
    const std::size_t w = band_.w;
    const std::size_t x = kLtr ? w - 1 : 0;
    alignas(16) std::int16_t values[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(values), v);
    for (unsigned l = 0; l < n_; ++l) {
      const std::size_t at = kVectorLanes * x + l;
      const std::uint8_t s = mem_.samples[at];
      mem_.cur[at] = values[l];
      const Outcome o = decide_.Decide(values[l], s);
      mem_.dots[at] = static_cast<std::uint8_t>(o.code);
      int term = 0;
      if constexpr (kScan.curve_terms) {
        if (kLtr ? (x & 1) != 0 : (x & 1) == 0) term = kLtr ? curve_a_[s] : curve_b_[s];
      }
      const int e = Store16(o.err + term);
      unsigned bit = 0;
      if constexpr (kScan.inner_row_end.draw == EndDraw::kUsed) bit = (words_[l][w - 1] >> 1) & 1u;
      mem_.next[at] = Store16(mem_.below[at] + ShareOf(kScan.inner_row_end.below[bit], e));
    }
  }

  // The row's dots into each plane's output row.
  void PackRow(std::size_t y) {
    std::uint8_t* out[kVectorLanes];
    for (unsigned l = 0; l < n_; ++l) out[l] = band_.Out(y, p_[l]);
    PackDots<kBits>(mem_.dots, band_.w, out, n_);
  }

  const VectorDecider& vdecide_;
  const Decider& decide_;
  const Band& band_;
  unsigned n_;
  const std::uint8_t* curve_a_;
  const std::uint8_t* curve_b_;
  VectorRowsMemory mem_;
  PlaneRows rows_[kVectorLanes];
  RandomBitSource random_[kVectorLanes];
  std::uint32_t* words_[kVectorLanes];
  unsigned p_[kVectorLanes];
};

// A group of up to kVectorLanes planes: the inner rows as vectors, then each plane's last row on
// the scalar scan. Each lane's generator is left after its plane's draws.
template <class Pass, class VectorDecider, class Decider>
void RunVectorGroup(const VectorDecider& vdecide, const Decider& decide, const Band& band, FastLane* lanes, unsigned n,
                    const ToneCurveSet& curves, VectorRowsMemory mem) {
  VectorRows<Pass, VectorDecider, Decider> rows(vdecide, decide, band, lanes, n, curves, mem);
  rows.Run();
  for (unsigned l = 0; l < n; ++l) {
    lanes[l].random = rows.random(l);
    LockstepScan<Pass, Decider, 1> last(decide, band, &lanes[l], curves);
    last.LastRow();
    lanes[l].random = last.random(0);
  }
}

}  // namespace halftone::random_split
#endif
