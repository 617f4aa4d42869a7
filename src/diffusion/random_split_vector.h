// Inner rows of a lockstep group with the planes as the 16-bit lanes of one vector, as a kernel
// of the vector frame (frame/vector_scan.h). The row engine's scalar groups keep every lane's
// chain in general registers; with four planes their pointers outnumber the registers and each
// pixel costs some forty instructions a lane. Here a column of the group is one vector step: the working rows, samples, draws, curve terms and
// dots are kept interleaved (entry 4x + l is lane l at column x), so one 64-bit load fetches
// the column for every plane.
//
// A pass takes this path by offering a vector decision, `Vector()`, returning an engaged
// optional where its decision can be written with 16-bit compares and masks: the decision for
// a sample is one or more thresholds on the corrected value with fixed steps of level between
// them. A pass whose decision has no such form may ask (`kVectorTable`) for its lanes to read
// their entries from its scalar decision table (TableDecide). The arithmetic is the scalar
// scan's, modulo 2^16 as the working rows store it, so the dots and every row left behind are
// the same.
//
// Each row is three steps: the row's draws, the samples below and the curve terms are
// interleaved; the pixels are scanned; the dots are packed into the planes' output rows.
// The pixel ending each row is done in ints, lane by lane, and the band's last row (thirds,
// the carry row) runs on the row engine: one column in a row and one row in a band.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "diffusion/random_split_fast.h"
#include "frame/dispatch.h"
#include "frame/vector_lanes.h"
#include "frame/vector_scan.h"

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
    vec::V16 origin;  // each lane's class origin in the table
    vec::V16 s;       // the raw samples, for a lookup outside the window
  };
  HALFTONE_FORCE_INLINE Sample Prepare(vec::V16 s) const {
    const auto origin = [&](unsigned l) HALFTONE_FORCE_INLINE {
      return static_cast<std::uint16_t>(table->origin_of[s[l]]);
    };
    return {vec::V16{origin(0), origin(1), origin(2), origin(3), 0, 0, 0, 0}, s};
  }
  // The error v - level + term, and the code.
  HALFTONE_FORCE_INLINE vec::V16 Error(vec::V16 v, Sample k, vec::V16 term, vec::V16& code) const {
    using vec::V16;
    const V16 outside = vec::Greater(v, vec::Splat(Table::kWindowHi)) | vec::Greater(vec::Splat(Table::kWindowLo), v);
    V16 err;
    if (!vec::AnyOfGroup(outside)) [[likely]] {
      const V16 at = v + k.origin;
      const auto entry = [&](unsigned l) HALFTONE_FORCE_INLINE { return vec::Load16(table->EntryAt(at[l])); };
      // Entries {err, part, code, rest}: lanes 0 and 1, 2 and 3 side by side, then err and code
      // apart (the group's four lanes of each; the upper lanes hold parts and rests).
      const auto e01 = std::bit_cast<vec::Words>(__builtin_shufflevector(entry(0), entry(1), 0, 8, 1, 9, 2, 10, 3, 11));
      const auto e23 = std::bit_cast<vec::Words>(__builtin_shufflevector(entry(2), entry(3), 0, 8, 1, 9, 2, 10, 3, 11));
      err = std::bit_cast<V16>(__builtin_shufflevector(e01, e23, 0, 4, 1, 5));
      code = std::bit_cast<V16>(__builtin_shufflevector(e01, e23, 2, 6, 3, 7));
    } else {
      err = Outside(v, k.s, code);
    }
    return err + term;
  }
  [[gnu::noinline]] vec::V16 Outside(vec::V16 v, vec::V16 s, vec::V16& code) const {
    vec::V16 err{};
    code = vec::V16{};
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      const PartOutcome o = table->DecideWithPart(vec::At(v, l), vec::At(s, l));
      err[l] = static_cast<std::uint16_t>(o.err);
      code[l] = static_cast<std::uint16_t>(o.code);
    }
    return err;
  }
};

// Whether the vector rows can form a pass's inner-row splits.
template <class Pass>
constexpr bool VectorSplits() {
  constexpr unsigned kCodes = Pass::kScan.draw_bits == 2 ? 4 : 2;
  for (const Split* row : {Pass::kScan.splits.inner_ltr, Pass::kScan.splits.inner_rtl})
    for (unsigned c = 0; c < kCodes; ++c)
      if (!vec::HasVectorForm(row[c].along) || !vec::HasVectorForm(row[c].below)) return false;
  return true;
}

// The inner rows of a group on the vector engine (frame/vector_scan.h): each row draws every
// lane's split codes and lays in the curve terms; a column is the decision and the split.
template <class Pass, class VectorDecider, class Decider>
class VectorRows {
 public:
  static constexpr unsigned kBits = Pass::kBits;
  static constexpr bool kStartsFromInput = true;

  // A group of n <= kVectorLanes planes: lane l draws from starts[l] into words + room * l.
  VectorRows(const VectorDecider& vdecide, const Decider& decide, const Band& band, const RandomBitSource* starts,
             std::uint32_t* words, std::size_t room, unsigned n, const ToneCurveSet& curves, VectorRowsMemory mem)
      : vdecide_(vdecide), scalar_(decide, curves, nullptr, 0, nullptr, 0), band_(band), n_(n),
        curve_a_(curves.a().data()), curve_b_(curves.b().data()) {
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      random_[l] = starts[l < n ? l : 0];
      words_[l] = words + room * (l < n ? l : 0);
    }
    const std::size_t entries = VectorRowsMemory::Columns(band.w) * kVectorLanes;
    std::memset(mem.terms[0], 0, entries * sizeof(std::int16_t));
    std::memset(mem.terms[1], 0, entries * sizeof(std::int16_t));
  }

  const RandomBitSource& random(unsigned l) const { return random_[l]; }

 private:
  static constexpr const ScanTraits& kScan = Pass::kScan;
  static constexpr unsigned kCodeMask = kScan.draw_bits == 2 ? 3u : 1u;
  static constexpr unsigned kCodes = kScan.draw_bits == 2 ? 4 : 2;
  static constexpr std::size_t kRowEndDraws = kScan.inner_row_end.draw == EndDraw::kNone ? 0 : 1;
  using Scalar = SplitKernel<Pass, Decider>;

  // The share a column takes for split code c in a row of one direction.
  template <bool kLtr, bool kBelow>
  static constexpr Fraction ShareAt(unsigned c) {
    return Pick(kLtr ? kScan.splits.inner_ltr[c] : kScan.splits.inner_rtl[c], kBelow);
  }
  // The split codes whose share in a column is `kKind`, as a lane mask (the compares are off
  // the error's chain).
  template <bool kLtr, bool kBelow, Fraction kKind>
  HALFTONE_FORCE_INLINE static vec::V16 CodesOf(vec::V16 code) {
    vec::V16 m{};
    [&]<unsigned... c>(std::integer_sequence<unsigned, c...>) HALFTONE_FORCE_INLINE {
      ((m = ShareAt<kLtr, kBelow>(c) == kKind ? m | vec::Equal(code, vec::Splat(c)) : m), ...);
    }(std::make_integer_sequence<unsigned, kCodes>{});
    return m;
  }
  // Whether split code c is the first of its column's codes to take its share.
  template <bool kLtr, bool kBelow, unsigned c>
  static constexpr bool kFirstOfKind = [] {
    for (unsigned d = 0; d < c; ++d)
      if (ShareAt<kLtr, kBelow>(d) == ShareAt<kLtr, kBelow>(c)) return false;
    return true;
  }();
  // A column's share for each lane's split code: each share the column takes, formed once.
  template <bool kLtr, bool kBelow>
  HALFTONE_FORCE_INLINE static vec::V16 ShareFor(vec::V16 code, vec::V16 e) {
    vec::V16 share{};
    [&]<unsigned... c>(std::integer_sequence<unsigned, c...>) HALFTONE_FORCE_INLINE {
      ((share |= kFirstOfKind<kLtr, kBelow, c> ? CodesOf<kLtr, kBelow, ShareAt<kLtr, kBelow>(c)>(code) &
                                                     vec::ShareOf<ShareAt<kLtr, kBelow>(c)>(e)
                                               : vec::V16{}),
       ...);
    }(std::make_integer_sequence<unsigned, kCodes>{});
    return share;
  }

 public:
  template <bool kLtr>
  struct RowKernel {
    VectorDecider vdecide;
    const VectorRows* rows;
    const std::int16_t* terms;
    const std::uint8_t* samples;
    const std::uint8_t* codes;

    HALFTONE_FORCE_INLINE VectorColumn Column(vec::V16 v, std::size_t at, std::size_t i) const {
      const auto sample = vdecide.Prepare(vec::Load8(samples + at));
      vec::V16 dot;
      const vec::V16 e = vdecide.Error(v, sample, vec::Load16(terms + at), dot);
      const vec::V16 code = vec::Load8(codes + kVectorLanes * i);
      return {ShareFor<kLtr, false>(code, e), ShareFor<kLtr, true>(code, e), dot};
    }
    // The pixel ending an inner row (part of its error goes down, the rest is lost), as the
    // row engine's kernel does it.
    VectorEnd End(unsigned l, int held, std::size_t at) const {
      const std::size_t w = rows->band_.w;
      typename Scalar::LaneState st{};
      st.end_bit = (rows->words_[l][w - 1] >> 1) & 1u;
      const auto o = rows->scalar_.template Step<kLtr, false, true, 1>(st, samples[at], held, kLtr ? w - 1 : 0, 0, 0);
      return {static_cast<int>(o.down), o.code};
    }
  };

  // The row's draws and its curve terms, interleaved.
  template <bool kLtr>
  RowKernel<kLtr> Row(std::size_t, const VectorRowsMemory& mem) {
    const std::size_t w = band_.w;
    for (unsigned l = 0; l < n_; ++l) random_[l].DrawWords(words_[l], w - 1 + kRowEndDraws);
    InterleaveCodes(words_, w - 1, kCodeMask, mem.codes);
    std::int16_t* terms = mem.terms[kLtr ? 0 : 1];
    if constexpr (kScan.curve_terms) {
      // Terms fall on odd columns left to right and even ones right to left; the other
      // columns stay zero.
      const std::uint8_t* curve = kLtr ? curve_a_ : curve_b_;
      const std::size_t n = w * kVectorLanes;
      for (std::size_t i = (kLtr ? 1 : 0) * kVectorLanes; i < n; i += 2 * kVectorLanes)
        for (unsigned l = 0; l < kVectorLanes; ++l) terms[i + l] = curve[mem.samples[i + l]];
    }
    return {vdecide_, this, terms, mem.samples, mem.codes};
  }

 private:
  const VectorDecider& vdecide_;
  const Scalar scalar_;  // the row ends
  const Band& band_;
  unsigned n_;
  const std::uint8_t* curve_a_;
  const std::uint8_t* curve_b_;
  RandomBitSource random_[kVectorLanes];
  std::uint32_t* words_[kVectorLanes];  // a missing lane's are lane 0's
};

// A group of up to kVectorLanes planes: the inner rows as vectors, then each plane's last row on
// the row engine; lane l draws from starts[l] into words + room * l.
template <class Pass, class VectorDecider, class Decider>
void RunVectorGroup(const VectorDecider& vdecide, const Decider& decide, const Band& band,
                    const row_engine::Lane* lanes, unsigned n, const ToneCurveSet& curves,
                    const RandomBitSource* starts, std::uint32_t* words, std::size_t room, VectorRowsMemory mem) {
  VectorRows<Pass, VectorDecider, Decider> rows(vdecide, decide, band, starts, words, room, n, curves, mem);
  VectorScan(rows, band, lanes, n, mem).Run();
  for (unsigned l = 0; l < n; ++l) {
    RandomBitSource after = rows.random(l);
    const SplitKernel<Pass, Decider> last(decide, curves, &after, lanes[l].p, words + room * l, 0);
    row_engine::Scan<SplitKernel<Pass, Decider>, 1>(last, band, &lanes[l]).LastRow();
  }
}

}  // namespace halftone::random_split
#endif
