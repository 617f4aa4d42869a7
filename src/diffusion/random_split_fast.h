// The fast path of the serpentine two-neighbour scan (random_split_scan.h), as a kernel of the
// serpentine row engine (frame/row_engine.h): the same pixels in the same order per plane, the
// same draws, the same rows left behind. The engine runs the planes of a group in lockstep, keeps
// the carried value in a register, cuts rows into whole output bytes (a group's by pairs of
// columns) and gathers the dots; the kernel here is one pixel:
//   - the split is branch-free: whole, half or none of the error by masks (the half read from
//     a table decider where no curve term falls), or a multiply by a rounded-up reciprocal;
//   - where the decider is a window table, the value carried along is a plain sum, and the
//     drawn code picks the share's field before the value is known;
//   - each lane draws its row's split words from its own generator, which starts where its
//     plane's slice of the band's stream begins.
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
#include "frame/row_engine.h"

namespace halftone::random_split {

template <class Pass, class Decider>
class SplitKernel {
  static constexpr const ScanTraits& kScan = Pass::kScan;
  static constexpr unsigned kCodeMask = kScan.draw_bits == 2 ? 3u : 1u;
  template <bool kLast>
  static constexpr EndDraw kEndDraw = kLast ? kScan.last_row_end.draw : kScan.inner_row_end.draw;

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
  template <class Splits, unsigned kLanes>
  static constexpr bool kShareRows = [] {
    if constexpr (requires { Pass::kAlongShareRows; })
      return Pass::kAlongShareRows && std::is_empty_v<Decider> && PartDivisorOf<Decider>() == 0 &&
             Splits::kAlong.kind != ColumnKind::kGeneric && (kLanes == 1 || kAlongMultiplies<Splits>);
    else
      return false;
  }();
  // The table of a row kind, made once per process from the scan's own arithmetic.
  template <class Splits>
  static const AlongShareTable& AlongSharesOf(const Decider& decide) {
    static const AlongShareTable table = AlongShareTable::Make<Splits>(decide, kCodeMask + 1);
    return table;
  }
  using InnerLtr = FastSplit<Pass, RowKind::kInnerLtr>;
  using InnerRtl = FastSplit<Pass, RowKind::kInnerRtl>;

 public:
  static constexpr unsigned kBits = Pass::kBits;
  static constexpr bool kStarts = true;        // a row starts from its input
  static constexpr bool kStartIsInput = true;  // ... plus the down shares
  static constexpr bool kDraws = false;        // each lane draws its own rows
  static constexpr bool kNextHeld = true;      // a pixel gives the next pixel's value
  static constexpr bool kByLanes = true;
  static constexpr bool kLastLtrToCarry = kScan.ltr_last_carries;
  static constexpr bool kLastLtrDrops = !kScan.ltr_last_carries;
  static constexpr unsigned kLockstep = LockstepWidth<Pass>();
  static constexpr unsigned kGroupUnroll = 2;  // a group's pixel bodies are large: pairs of columns
  // The value carried along a row: an int held to 16 bits at every pixel, or in a pass whose
  // inner rows read a window table (TablePixel, SharePixel) a plain sum in a full register.
  using Held = std::conditional_t<kTableParts<InnerLtr> || kTableParts<InnerRtl> || kShareRows<InnerLtr, 1> ||
                                      kShareRows<InnerRtl, 1>,
                                  std::ptrdiff_t, int>;
  using Out = row_engine::PixelOutOf<Held>;

  struct LaneState {
    RandomBitSource* random;     // the lane's generator, after the draws of the rows scanned so far
    std::uint32_t* words;        // room for one row's draws (w + 1 words)
    const std::uint32_t* drawn;  // the draw of pixel x: drawn[x] left to right, drawn[-x] right to left
    const std::int16_t* cur;     // the row being scanned
    const std::int16_t* b;       // working row B
    unsigned end_bit;            // the split bit of the row's ending pixel, where it uses one
  };

  // Lane of plane p draws from generators[p - first] (moving it on) into words + room * (p - first).
  SplitKernel(const Decider& decide, const ToneCurveSet& curves, RandomBitSource* generators, unsigned first,
              std::uint32_t* words, std::size_t room)
      : decide_(decide), curve_a_(curves.a().data()), curve_b_(curves.b().data()), generators_(generators), first_(first),
        words_(words), room_(room) {
    if constexpr (kShareRows<InnerLtr, 1>) along_ltr_ = &AlongSharesOf<InnerLtr>(decide);
    if constexpr (kShareRows<InnerRtl, 1>) along_rtl_ = &AlongSharesOf<InnerRtl>(decide);
  }

  LaneState StartLane(const row_engine::Lane& lane) const {
    const unsigned k = lane.p - first_;
    return {generators_ + k, words_ + room_ * k, nullptr, nullptr, nullptr, 0};
  }
  static void SetRow(std::size_t) {}
  static void FillStart(std::int16_t* row, const std::uint8_t* in, std::size_t, std::size_t w) {
    for (std::size_t x = 0; x < w; ++x) row[x] = in[x];
  }
  template <bool kLtr, bool kLast>
  static void LaneRow(LaneState& s, const row_engine::RowView<std::int16_t>& r) {
    const std::size_t w = r.w;
    s.random->DrawWords(s.words, w - 1 + (kEndDraw<kLast> == EndDraw::kNone ? 0 : 1));
    s.drawn = kLtr ? s.words : s.words + (w - 1);
    s.cur = r.cur;
    s.b = r.b;
    if constexpr (kEndDraw<kLast> == EndDraw::kUsed) s.end_bit = (s.words[w - 1] >> 1) & 1u;
  }

  // Pixel x of a row: its code, the next pixel's value (`ahead`) and the share below.
  template <bool kLtr, bool kLast, bool kEnd, unsigned kLanes>
  HALFTONE_FORCE_INLINE Out Step(const LaneState& st, int level, Held v, std::size_t x, unsigned odd, unsigned) const {
    const auto s = static_cast<std::uint8_t>(level);
    using Splits = FastSplit<Pass, kLast ? RowKind::kLast : (kLtr ? RowKind::kInnerLtr : RowKind::kInnerRtl)>;
    if constexpr (kEnd)
      return EndPixel<kLtr, kLast>(st, s, Store16(static_cast<int>(v)), x);
    else if constexpr (kTableParts<Splits>)
      return TablePixel<kLtr, Splits>(st, s, v, x, odd != 0);
    else if constexpr (!kLast && kShareRows<Splits, kLanes>)
      return SharePixel<kLtr, Splits>(st, s, v, x, odd != 0);
    else
      return LanePixel<kLtr, Splits>(st, s, v, x, odd != 0);
  }

 private:
  template <bool kLtr>
  HALFTONE_FORCE_INLINE static std::uint32_t Word(const LaneState& st, std::size_t x) {
    return kLtr ? st.drawn[x] : *(st.drawn - x);
  }
  // Curve terms fall on every other column (odd ones left to right, even ones right to left).
  template <bool kLtr>
  HALFTONE_FORCE_INLINE static bool HasTerm(bool odd) {
    return kScan.curve_terms && (kLtr ? odd : !odd);
  }
  template <bool kLtr>
  HALFTONE_FORCE_INLINE int Term(std::uint8_t s) const {
    return kLtr ? curve_a_[s] : curve_b_[s];
  }

  // A pixel whose value is held to 16 bits.
  template <bool kLtr, class Splits>
  HALFTONE_FORCE_INLINE Out LanePixel(const LaneState& st, std::uint8_t s, Held v, std::size_t x, bool odd) const {
    const Outcome o = decide_.Decide(static_cast<int>(v), s);
    const int term = HasTerm<kLtr>(odd) ? Term<kLtr>(s) : 0;
    const int e = Store16(o.err + term);
    const unsigned code = (Word<kLtr>(st, x) >> 1) & kCodeMask;
    int a, b;
    Splits::SharesWithHalf(code, e, DivTrunc2(e), a, b);
    return {o.code, Store16(st.cur[kLtr ? x + 1 : x - 1] + a), b};
  }

  // A pixel of a row whose error and its part come from a window table (kTableParts). The
  // chain from pixel to pixel is the value carried along: its entry, the share it passes on,
  // the next pixel's value. So the value is kept as a plain sum, not held to 16 bits (a value
  // outside the window, the only kind the holding can change, is held first on the cold
  // path), and the drawn code picks the share's field (or, with a curve term, its multiplier)
  // before the value is known. Halves: none, half or all of the error goes along. Thirds
  // (kTableThirds): the third or the rest goes along, the other down.
  template <bool kLtr, class Splits>
  HALFTONE_FORCE_INLINE Out TablePixel(const LaneState& st, std::uint8_t s, Held v, std::size_t x, bool odd) const {
    constexpr bool kThirds = kTableThirds<Splits>;
    const bool has_term = HasTerm<kLtr>(odd);
    const int term = has_term ? Term<kLtr>(s) : 0;
    const unsigned code = (Word<kLtr>(st, x) >> 1) & kCodeMask;
    // The share carried along is `on + off`: `on` waits for the value, `off` is known beside
    // it and joins the pixel ahead first.
    std::ptrdiff_t on, off = 0;
    int b;
    unsigned dot;
    if (decide_.InWindow(v)) [[likely]] {
      // The sample's column, pinned to one register; the value's entry is at [v * kEntryFields].
      const std::int16_t* column = PinnedAddress(decide_.Column(s, kEntryErr));
      const std::ptrdiff_t at = v * kEntryFields;
      dot = static_cast<unsigned>(column[at + kEntryCode]);
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
          Splits::SharesWithHalf(code, e, half, a_unused, b);
        }
      }
    } else {
      // Outside the window: the value held to 16 bits, the error held again after its term.
      const PartOutcome o = decide_.DecideWithPart(Store16(static_cast<int>(v)), s);
      dot = o.code;
      const int e = has_term ? Store16(o.err + term) : o.err;
      if constexpr (kThirds) {
        static constexpr typename Splits::ThirdsAlong kAlong = Splits::MakeThirdsAlong();
        const int third = has_term ? DivTrunc3(e) : o.part;
        on = kAlong.field[code] == kEntryRest ? e - third : third;
        b = e - static_cast<int>(on);
      } else {
        int a;
        Splits::SharesWithHalf(code, e, has_term ? DivTrunc2(e) : o.part, a, b);
        on = a;
      }
    }
    return {dot, (st.cur[kLtr ? x + 1 : x - 1] + off) + on, b};
  }

  // A pixel of an inner row whose along share comes from an AlongShareTable (kShareRows). The
  // chain from pixel to pixel is the carried value, its share and the next value: the drawn
  // code picks the share's column before the value is known, and the value is kept as a plain
  // sum (a value outside the window, the only kind holding it to 16 bits can change, is held
  // first on the cold path). The dot and the share below hang off the chain.
  template <bool kLtr, class Splits>
  HALFTONE_FORCE_INLINE Out SharePixel(const LaneState& st, std::uint8_t s, Held v, std::size_t x, bool odd) const {
    const unsigned code = (Word<kLtr>(st, x) >> 1) & kCodeMask;
    // A curve term (every other column) joins the error before the split: such a pixel forms
    // its shares as the other rows do.
    const bool has_term = HasTerm<kLtr>(odd);
    std::ptrdiff_t on;
    int e;
    unsigned dot;
    if (!has_term && AlongShareTable::InWindow(v)) [[likely]] {
      const std::int16_t* column = PinnedAddress((kLtr ? along_ltr_ : along_rtl_)->Column(code));
      on = column[v * AlongShareTable::kCodes];
      const Outcome o = decide_.Decide(static_cast<int>(v), s);
      dot = o.code;
      e = o.err;  // within the window the error keeps to 16 bits
    } else {
      const Outcome o = decide_.Decide(Store16(static_cast<int>(v)), s);
      dot = o.code;
      e = Store16(o.err + (has_term ? Term<kLtr>(s) : 0));
      int a, b_unused;
      Splits::SharesWithHalf(code, e, DivTrunc2(e), a, b_unused);
      on = a;
    }
    int b;
    if constexpr (Splits::kBelow.kind == ColumnKind::kComplement) {
      b = e - static_cast<int>(on);
    } else {
      int a_unused;
      Splits::SharesWithHalf(code, e, DivTrunc2(e), a_unused, b);
    }
    return {dot, st.cur[kLtr ? x + 1 : x - 1] + on, b};
  }

  // The pixel ending a row (its value held to 16 bits): part of its error goes down, the rest
  // is lost; the pixel ending the band may give its dot only, and leaves the carry entry there
  // as it was (zero).
  template <bool kLtr, bool kLast>
  Out EndPixel(const LaneState& st, std::uint8_t s, int held, std::size_t x) const {
    if constexpr (kLast && kEndDraw<kLast> == EndDraw::kNone) {
      const int vd = (kLtr && kScan.ltr_last_end_reads_b) ? st.b[x] : held;
      return {decide_.Decide(vd, s).code, 0, 0};
    } else {
      const RowEndRule& rule = kLast ? kScan.last_row_end : kScan.inner_row_end;
      const Outcome o = decide_.Decide(held, s);
      const int term = HasTerm<kLtr>((x & 1) != 0) ? Term<kLtr>(s) : 0;
      const int e = Store16(o.err + term);
      // An ignored row-end draw was made with the row's draws.
      const unsigned bit = kEndDraw<kLast> == EndDraw::kUsed ? st.end_bit : 0u;
      return {o.code, 0, ShareOf(rule.below[bit], e)};
    }
  }

  const Decider& decide_;
  const std::uint8_t* curve_a_;
  const std::uint8_t* curve_b_;
  RandomBitSource* generators_;
  unsigned first_;
  std::uint32_t* words_;
  std::size_t room_;
  const AlongShareTable* along_ltr_ = nullptr;  // the inner rows' shares, where kShareRows
  const AlongShareTable* along_rtl_ = nullptr;
};

// Runs a group of n lanes (n at most the pass's width) on the row engine.
template <class Kernel>
void RunSplitGroup(const Kernel& kernel, const Band& band, const row_engine::Lane* lanes, unsigned n) {
  WithLaneCount<Kernel::kLockstep>(
      n, [&](auto lanes_n) { row_engine::Scan<Kernel, decltype(lanes_n)::value>(kernel, band, lanes).Run(); });
}

}  // namespace halftone::random_split
