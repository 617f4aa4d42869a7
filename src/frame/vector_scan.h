// The vector variant of the serpentine row engine: the planes of a group as the 16-bit lanes of
// one vector, on interleaved rows (entry 4x + l is lane l at column x, vector_lanes.h), so a
// column of the group is one vector step. The frame owns what every family's vector rows do
// alike: the rows a band starts from, the serpentine order, the column loop and its
// pixel-to-pixel chain, storing the shares below and the dots, the pixel ending each row, packing
// the dots, and handing each lane its working rows back before the band's last row, which (with
// the row ends' arithmetic in ints) stays with the scalar engine. A kernel supplies what one row
// prepares and what one column does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "frame/band.h"
#include "frame/row_engine.h"
#include "frame/vector_lanes.h"

#if HALFTONE_VECTOR_ROWS
namespace halftone {

// A column of lanes: the shares ahead and down, and each lane's dot code.
struct VectorColumn {
  vec::V16 ahead, down, dot;
};
// The pixel ending a row, one lane: its share below (its ahead share is dropped) and its code.
struct VectorEnd {
  int down;
  unsigned code;
};

// Rows 0 .. h-2 of a band (h >= 2) for a group of n <= kVectorLanes planes; a missing lane
// repeats lane 0's inputs and its results are dropped. A kernel provides:
//   kBits               output bits a pixel;
//   kStartsFromInput    true when a row's entries start from its input (the row below is laid
//                       in as input plus the down shares), false when they hold bare error;
//   Row<kLtr>(y, mem)   prepares row y (draws, records, terms: whatever its columns read beside
//                       the interleaved samples, which the frame lays in) and returns the row's
//                       column kernel, a small value with
//     Column(held, at, i)   column at entry `at`, scan position i: shares and dots;
//     Fits(held), Cold(held, at, i)   optional: whether the column's arithmetic fits the
//                           lanes, and the column done otherwise (in ints, lane by lane);
//     End(l, held, at)      the pixel ending the row, lane l.
// Leaves each lane's working rows as the scalar engine leaves them before the band's last row.
template <class Kernel>
class VectorScan {
 public:
  VectorScan(Kernel& kernel, const Band& band, const row_engine::Lane* lanes, unsigned n, VectorRowsMemory mem)
      : k_(kernel), band_(band), n_(n), mem_(mem) {
    for (unsigned l = 0; l < kVectorLanes; ++l) lanes_[l] = lanes[l < n ? l : 0];
  }

  void Run() {
    const std::size_t w = band_.w, h = band_.h;
    std::memset(mem_.dots, 0, VectorRowsMemory::Columns(w) * kVectorLanes);
    if constexpr (Kernel::kStartsFromInput) Interleave(0, mem_.samples);
    for (unsigned l = 0; l < kVectorLanes; ++l) {
      std::int16_t* carry = lanes_[l].carry;
      for (std::size_t x = 0; x < w; ++x) {
        const std::size_t at = kVectorLanes * x + l;
        if (l >= n_) {
          mem_.cur[at] = mem_.cur[kVectorLanes * x];
          continue;
        }
        const int start = Kernel::kStartsFromInput ? mem_.samples[at] : 0;
        mem_.cur[at] = Store16(start + std::exchange(carry[x], std::int16_t{0}));
      }
    }
    // Serpentine order; kKeep for the last inner row, the only one whose scanned values outlast
    // the band.
    for (std::size_t y = 0; y + 1 < h; ++y) {
      const bool keep = y + 2 >= h;
      if ((y & 1) == 0)
        keep ? Row<true, true>(y) : Row<true, false>(y);
      else
        keep ? Row<false, true>(y) : Row<false, false>(y);
    }
    // Each lane's working rows as a scalar scan leaves them before the last row: row h-2's
    // scanned values (in `next` after the row's swap) in the row it scanned, row h-1's starting
    // values (in `cur`) in the other.
    const bool ltr = ((h - 2) & 1) == 0;
    for (unsigned l = 0; l < n_; ++l) {
      std::int16_t* scanned = ltr ? lanes_[l].a : lanes_[l].b;
      std::int16_t* starting = ltr ? lanes_[l].b : lanes_[l].a;
      for (std::size_t x = 0; x < w; ++x) {
        scanned[x] = mem_.next[kVectorLanes * x + l];
        starting[x] = mem_.cur[kVectorLanes * x + l];
      }
    }
  }

 private:
  void Interleave(std::size_t y, std::uint8_t* to) const {
    const std::uint8_t* in[kVectorLanes];
    for (unsigned l = 0; l < kVectorLanes; ++l) in[l] = band_.In(y, lanes_[l].p);
    InterleaveBytes(in, band_.w, to);
  }

  template <class R>
  static constexpr bool kHasCold = requires(const R& r, vec::V16 v) { r.Fits(v); };

  template <bool kLtr, bool kKeep>
  void Row(std::size_t y) {
    using namespace vec;
    constexpr bool kInput = Kernel::kStartsFromInput;
    const std::size_t w = band_.w;
    // Rows that start from input take the next row's samples as their row below (and hand them
    // on); bare-error rows take their own.
    Interleave(kInput ? y + 1 : y, kInput ? mem_.below : mem_.samples);
    const auto row = k_.template Row<kLtr>(y, mem_);
    const VectorRowsMemory m = mem_;
    constexpr std::ptrdiff_t kStep = kLtr ? kVectorLanes : -static_cast<std::ptrdiff_t>(kVectorLanes);

    std::size_t at = kLtr ? 0 : (w - 1) * kVectorLanes;  // column x's entries
    V16 held = Load16(m.cur + at);
    const auto finish = [&](const VectorColumn& c) HALFTONE_FORCE_INLINE {
      Store16(m.next + at, kInput ? Load8(m.below + at) + c.down : c.down);
      Store8(m.dots + at, c.dot);
      held = Load16(m.cur + at + kStep) + c.ahead;
    };
    for (std::size_t i = 0; i + 1 < w; ++i, at += kStep) {
      if constexpr (kKeep) Store16(m.cur + at, held);
      // A column the vector arithmetic cannot hold goes its own way to the end of the step, so
      // only the carried value meets the common path (the shares stay in registers).
      if constexpr (kHasCold<decltype(row)>) {
        if (!row.Fits(held)) [[unlikely]] {
          finish(row.Cold(held, at, i));
          continue;
        }
      }
      finish(row.Column(held, at, i));
    }
    for (unsigned l = 0; l < n_; ++l) {
      const std::size_t end = at + l;
      m.cur[end] = At(held, l);
      const VectorEnd o = row.End(l, At(held, l), end);
      m.next[end] = Store16((kInput ? m.below[end] : 0) + o.down);
      m.dots[end] = static_cast<std::uint8_t>(o.code);
    }
    std::uint8_t* out[kVectorLanes];
    for (unsigned l = 0; l < n_; ++l) out[l] = band_.Out(y, lanes_[l].p);
    PackDots<Kernel::kBits>(m.dots, w, out, n_);
    std::swap(mem_.cur, mem_.next);
    if constexpr (kInput) std::swap(mem_.samples, mem_.below);
  }

  Kernel& k_;
  const Band& band_;
  unsigned n_;
  VectorRowsMemory mem_;
  row_engine::Lane lanes_[kVectorLanes];
};

}  // namespace halftone
#endif
