// The fast path of the serpentine two-neighbour scan (random_split_scan.h): the same pixels in
// the same order per plane, the same draws, the same rows left behind. What changes is how:
//   - the planes of a group run in lockstep, row y of every plane in one loop, each with its
//     own working rows, carry entries and slice of the drawn words, so their dependency chains
//     overlap;
//   - the value carried along the row stays in a register;
//   - a row is cut into whole output bytes, their pixels unrolled (a group's by pairs of
//     columns), so the curve term's column parity is a constant, dots shift in from the side
//     the scan comes from, and only the last two rows of a band store their scanned values back;
//   - the split is branch-free: whole, half or none of the error by masks (the half read from
//     a table decider where no curve term falls), or a multiply by a rounded-up reciprocal;
//   - the dots of a byte are gathered in a register and stored once.
// The readable scan stays the reference; mirror any change to it here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "diffusion/random_split_tables.h"
#include "frame/band_draws.h"
#include "frame/lockstep.h"

namespace halftone::random_split {

// One plane of a lockstep group.
struct FastLane {
  PlaneRows rows;
  RandomBitSource random;  // positioned at the start of the plane's slice of the band's stream
  std::uint32_t* words;    // room for one row's draws (w + 1 words)
  unsigned p;
};

template <class Pass, class Decider, unsigned kLanes>
class LockstepScan {
 public:
  LockstepScan(const Decider& decide, const Band& band, const FastLane* lanes, const ToneCurveSet& curves)
      : decide_(decide), band_(band), curve_a_(curves.a().data()), curve_b_(curves.b().data()) {
    for (unsigned l = 0; l < kLanes; ++l) {
      rows_[l] = lanes[l].rows;
      random_[l] = lanes[l].random;
      words_[l] = lanes[l].words;
      p_[l] = lanes[l].p;
    }
    if constexpr (kShareRows<FastSplit<Pass, RowKind::kInnerLtr>>)
      along_ltr_ = &AlongSharesOf<FastSplit<Pass, RowKind::kInnerLtr>>(decide);
    if constexpr (kShareRows<FastSplit<Pass, RowKind::kInnerRtl>>)
      along_rtl_ = &AlongSharesOf<FastSplit<Pass, RowKind::kInnerRtl>>(decide);
  }

  // The generator of lane l, after the draws of the rows scanned so far.
  const RandomBitSource& random(unsigned l) const { return random_[l]; }

  void Run() {
    const std::size_t w = band_.w, h = band_.h;
    for (unsigned l = 0; l < kLanes; ++l) {
      const std::uint8_t* row0 = band_.In(0, p_[l]);
      std::int16_t* a = rows_[l].a;
      std::int16_t* carry = rows_[l].carry;
      if (carry) {
        for (std::size_t x = 0; x < w; ++x) {
          a[x] = Store16(row0[x] + carry[x]);
          carry[x] = 0;
        }
      } else {
        for (std::size_t x = 0; x < w; ++x) a[x] = row0[x];
      }
    }
    // Rows 0 .. h-3 of the working row being scanned are rewritten whole by the next row as
    // its row below, so only the last two rows need their values stored back.
    for (std::size_t y = 0; y + 1 < h; ++y) {
      const bool keep = y + 2 >= h;
      if ((y & 1) == 0)
        keep ? LanesRow<true, false, true>(y) : LanesRow<true, false, false>(y);
      else
        keep ? LanesRow<false, false, true>(y) : LanesRow<false, false, false>(y);
    }
    LastRow();
  }

  // The band's last row alone, on working rows that hold what the rows before it left.
  void LastRow() {
    const std::size_t h = band_.h;
    if (((h - 1) & 1) == 0)
      LanesRow<true, true, true>(h - 1);
    else
      LanesRow<false, true, true>(h - 1);
  }

 private:
  static constexpr const ScanTraits& kScan = Pass::kScan;
  static constexpr unsigned kBits = Pass::kBits;
  static constexpr unsigned kPerByte = 8 / kBits;
  static constexpr unsigned kCodeMask = kScan.draw_bits == 2 ? 3u : 1u;

  static unsigned Shift(std::size_t x) {
    return static_cast<unsigned>(kPerByte - 1 - (x & (kPerByte - 1))) * kBits;
  }
  // A dot into the byte being gathered, shifted in from the side the scan comes from: left to
  // right the first dot ends at the high end, right to left the last one does, so a byte the
  // scan leaves whole (or ends at column 0) needs no shift of its own.
  template <bool kLtr>
  HALFTONE_FORCE_INLINE static void ShiftIn(unsigned& acc, unsigned code) {
    acc = kLtr ? (acc << kBits) | code : (acc >> kBits) | (code << (8 - kBits));
  }

  template <bool kLtr>
  int CurveTerm(std::size_t x, std::uint8_t s) const {
    if constexpr (!kScan.curve_terms) {
      return 0;
    } else if constexpr (kLtr) {
      return curve_a_[s] & -static_cast<int>(x & 1);
    } else {
      return curve_b_[s] & (static_cast<int>(x & 1) - 1);
    }
  }

  // Whether a pixel of a row with these splits can take its error's half from a table decider.
  template <class Splits>
  static constexpr bool kTableHalves = PartDivisorOf<Decider>() == 2 && Splits::kTakesHalf;
  // Whether a pixel of a row with these splits takes its third and rest from a window table.
  template <class Splits>
  static constexpr bool kTableThirds = PartDivisorOf<Decider>() == 3 && Splits::kThirdOrRest;
  template <class Splits>
  static constexpr bool kTableParts = kTableHalves<Splits> || kTableThirds<Splits>;

  // Whether a split's share carried along takes a multiply (thirds, quarters), not masks alone.
  template <class Splits>
  static constexpr bool kAlongMultiplies =
      (Splits::kAlong.kind == ColumnKind::kLinear && Splits::kAlong.den > 2) ||
      (Splits::kAlong.kind == ColumnKind::kComplement && Splits::kBelow.den > 2);
  // Whether a row with these splits takes its along share from an AlongShareTable: passes
  // that ask for it (kAlongShareRows: a compare decides, the error depends on the value alone)
  // with a stateless decider, on the band's inner rows (pixels with a curve term excepted). A
  // lone lane gains on every split (whole error 1.1-1.3 times, thirds and quarters 1.6); in a
  // group, whose chains overlap, only where the split multiplies (pairs 1.05-1.14; whole-error
  // pairs ran at 0.90-0.93).
  template <class Splits>
  static constexpr bool kShareRows = [] {
    if constexpr (requires { Pass::kAlongShareRows; })
      return Pass::kAlongShareRows && std::is_empty_v<Decider> &&
             PartDivisorOf<Decider>() == 0 && Splits::kAlong.kind != ColumnKind::kGeneric &&
             (kLanes == 1 || kAlongMultiplies<Splits>);
    else
      return false;
  }();
  // The table of a row kind, made once per process from the scan's own arithmetic.
  template <class Splits>
  static const AlongShareTable& AlongSharesOf(const Decider& decide) {
    static const AlongShareTable table = AlongShareTable::Make<Splits>(decide, kCodeMask + 1);
    return table;
  }

  // The value carried along a row: an int held to 16 bits at every pixel, or in a pass whose
  // inner rows read a window table (TablePixel, SharePixel) a plain sum in a full register.
  static constexpr bool kWindowRows =
      kTableParts<FastSplit<Pass, RowKind::kInnerLtr>> || kTableParts<FastSplit<Pass, RowKind::kInnerRtl>> ||
      kShareRows<FastSplit<Pass, RowKind::kInnerLtr>> || kShareRows<FastSplit<Pass, RowKind::kInnerRtl>>;
  using CarriedValue = std::conditional_t<kWindowRows, std::ptrdiff_t, int>;

  // The working state of one lane's row, held in locals of LanesRow.
  struct Lane {
    std::int16_t* cur;
    std::int16_t* next;
    std::int16_t* carry;
    const std::uint8_t* in;
    const std::uint8_t* in_below;
    const std::uint32_t* drawn;  // the draw of pixel x: drawn[x] left to right, drawn[-x] right to left
    std::uint8_t* out;
    CarriedValue v;
    unsigned acc;
  };

  // One pixel of one lane that passes error along the row; `odd` is x & 1.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanePixel(Lane& st, const Decider& decide, std::size_t x, bool odd) const {
    using Splits = FastSplit<Pass, kLast ? RowKind::kLast : (kLtr ? RowKind::kInnerLtr : RowKind::kInnerRtl)>;
    if constexpr (kTableParts<Splits>) {
      TablePixel<kLtr, kLast, kKeepCur, Splits>(st, decide, x, odd);
      return;
    } else if constexpr (!kLast && kShareRows<Splits>) {
      SharePixel<kLtr, kKeepCur, Splits>(st, decide, x, odd);
      return;
    } else {
      const std::uint8_t s = st.in[x];
      if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(st.v);
      // Curve terms fall on every other column (odd ones left to right, even ones right to left).
      const bool has_term = kScan.curve_terms && (kLtr ? odd : !odd);
      // Rows of this kind hold the carried value to 16 bits at every pixel.
      const Outcome o = decide.Decide(static_cast<int>(st.v), s);
      ShiftIn<kLtr>(st.acc, o.code);
      int term = 0;
      if constexpr (kScan.curve_terms) term = has_term ? (kLtr ? curve_a_[s] : curve_b_[s]) : 0;
      const int e = Store16(o.err + term);
      const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
      const unsigned code = (word >> 1) & kCodeMask;
      int a, b;
      Splits::template SharesWithHalf<true>(code, e, DivTrunc2(e), a, b);
      PassOn<kLtr, kLast>(st, x, b);
      st.v = Store16(st.cur[kLtr ? x + 1 : x - 1] + a);
    }
  }

  // A pixel of a row whose error and its part come from a window table (kTableParts). The
  // chain from pixel to pixel is the value carried along: its entry, the share it passes on,
  // the next pixel's value. So the value is kept as a plain sum, not held to 16 bits (a value
  // outside the window, the only kind the holding can change, is held first on the cold
  // path), and the drawn code picks the share's field (or, with a curve term, its multiplier)
  // before the value is known. Halves: none, half or all of the error goes along. Thirds
  // (kTableThirds): the third or the rest goes along, the other down.
  template <bool kLtr, bool kLast, bool kKeepCur, class Splits>
  HALFTONE_FORCE_INLINE void TablePixel(Lane& st, const Decider& decide, std::size_t x, bool odd) const {
    constexpr bool kThirds = kTableThirds<Splits>;
    const std::uint8_t s = st.in[x];
    if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(st.v);
    const bool has_term = kScan.curve_terms && (kLtr ? odd : !odd);
    const int term = has_term ? (kLtr ? curve_a_[s] : curve_b_[s]) : 0;
    const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
    const unsigned code = (word >> 1) & kCodeMask;
    // The share carried along is `on + off`: `on` waits for the value, `off` is known beside
    // it and joins the pixel ahead first.
    std::ptrdiff_t on, off = 0;
    int b;
    if (decide.InWindow(st.v)) [[likely]] {
      // The sample's column, pinned to one register; the value's entry is at [v * kEntryFields].
      const std::int16_t* column = PinnedAddress(decide.Column(s, kEntryErr));
      const std::ptrdiff_t at = st.v * kEntryFields;
      ShiftIn<kLtr>(st.acc, static_cast<unsigned>(column[at + kEntryCode]));
      // Levels and terms are bytes, so within the window neither the error nor the error with
      // its term leaves 16 bits.
      if constexpr (kThirds) {
        static constexpr typename Splits::ThirdsAlong kAlong = Splits::MakeThirdsAlong();
        const std::ptrdiff_t err = column[at + kEntryErr];
        if (has_term) {
          const std::ptrdiff_t e = err + term;
          const ShareProduct& along = kAlong.product[code];
          on = HighWord(e, along.mul);
          off = DividingStep(along, e);
          b = static_cast<int>(e - on - off);
        } else {
          on = PinnedAddress(column + kAlong.field[code])[at];
          b = static_cast<int>(err - on);
        }
      } else {
        static constexpr typename Splits::TableAlong kAlong = Splits::MakeTableAlong();
        const int err = column[at + kEntryErr];
        int e, half;
        if (!has_term) {
          on = std::ptrdiff_t{PinnedAddress(column + kAlong.field[code])[at]} & kAlong.mask[code];
          e = err;
          half = column[at + kEntryPart];
        } else {
          const std::ptrdiff_t et = std::ptrdiff_t{err} + term;
          on = (et * kAlong.mul[code]) >> 32;
          off = std::ptrdiff_t{et < 0} & kAlong.step[code];
          e = static_cast<int>(et);
          half = DivTrunc2(e);
        }
        if constexpr (Splits::kBelow.kind == ColumnKind::kComplement) {
          b = e - static_cast<int>(on + off);
        } else {
          int a_unused;
          Splits::template SharesWithHalf<true>(code, e, half, a_unused, b);
        }
      }
    } else {
      // Outside the window: the value held to 16 bits, the error held again after its term.
      const PartOutcome o = decide.DecideWithPart(Store16(static_cast<int>(st.v)), s);
      ShiftIn<kLtr>(st.acc, o.code);
      const int e = has_term ? Store16(o.err + term) : o.err;
      if constexpr (kThirds) {
        static constexpr typename Splits::ThirdsAlong kAlong = Splits::MakeThirdsAlong();
        const int third = has_term ? DivTrunc3(e) : o.part;
        on = kAlong.field[code] == kEntryRest ? e - third : third;
        b = e - static_cast<int>(on);
      } else {
        int a;
        Splits::template SharesWithHalf<true>(code, e, has_term ? DivTrunc2(e) : o.part, a, b);
        on = a;
      }
    }
    PassOn<kLtr, kLast>(st, x, b);
    st.v = (st.cur[kLtr ? x + 1 : x - 1] + off) + on;
  }

  // A pixel of an inner row whose along share comes from an AlongShareTable (kShareRows). The
  // chain from pixel to pixel is the carried value, its share and the next value: the drawn
  // code picks the share's column before the value is known, and the value is kept as a plain
  // sum (a value outside the window, the only kind holding it to 16 bits can change, is held
  // first on the cold path). The dot and the share below hang off the chain.
  template <bool kLtr, bool kKeepCur, class Splits>
  HALFTONE_FORCE_INLINE void SharePixel(Lane& st, const Decider& decide, std::size_t x, bool odd) const {
    const std::uint8_t s = st.in[x];
    if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(st.v);
    const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
    const unsigned code = (word >> 1) & kCodeMask;
    // A curve term (every other column) joins the error before the split: such a pixel forms
    // its shares as the other rows do.
    const bool has_term = kScan.curve_terms && (kLtr ? odd : !odd);
    std::ptrdiff_t on;
    int e;
    if (!has_term && AlongShareTable::InWindow(st.v)) [[likely]] {
      const std::int16_t* column = PinnedAddress((kLtr ? along_ltr_ : along_rtl_)->Column(code));
      on = column[st.v * AlongShareTable::kCodes];
      const Outcome o = decide.Decide(static_cast<int>(st.v), s);
      ShiftIn<kLtr>(st.acc, o.code);
      e = o.err;  // within the window the error keeps to 16 bits
    } else {
      const Outcome o = decide.Decide(Store16(static_cast<int>(st.v)), s);
      ShiftIn<kLtr>(st.acc, o.code);
      e = Store16(o.err + (has_term ? (kLtr ? curve_a_[s] : curve_b_[s]) : 0));
      int a, b_unused;
      Splits::template SharesWithHalf<true>(code, e, DivTrunc2(e), a, b_unused);
      on = a;
    }
    int b;
    if constexpr (Splits::kBelow.kind == ColumnKind::kComplement) {
      b = e - static_cast<int>(on);
    } else {
      int a_unused;
      Splits::template SharesWithHalf<true>(code, e, DivTrunc2(e), a_unused, b);
    }
    PassOn<kLtr, false>(st, x, b);
    st.v = st.cur[kLtr ? x + 1 : x - 1] + on;
  }

  // The share b of pixel x to the row below (or, in the band's last row, to the carry row).
  template <bool kLtr, bool kLast>
  HALFTONE_FORCE_INLINE static void PassOn(Lane& st, std::size_t x, int b) {
    if constexpr (kLast) {
      if constexpr (!kLtr || kScan.ltr_last_carries)
        if (st.carry) st.carry[x] = Store16(b);
    } else {
      st.next[x] = Store16(st.in_below[x] + b);
    }
  }

  // Pixel x of every lane.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesPixel(Lane* st, const Decider& decide, std::size_t x, bool odd) const {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      LanePixel<kLtr, kLast, kKeepCur>(st[l], decide, x, odd);
    });
  }
  // Each lane's gathered dots into byte k of its output row.
  HALFTONE_FORCE_INLINE static void Flush(Lane* st, std::size_t k) {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      st[l].out[k] = static_cast<std::uint8_t>(st[l].out[k] | st[l].acc);
      st[l].acc = 0;
    });
  }

  // Scan positions i0 .. i0+count-1 (x = i left to right, w-1-i right to left) within one
  // output byte.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesPartial(Lane* st, const Decider& decide, std::size_t i0,
                                           std::size_t count) const {
    const std::size_t w = band_.w;
    for (std::size_t i = i0; i < i0 + count; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      LanesPixel<kLtr, kLast, kKeepCur>(st, decide, x, (x & 1) != 0);
    }
  }

  // Output byte k whole, its kPerByte pixels in scan order. A byte starts at an even x, so each
  // column's parity is a constant: a lone lane unrolls the whole byte; a group, whose pixel
  // bodies are several times larger, unrolls pairs of columns.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesByte(Lane* st, const Decider& decide, std::size_t k) const {
    const std::size_t base = k * kPerByte;
    if constexpr (kLanes == 1) {
      [&]<unsigned... j>(std::integer_sequence<unsigned, j...>) {
        ((LanesPixel<kLtr, kLast, kKeepCur>(st, decide, base + (kLtr ? j : kPerByte - 1 - j),
                                            ((kLtr ? j : kPerByte - 1 - j) & 1) != 0)),
         ...);
      }(std::make_integer_sequence<unsigned, kPerByte>{});
    } else {
      for (unsigned q = 0; q < kPerByte / 2; ++q) {
        // Left to right an even column then an odd one; right to left the other way round.
        const std::size_t x = base + (kLtr ? 2 * q : kPerByte - 1 - 2 * q);
        LanesPixel<kLtr, kLast, kKeepCur>(st, decide, x, !kLtr);
        LanesPixel<kLtr, kLast, kKeepCur>(st, decide, kLtr ? x + 1 : x - 1, kLtr);
      }
    }
    Flush(st, k);
  }

  // Row y of every lane: plain local pointers, and the row cut into whole output bytes
  // (unrolled, so the curve term's parity is a constant)
  // plus a partial byte at either end. kKeepCur stores the scanned row's values back, which
  // only the last two rows of a band need.
  template <bool kLtr, bool kLast, bool kKeepCur>
  void LanesRow(std::size_t y) {
    constexpr EndDraw kEndDraw = kLast ? kScan.last_row_end.draw : kScan.inner_row_end.draw;
    constexpr std::size_t kRowEndDraws = kEndDraw == EndDraw::kNone ? 0 : 1;
    const std::size_t w = band_.w;
    const Decider& decide = decide_;
    Lane st[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      const unsigned p = p_[l];
      random_[l].DrawWords(words_[l], w - 1 + kRowEndDraws);
      st[l] = {kLtr ? rows_[l].a : rows_[l].b,
               kLtr ? rows_[l].b : rows_[l].a,
               rows_[l].carry,
               band_.In(y, p),
               kLast ? nullptr : band_.In(y + 1, p),
               kLtr ? words_[l] : words_[l] + (w - 1),
               band_.Out(y, p),
               0,
               0};
      st[l].v = st[l].cur[kLtr ? 0 : w - 1];
    }

    ForEachRowByte<kLtr, kPerByte>(
        w, [&](std::size_t k) HALFTONE_FORCE_INLINE { LanesByte<kLtr, kLast, kKeepCur>(st, decide, k); },
        [&](std::size_t i0, std::size_t n) HALFTONE_FORCE_INLINE {
          LanesPartial<kLtr, kLast, kKeepCur>(st, decide, i0, n);
        },
        [&](std::size_t k) HALFTONE_FORCE_INLINE { Flush(st, k); });

    // The pixel ending the row.
    const std::size_t x = kLtr ? w - 1 : 0;
    for (unsigned l = 0; l < kLanes; ++l) {
      Lane& ln = st[l];
      const std::uint8_t s = ln.in[x];
      ln.cur[x] = static_cast<std::int16_t>(ln.v);
      const int held = ln.cur[x];  // the carried value, held to 16 bits
      if constexpr (kLast && kEndDraw == EndDraw::kNone) {
        // The pixel ending the band: its dot only.
        const int vd = (kLtr && kScan.ltr_last_end_reads_b) ? rows_[l].b[x] : held;
        ShiftIn<kLtr>(ln.acc, decide.Decide(vd, s).code);
      } else {
        const RowEndRule& rule = kLast ? kScan.last_row_end : kScan.inner_row_end;
        const Outcome o = decide.Decide(held, s);
        ShiftIn<kLtr>(ln.acc, o.code);
        const int e = Store16(o.err + CurveTerm<kLtr>(x, s));
        unsigned bit = 0;  // an ignored row-end draw was made with the row's draws
        if constexpr (kEndDraw == EndDraw::kUsed) bit = (words_[l][w - 1] >> 1) & 1u;
        if constexpr (kLast)
          PassOn<kLtr, true>(ln, x, ShareOf(rule.below[bit], e));
        else
          ln.next[x] = Store16(ln.in_below[x] + ShareOf(rule.below[bit], e));
      }
      // A forward row's last byte may be partial: its dots move up to the byte's high end.
      if constexpr (kLtr) ln.acc <<= Shift(x);
      ln.out[x / kPerByte] = static_cast<std::uint8_t>(ln.out[x / kPerByte] | ln.acc);
    }
  }

  const Decider& decide_;
  const Band& band_;
  const std::uint8_t* curve_a_;
  const std::uint8_t* curve_b_;
  PlaneRows rows_[kLanes];
  RandomBitSource random_[kLanes];
  std::uint32_t* words_[kLanes];
  unsigned p_[kLanes];
  const AlongShareTable* along_ltr_ = nullptr;  // the inner rows' shares, where kShareRows
  const AlongShareTable* along_rtl_ = nullptr;
};

}  // namespace halftone::random_split
