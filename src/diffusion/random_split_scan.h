// The serpentine two-neighbour scan shared by the grouped four-level, single-dot-size, bilevel
// and eight-level random-split routines. Each pixel's error goes to the next pixel along the
// scan and to the pixel below, in a proportion a fresh random draw picks from a small split
// table. Rows 0 .. h-2 of a band prepare the next row in the other working row; the band's last
// row hands its downward shares to the band-carry row instead, in either scan direction, so
// error always reaches the next band.
//
// What differs between the routines is data: the decision (levels, sense, guards), the split
// tables, how many bits a draw is read at, what the pixel ending an inner row does with its
// error, and whether tone-curve terms are added. A routine is a Pass type carrying a
// `ScanTraits` constant and a decision; the scan is instantiated once per Pass, so nothing is
// decided per pixel through an indirect call.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/engine.h"
#include "frame/job.h"
#include "frame/random_bits.h"
#include "frame/share_arithmetic.h"
#include "tone/tone.h"

namespace halftone::random_split {

// Every share of a pixel's error is a Fraction (frame/share_arithmetic.h) of the sign-extended
// 16-bit error, formed in 32-bit arithmetic, product before division, truncating toward zero;
// the shares of a pixel need not add up to e (small errors vanish in thirds and halves, by
// design).
// One split: the share for the next pixel along the scan and the share for the pixel below
// (the next working row in inner rows, the band-carry entry in the last row).
struct Split {
  Fraction along;
  Fraction below;
};

// Split code k (the drawn bits) to split, per kind of row. Members that draw one bit use only
// entries 0 and 1.
inline constexpr unsigned kSplitCodes = 4;
struct SplitTable {
  Split inner_ltr[kSplitCodes];
  Split inner_rtl[kSplitCodes];
  Split last[kSplitCodes];
};

// What the pixel ending an inner row (x = w-1 left to right, x = 0 right to left) does: it has
// no next pixel, so a part of its error goes down and the rest is dropped.
enum class EndDraw : std::uint8_t {
  kNone,     // no draw
  kIgnored,  // one draw whose value is not used (it still advances the generator)
  kUsed,     // one draw of one bit; its value selects the below share
};
struct RowEndRule {
  EndDraw draw;
  Fraction below[2];  // by the drawn bit when the draw is used, else entry 0
};

struct ScanTraits {
  unsigned draw_bits;   // bits read from each split draw: 1 or 2
  bool curve_terms;     // add curve A[s] on odd x left to right, curve B[s] on even x right to left
  SplitTable splits;
  RowEndRule inner_row_end;
  // required: the single-dot-size routines decide the pixel ending a left-to-right last row on
  // working row B at w-1 (the first pixel of the row before, or stale content when h = 1).
  bool ltr_last_end_reads_b;
  // The pixel ending the band: by default its dot only (no curve term, no draw, its error
  // dropped); with a draw, it sends a share down like the pixel ending an inner row.
  RowEndRule last_row_end = {EndDraw::kNone, {fraction::kNone, fraction::kNone}};
  // Whether a left-to-right last row hands its downward shares to the band-carry row (the
  // spine's does not: only its right-to-left last row carries, so an odd-height band carries
  // nothing into the next band).
  bool ltr_last_carries = true;
};

// The outcome of one decision: the code written into the dot plane (0 writes nothing) and the
// quantisation error before any curve term.
struct Outcome {
  unsigned code;
  int err;
};

template <unsigned kBits>
inline void PutCode(std::uint8_t* row, std::size_t x, unsigned code) {
  static_assert(kBits == 1 || kBits == 2 || kBits == 4, "1, 2 or 4 bits a pixel");
  if constexpr (kBits == 1) {
    if (code) PutDot(row, x);
  } else if constexpr (kBits == 2) {
    PutCode2(row, x, code);
  } else {
    PutCode4(row, x, code);
  }
}

// The rows one plane's scan works on. `carry` is the plane's band-carry entries (the
// single-plane form's a scratch row: its last-row downward shares have nowhere to go).
struct PlaneRows {
  std::int16_t* a;
  std::int16_t* b;
  std::int16_t* carry;
};

// Pass requirements: `static constexpr unsigned kBits`, `static constexpr const ScanTraits&
// kScan`, and `Outcome Decide(int v, int s) const` for corrected value v (sign-extended 16 bits)
// and raw sample s.
template <class Pass>
class PlaneScan {
 public:
  // Draws one plane's scan makes in a band of w x h (w, h >= 1): a split draw for every pixel
  // but the last of each row, plus one at the end of every inner row where the row end draws
  // and one at the band's end where the band-ending pixel draws.
  static constexpr std::size_t DrawsPerPlane(std::size_t w, std::size_t h) {
    const std::size_t row_end = Pass::kScan.inner_row_end.draw == EndDraw::kNone ? 0 : 1;
    const std::size_t band_end = Pass::kScan.last_row_end.draw == EndDraw::kNone ? 0 : 1;
    return (h - 1) * (w - 1 + row_end) + (w - 1 + band_end);
  }

  PlaneScan(const Pass& pass, const Band& band, unsigned p, PlaneRows rows, RandomBitSource& random,
            const ToneCurveSet& curves)
      : pass_(pass), band_(band), p_(p), rows_(rows), random_(random), curve_a_(curves.a()), curve_b_(curves.b()) {}

  // Halftones the plane; w and h are at least 1 (the callers refuse zero sizes).
  void Run() {
    const std::size_t w = band_.w, h = band_.h;
    LoadFirstRow(rows_.a, rows_.carry, band_.In(0, p_), w);
    // Row 0 of every plane runs left to right; the last row continues the alternation.
    for (std::size_t y = 0; y + 1 < h; ++y) {
      if ((y & 1) == 0)
        InnerRow<true>(y);
      else
        InnerRow<false>(y);
    }
    if (((h - 1) & 1) == 0)
      LastRow<true>(h - 1);
    else
      LastRow<false>(h - 1);
  }

 private:
  static constexpr const ScanTraits& kScan = Pass::kScan;
  static_assert(kScan.draw_bits == 1 || kScan.draw_bits == 2, "a split draw is read at one or two bits");
  static_assert(kScan.inner_row_end.draw != EndDraw::kUsed || kScan.draw_bits == 1,
                "a row-end draw that selects a share is read at one bit");

  unsigned DrawSplitCode() { return kScan.draw_bits == 2 ? random_.NextTwoBits() : random_.NextBit(); }

  // Decision, dot, then the curve term: the error the pixel passes on, truncated to 16 bits.
  template <bool kLtr>
  int Quantise(int v, std::size_t x, std::uint8_t s, std::uint8_t* out, bool curve_term) const {
    const Outcome o = pass_.Decide(v, s);
    PutCode<Pass::kBits>(out, x, o.code);
    int e = o.err;
    if constexpr (kScan.curve_terms) {
      if (curve_term) {
        if constexpr (kLtr) {
          if (x & 1) e += curve_a_[s];
        } else {
          if ((x & 1) == 0) e += curve_b_[s];
        }
      }
    }
    return Store16(e);
  }

  // Rows 0 .. h-2: left to right the row is in A and the next row is built in B; right to left
  // the roles swap.
  template <bool kLtr>
  void InnerRow(std::size_t y) {
    const std::size_t w = band_.w;
    std::int16_t* cur = kLtr ? rows_.a : rows_.b;
    std::int16_t* next = kLtr ? rows_.b : rows_.a;
    const std::uint8_t* in = band_.In(y, p_);
    const std::uint8_t* in_below = band_.In(y + 1, p_);
    std::uint8_t* out = band_.Out(y, p_);
    const Split* splits = kLtr ? kScan.splits.inner_ltr : kScan.splits.inner_rtl;

    for (std::size_t i = 0; i + 1 < w; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      const std::size_t along = kLtr ? x + 1 : x - 1;
      const int e = Quantise<kLtr>(cur[x], x, in[x], out, true);
      next[x] = in_below[x];
      const Split split = splits[DrawSplitCode()];
      cur[along] = Store16(cur[along] + ShareOf(split.along, e));
      next[x] = Store16(next[x] + ShareOf(split.below, e));
    }

    const std::size_t x = kLtr ? w - 1 : 0;
    const int e = Quantise<kLtr>(cur[x], x, in[x], out, true);
    next[x] = in_below[x];
    unsigned bit = 0;
    if constexpr (kScan.inner_row_end.draw == EndDraw::kIgnored) {
      random_.NextStateWord();  // required: the draw is made only to advance the generator
    } else if constexpr (kScan.inner_row_end.draw == EndDraw::kUsed) {
      bit = random_.NextBit();
    }
    next[x] = Store16(next[x] + ShareOf(kScan.inner_row_end.below[bit], e));
  }

  // Row h-1: the downward shares are stored into the band-carry row (an assignment), in either
  // direction unless a left-to-right last row carries nothing; nothing of the next row is loaded.
  template <bool kLtr>
  void LastRow(std::size_t y) {
    const std::size_t w = band_.w;
    std::int16_t* cur = kLtr ? rows_.a : rows_.b;
    const std::uint8_t* in = band_.In(y, p_);
    std::uint8_t* out = band_.Out(y, p_);

    for (std::size_t i = 0; i + 1 < w; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      const std::size_t along = kLtr ? x + 1 : x - 1;
      const int e = Quantise<kLtr>(cur[x], x, in[x], out, true);
      const Split split = kScan.splits.last[DrawSplitCode()];
      cur[along] = Store16(cur[along] + ShareOf(split.along, e));
      Carry<kLtr>(x, ShareOf(split.below, e));
    }

    const std::size_t x = kLtr ? w - 1 : 0;
    if constexpr (kScan.last_row_end.draw == EndDraw::kNone) {
      // required: the pixel ending the band gets its dot only: no curve term, no draw, and its
      // error is dropped, so its carry entry stays 0.
      const std::int16_t v = (kLtr && kScan.ltr_last_end_reads_b) ? rows_.b[x] : cur[x];
      Quantise<kLtr>(v, x, in[x], out, false);
    } else {
      const int e = Quantise<kLtr>(cur[x], x, in[x], out, true);
      unsigned bit = 0;
      if constexpr (kScan.last_row_end.draw == EndDraw::kIgnored)
        random_.NextStateWord();
      else
        bit = random_.NextBit();
      Carry<kLtr>(x, ShareOf(kScan.last_row_end.below[bit], e));
    }
  }

  template <bool kLtr>
  void Carry(std::size_t x, int share) {
    if (!kLtr || kScan.ltr_last_carries) rows_.carry[x] = Store16(share);
  }

  const Pass& pass_;
  const Band& band_;
  unsigned p_;
  PlaneRows rows_;
  RandomBitSource& random_;
  const ToneCurve& curve_a_;
  const ToneCurve& curve_b_;
};

// Halves within the band, thirds into the next band: the split of the grouped four-level,
// single-dot-size and eight-level routines. In inner rows codes 0 and 2 both split evenly, so
// half the pixels share their error and a quarter each send it all along or all down.
inline constexpr SplitTable kHalvesThenThirds = {
    .inner_ltr = {{fraction::kHalf, fraction::kHalf}, {fraction::kNone, fraction::kAll},
                  {fraction::kHalf, fraction::kHalf}, {fraction::kAll, fraction::kNone}},
    .inner_rtl = {{fraction::kHalf, fraction::kHalf}, {fraction::kNone, fraction::kAll},
                  {fraction::kHalf, fraction::kHalf}, {fraction::kAll, fraction::kNone}},
    .last = {{fraction::kTwoThirds, fraction::kThird}, {fraction::kAll, fraction::kNone},
             {fraction::kThird, fraction::kTwoThirds}, {fraction::kNone, fraction::kAll}},
};

// The pixel ending an inner row sends two thirds of its error down after a draw it ignores.
inline constexpr RowEndRule kTwoThirdsDownAfterIgnoredDraw = {EndDraw::kIgnored,
                                                              {fraction::kTwoThirds, fraction::kTwoThirds}};

}  // namespace halftone::random_split
