// Serpentine four-level diffusion to two neighbours: the next pixel of the scan and the pixel
// below share each pixel's error one third to two thirds, and a random bit picks which gets
// the larger share. Randomising the split breaks up the worm patterns a fixed two-neighbour
// kernel draws in flat areas.
#include <algorithm>

#include "diffusion/four_level.h"
#include "diffusion/four_level_vector.h"
#include "diffusion/random_split_fast.h"
#include "diffusion/random_split_vector.h"
#include "frame/dispatch.h"
#include "frame/job.h"

namespace halftone {

namespace {

constexpr int kSplitDivisor = 3;

struct Split {
  int side, down;
};
// Split bit 1 sends the smaller third down, 0 sends it along the row; thirds truncate toward
// zero and the other share takes the rest, so nothing is lost.
inline Split SplitThirds(int err, unsigned bit) {
  if (bit) {
    int down = err / kSplitDivisor;
    return {err - down, down};
  }
  int side = err / kSplitDivisor;
  return {side, err - side};
}

void DiffusePlane(Engine& engine, const Band& band, unsigned p, const FourLevels& lv) {
  const std::size_t w = band.w, h = band.h;
  JobBuffers& rows = engine.rows;
  std::int16_t* a = rows.a();
  std::int16_t* b = rows.b();
  std::int16_t* carry = rows.carry(p, w);
  const ToneCurve& curve_a = engine.curves.a();
  const ToneCurve& curve_b = engine.curves.b();
  RandomBitSource& random = engine.random;

  if (h == 0) {
    // A band without rows still takes up the plane's carried error at the plane's start; there
    // is no row 0 to read it into, so it is simply spent.
    std::fill(carry, carry + w, std::int16_t{0});
    return;
  }
  LoadFirstRow(a, carry, band.In(0, p), w);

  for (std::size_t y = 0; y < h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    const std::uint8_t* below = y + 1 < h ? band.In(y + 1, p) : nullptr;
    std::uint8_t* out = band.Out(y, p);
    const bool last_row = y + 1 >= h;

    if ((y & 1) == 0) {
      // Left to right: the row is in A, the next row is built in B.
      for (std::size_t x = 0; x < w; ++x) {
        const int r = in[x];
        const unsigned code = DecideFourLevel(lv, a[x], r);
        // The error is a 16-bit quantity: truncated when formed and again after the curve term.
        int err = Store16(a[x] - lv.Level(code));
        if (x & 1) err = Store16(err + curve_a[r]);
        b[x] = below ? below[x] : 0;
        const Split s = SplitThirds(err, random.NextBit());
        if (x + 1 < w) a[x + 1] = Store16(a[x + 1] + s.side);
        // required: even the last row adds its down share to B, so an odd-height band carries
        // nothing into the next band.
        b[x] = Store16(b[x] + s.down);
        PutCode2(out, x, code);
      }
    } else {
      // Right to left: the row is in B, the next row is built in A.
      for (std::size_t i = w; i-- > 0;) {
        const std::size_t x = i;
        const int r = in[x];
        const unsigned code = DecideFourLevel(lv, b[x], r);
        int err = Store16(b[x] - lv.Level(code));
        if ((x & 1) == 0) err = Store16(err + curve_b[r]);
        a[x] = below ? below[x] : 0;
        const Split s = SplitThirds(err, random.NextBit());
        if (x > 0) b[x - 1] = Store16(b[x - 1] + s.side);
        if (!last_row)
          a[x] = Store16(a[x] + s.down);
        else
          carry[x] = Store16(s.down);  // required: only a right-to-left last row carries
        PutCode2(out, x, code);
      }
    }
  }
}

// ---- Fast path -------------------------------------------------------------------------------
// The same scan with each plane drawing its split bits a row at a time from its own copy of the
// generator, started where the plane's words begin in the band's stream (plane p reads words
// p*w*h onwards, in the order DiffusePlane draws them), each plane on its own working rows (the last plane on the
// shared ones, which it leaves as DiffusePlane would), the planes of a group in lockstep, the
// value carried along the row in a register, and the decision and split without branches.
// Mirror any change to DiffusePlane here.

// Planes in a lockstep group: four, measured faster than two once the table hands over the
// error and its third (two had been faster while the clamp and the division sat on every chain).
constexpr unsigned kSpineLockstep = 4;

// The decision table, its entries carrying the third of the error the split is formed from.
using SpineTable = random_split::ClampedDecisionTable<3>;
struct SpineTableKey {
  FourLevels lv;
};

struct SpineLane {
  std::int16_t* a;
  std::int16_t* b;
  std::int16_t* carry;
  RandomBitSource random;  // positioned at the start of the plane's words
  std::uint32_t* words;    // room for one row's split bits (w words)
  unsigned p;
};

template <unsigned kLanes>
class SpineLockstep {
 public:
  SpineLockstep(const SpineTable& decide, const Band& band, const SpineLane* lanes,
                const ToneCurveSet& curves)
      : decide_(decide), band_(band), curve_a_(curves.a().data()), curve_b_(curves.b().data()) {
    for (unsigned l = 0; l < kLanes; ++l) lanes_[l] = lanes[l];
  }

  // Scans the group's planes; each lane's generator is handed back after its plane's draws.
  void Run(SpineLane* lanes) {
    RunRows();
    for (unsigned l = 0; l < kLanes; ++l) lanes[l].random = lanes_[l].random;
  }
  // The band's last row alone, on working rows holding what the rows before it left.
  void RunLastRow(SpineLane* lanes) {
    const std::size_t h = band_.h;
    ((h - 1) & 1) == 0 ? LanesRow<true, true>(h - 1) : LanesRow<false, true>(h - 1);
    for (unsigned l = 0; l < kLanes; ++l) lanes[l].random = lanes_[l].random;
  }

 private:
  void RunRows() {
    const std::size_t w = band_.w, h = band_.h;
    for (unsigned l = 0; l < kLanes; ++l) LoadFirstRow(lanes_[l].a, lanes_[l].carry, band_.In(0, lanes_[l].p), w);
    // Every row rewrites the whole of the row before as its row below, so only the last row
    // stores its scanned values back.
    for (std::size_t y = 0; y < h; ++y) {
      if (y + 1 < h)
        (y & 1) == 0 ? LanesRow<true, false>(y) : LanesRow<false, false>(y);
      else
        (y & 1) == 0 ? LanesRow<true, true>(y) : LanesRow<false, true>(y);
    }
  }

  // The working state of one lane's row, held in locals of LanesRow.
  struct Lane {
    std::int16_t* cur;
    std::int16_t* next;
    std::int16_t* carry;
    const std::uint8_t* in;
    const std::uint8_t* below;
    const std::uint32_t* drawn;  // the draw of pixel x: drawn[x] left to right, drawn[-x] right to left
    std::uint8_t* out;
    std::ptrdiff_t v;  // the value carried along, not yet held to 16 bits
    unsigned acc;
  };
  static constexpr unsigned kPerByte = 4;
  static constexpr unsigned kBits = 2;
  // The share carried along by drawn bit: the third, or the rest.
  static constexpr random_split::ShareProduct kAlongProduct[2] = {random_split::ProductOfShare(1, kSplitDivisor, false),
                                                                  random_split::ProductOfShare(1, kSplitDivisor, true)};
  static_assert(kAlongProduct[0].step == 1 && kAlongProduct[1].step == 1, "both sides divide");

  // One pixel of one lane; kHasNext is false for the pixel ending the row, whose side share
  // is dropped. `odd` is x & 1. The last row stores its scanned values back (kLast).
  //
  // The chain from pixel to pixel is the value carried along: its entry in the table, the
  // share it passes on, the next pixel's value. So the value is kept as a plain sum, not held
  // to 16 bits (a value outside the table's window, the only kind the holding can change,
  // takes the cold path, which holds it first), and the drawn bit picks the share's field of
  // the entry (or, with a curve term, the multiplier of the third) before the value is known.
  template <bool kLtr, bool kLast, bool kHasNext>
  HALFTONE_FORCE_INLINE void OnePixel(Lane& st, const SpineTable& decide, std::size_t x,
                                       unsigned shift, bool odd) const {
    const std::uint8_t r = st.in[x];
    if constexpr (kLast) st.cur[x] = static_cast<std::int16_t>(st.v);
    const std::uint32_t word = kLtr ? st.drawn[x] : *(st.drawn - x);
    // Bit 1 sends the third down and the rest along.
    const bool bit = ((word >> 1) & 1u) != 0;
    // Curve terms fall on odd columns left to right, even ones right to left.
    const bool has_term = kLtr ? odd : !odd;
    const int term = has_term ? (kLtr ? curve_a_[r] : curve_b_[r]) : 0;
    // The share carried along is `on + off`: `on` the part that waits for the value, `off` a
    // part known beside it, added to the pixel ahead first.
    std::ptrdiff_t on, off = 0;
    int down;
    unsigned code;
    if (SpineTable::InWindow(st.v)) [[likely]] {
      // The sample's column, pinned to one register; the value's entry is at [v * kFields].
      const std::int16_t* column = PinnedAddress(decide.Column(r, SpineTable::kErr));
      const std::ptrdiff_t at = st.v * SpineTable::kFields;
      code = static_cast<unsigned>(column[at + SpineTable::kCode]);
      const std::ptrdiff_t err = column[at + SpineTable::kErr];
      if (has_term) {
        // Levels and terms are bytes, so within the window neither the error nor the error
        // with its term leaves 16 bits.
        const std::ptrdiff_t e = err + term;
        const random_split::ShareProduct& along = kAlongProduct[bit];
        on = random_split::HighWord(e, along.mul);
        off = random_split::DividingStep(along, e);
        down = static_cast<int>(e - on - off);
      } else {
        on = PinnedAddress(column + (bit ? SpineTable::kRest : SpineTable::kPart))[at];
        down = static_cast<int>(err - on);
      }
    } else {
      const Shares sh = OutsidePixel(decide, st.v, r, term, bit);
      code = sh.code;
      on = sh.along;
      down = sh.down;
    }
    st.acc |= code << shift;
    if constexpr (kHasNext) st.v = (st.cur[kLtr ? x + 1 : x - 1] + off) + on;
    if constexpr (kLtr) {
      st.next[x] = Store16((kLast ? 0 : st.below[x]) + down);
    } else if constexpr (!kLast) {
      st.next[x] = Store16(st.below[x] + down);
    } else {
      st.next[x] = 0;
      st.carry[x] = Store16(down);
    }
  }

  struct Shares {
    unsigned code;
    int along, down;
  };
  // A pixel whose carried value lies outside the table's window, as DiffusePlane forms it: the
  // value held to 16 bits, the error truncated when formed and again after the curve term.
  [[gnu::noinline]] static Shares OutsidePixel(const SpineTable& decide, std::ptrdiff_t v, int r, int term,
                                               bool bit) {
    const random_split::PartOutcome o = decide.DecideWithPart(Store16(static_cast<int>(v)), r);
    const int err = term ? Store16(o.err + term) : o.err;
    const int third = term ? random_split::DivTrunc3(err) : o.part;
    const int rest = err - third;
    return {o.code, bit ? rest : third, bit ? third : rest};
  }

  static unsigned ShiftOf(std::size_t x) { return static_cast<unsigned>(kPerByte - 1 - (x & (kPerByte - 1))) * kBits; }

  // Pixel x of every lane.
  template <bool kLtr, bool kLast, bool kHasNext>
  HALFTONE_FORCE_INLINE void LanesPixel(Lane* st, const SpineTable& decide, std::size_t x, unsigned shift,
                                         bool odd) const {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      OnePixel<kLtr, kLast, kHasNext>(st[l], decide, x, shift, odd);
    });
  }
  // Each lane's gathered dots into byte k of its output row.
  HALFTONE_FORCE_INLINE static void Flush(Lane* st, std::size_t k) {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      st[l].out[k] = static_cast<std::uint8_t>(st[l].out[k] | st[l].acc);
      st[l].acc = 0;
    });
  }

  // Scan positions i0 .. i0+count-1 (x = i left to right, w-1-i right to left), none ending the row.
  template <bool kLtr, bool kLast>
  HALFTONE_FORCE_INLINE void LanesPartial(Lane* st, const SpineTable& decide, std::size_t i0,
                                           std::size_t count) const {
    const std::size_t w = band_.w;
    for (std::size_t i = i0; i < i0 + count; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      LanesPixel<kLtr, kLast, true>(st, decide, x, ShiftOf(x), (x & 1) != 0);
    }
  }

  // Output byte k whole, its pixels in scan order with constant shifts and parities.
  template <bool kLtr, bool kLast>
  HALFTONE_FORCE_INLINE void LanesByte(Lane* st, const SpineTable& decide, std::size_t k) const {
    const std::size_t base = k * kPerByte;
    [&]<unsigned... j>(std::integer_sequence<unsigned, j...>) {
      ((LanesPixel<kLtr, kLast, true>(st, decide, base + (kLtr ? j : kPerByte - 1 - j),
                                      (kLtr ? kPerByte - 1 - j : j) * kBits, ((kLtr ? j : kPerByte - 1 - j) & 1) != 0)),
       ...);
    }(std::make_integer_sequence<unsigned, kPerByte>{});
    Flush(st, k);
  }

  // Row y of every lane: plain local pointers, whole output bytes unrolled, a partial byte at
  // either end.
  template <bool kLtr, bool kLast>
  void LanesRow(std::size_t y) {
    const std::size_t w = band_.w;
    const SpineTable& decide = decide_;
    Lane st[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      SpineLane& lane = lanes_[l];
      lane.random.DrawWords(lane.words, w);
      st[l] = {kLtr ? lane.a : lane.b,
               kLtr ? lane.b : lane.a,
               lane.carry,
               band_.In(y, lane.p),
               kLast ? nullptr : band_.In(y + 1, lane.p),
               kLtr ? lane.words : lane.words + (w - 1),
               band_.Out(y, lane.p),
               0,
               0};
      st[l].v = st[l].cur[kLtr ? 0 : w - 1];
    }
    ForEachRowByte<kLtr, kPerByte>(
        w, [&](std::size_t k) HALFTONE_FORCE_INLINE { LanesByte<kLtr, kLast>(st, decide, k); },
        [&](std::size_t i0, std::size_t n) HALFTONE_FORCE_INLINE { LanesPartial<kLtr, kLast>(st, decide, i0, n); },
        [&](std::size_t k) HALFTONE_FORCE_INLINE { Flush(st, k); });
    const std::size_t x = kLtr ? w - 1 : 0;
    for (unsigned l = 0; l < kLanes; ++l) {
      st[l].cur[x] = static_cast<std::int16_t>(st[l].v);
      OnePixel<kLtr, kLast, false>(st[l], decide, x, ShiftOf(x), (x & 1) != 0);
    }
    Flush(st, x / kPerByte);
  }

  const SpineTable& decide_;
  const Band& band_;
  const std::uint8_t* curve_a_;
  const std::uint8_t* curve_b_;
  SpineLane lanes_[kLanes];
};

#if HALFTONE_VECTOR_ROWS
// The spine as a pass of the random-split vector rows: one drawn bit a pixel, the row's end
// pixel included, picks which neighbour gets the third and which the rest.
using random_split::Share;
constexpr random_split::Split kThirdAlong = {Share::kThird, Share::kRestAfterThird};
constexpr random_split::Split kThirdDown = {Share::kRestAfterThird, Share::kThird};
struct SpineVectorPass {
  static constexpr unsigned kBits = 2;
  static constexpr random_split::ScanTraits kScan = {
      .draw_bits = 1,
      .curve_terms = true,
      .splits = {.inner_ltr = {kThirdAlong, kThirdDown},
                 .inner_rtl = {kThirdAlong, kThirdDown},
                 .last = {kThirdAlong, kThirdDown}},  // the last row stays with SpineLockstep
      .inner_row_end = {random_split::EndDraw::kUsed, {Share::kRestAfterThird, Share::kThird}},
      .ltr_last_end_reads_b = false,
  };
};
static_assert(random_split::VectorSplits<SpineVectorPass>());

// A group of kVectorMinLanes planes or more: rows 0 .. h-2 on vector lanes, then each plane's
// last row.
void SpineVectorGroup(const FourLevelVector& vdecide, const SpineTable& decide, const Band& band, SpineLane* lanes,
                      unsigned n, const ToneCurveSet& curves, random_split::VectorRowsMemory mem) {
  random_split::FastLane fast[random_split::kVectorLanes];
  for (unsigned l = 0; l < n; ++l)
    fast[l] = {{lanes[l].a, lanes[l].b, lanes[l].carry}, lanes[l].random, lanes[l].words, lanes[l].p};
  random_split::VectorRows<SpineVectorPass, FourLevelVector, SpineTable> rows(vdecide, decide, band, fast, n, curves,
                                                                               mem);
  rows.Run();
  for (unsigned l = 0; l < n; ++l) {
    lanes[l].random = rows.random(l);
    SpineLockstep<1>(decide, band, &lanes[l], curves).RunLastRow(&lanes[l]);
  }
}
#endif

void DiffuseBandFast(Engine& engine, const Band& band, const FourLevels& lv) {
  const unsigned planes = band.planes;
  const std::size_t per_plane = band.w * band.h;
  std::uint32_t* words = engine.draws.Reserve(band.w * planes);
  const RandomBitSource* starts = random_split::PlaneStreamStarts(engine, planes, per_plane);
  // The table follows from the level values alone; kept across band calls with the same ones.
  const SpineTable& decide = engine.fast_tables.Get<SpineTable>(SpineTableKey{lv}, [&] {
    SpineTable t;
    // The raw sample counts only through its sides of L1 and L2.
    t.Build([&](int r) { return unsigned{r <= lv.L1} | unsigned{r <= lv.L2} << 1; },
            [&](int v, int r) {
              const unsigned code = DecideFourLevel(lv, v, r);
              return random_split::Outcome{code, v - lv.Level(code)};
            });
    return t;
  });
  JobBuffers& rows = engine.rows;
#if HALFTONE_VECTOR_ROWS
  // Ordered level values and bands of two rows or more: groups of planes on vector lanes.
  if (const auto vdecide = FourLevelVector::Of(lv); vdecide && VectorRowsOn() && band.h >= 2 && planes >= random_split::kVectorMinLanes) {
    using random_split::kVectorLanes;
    using random_split::kVectorMinLanes;
    random_split::ForEachVectorGroup(engine, planes, band.w,
                                     [&](unsigned first, unsigned n, random_split::VectorRowsMemory mem) {
      SpineLane lanes[kVectorLanes];
      for (unsigned l = 0; l < n; ++l) {
        const unsigned p = first + l;
        lanes[l] = {LaneRowA(rows, p, planes), LaneRowB(rows, p, planes), rows.carry(p, band.w), starts[p],
                    words + band.w * p, p};
      }
      if (n >= kVectorMinLanes)
        SpineVectorGroup(*vdecide, decide, band, lanes, n, engine.curves, mem);
      else if (n == 2)
        SpineLockstep<2>(decide, band, lanes, engine.curves).Run(lanes);
      else
        SpineLockstep<1>(decide, band, lanes, engine.curves).Run(lanes);
    });
    return;
  }
#endif
  ForEachLockstepGroup(engine.threads, planes, kSpineLockstep, [&](unsigned first, unsigned n) {
    SpineLane lanes[kMaxLockstep];
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      lanes[l] = {LaneRowA(rows, p, planes), LaneRowB(rows, p, planes), rows.carry(p, band.w), starts[p],
                  words + band.w * p, p};
    }
    switch (n) {
      case 1: SpineLockstep<1>(decide, band, lanes, engine.curves).Run(lanes); break;
      case 2: SpineLockstep<2>(decide, band, lanes, engine.curves).Run(lanes); break;
      case 3: SpineLockstep<3>(decide, band, lanes, engine.curves).Run(lanes); break;
      default: SpineLockstep<4>(decide, band, lanes, engine.curves).Run(lanes); break;
    }
    if (planes == 1) engine.random = lanes[0].random;  // a lone plane's generator ends the band's stream
  });
}

}  // namespace

int SerpentineFourLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w,
                        std::size_t h, HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 2);
  const FourLevels lv = FourLevels::From(engine.levels);
  const JobSpec spec{.bits = 2, .reseed = Reseed::kEveryCall, .needs_pixels = false, .max_planes = 255};
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] {
    if (ForceScalar() || band.w == 0 || band.h == 0) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane(engine, band, p, lv);
      return;
    }
    DiffuseBandFast(engine, band, lv);
  });
}

}  // namespace halftone
