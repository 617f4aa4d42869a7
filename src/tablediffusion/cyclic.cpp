// Cyclic one-neighbour diffusion: each pixel's whole error goes to a single neighbour, the pixel
// below or the next pixel of the scan, and a counter stepping through a cycle of 13 chooses
// which (7 steps down, 6 ahead). Whole-error moves keep dots crisp and cheap to compute; the
// fixed cycle, rather than a random bit, gives a regular texture that does not shimmer from
// band to band. The counter and the serpentine direction belong to the plane and run on
// across bands, so the texture continues over band boundaries.
#include "frame/dispatch.h"
#include "frame/job.h"
#include "frame/lockstep.h"
#include "tablediffusion/integer_diffusion.h"

namespace halftone {
namespace {

constexpr std::int32_t kCycleLast = 12;   // the counter runs 1, 2, ..., 12, 0, 1, ...
constexpr std::int32_t kLastDown = 6;     // inner pixels: c <= 6 sends the error down
constexpr std::int32_t kRowEndDown = 5;   // row ends: c <= 5 sends it down, else it is dropped
constexpr std::int32_t kLastRowAhead = 6; // last row of a band: c >= 6 sends it ahead
constexpr int kThreshold = 128;
constexpr int kWhite = 255;

inline std::int32_t Step(std::int32_t& counter) {
  if (++counter > kCycleLast) counter = 0;
  return counter;
}

// Quantises s (no guard for white), returns the error.
inline int Quantise(int s, std::uint8_t* out, std::size_t x) {
  if (s <= kThreshold) {
    PutDot(out, x);
    return s;
  }
  return s - kWhite;
}

// Working rows hold the value to quantise: the input level plus the error that reached it.
void DiffusePlane(Engine& engine, const Band& band, unsigned p) {
  const std::size_t w = band.w, h = band.h;
  std::int16_t* a = engine.rows.a();
  std::int16_t* b = engine.rows.b();
  std::int16_t* carry = engine.rows.carry(p, w);
  std::int32_t& counter = engine.cycle_counter[p];
  std::uint32_t& backward = engine.cycle_direction[p];

  // required: row 0 always enters A, even when the plane's scan resumes backward from B.
  LoadFirstRow(a, carry, band.In(0, p), w);

  for (std::size_t y = 0; y + 1 < h; ++y) {
    const std::uint8_t* below = band.In(y + 1, p);
    std::uint8_t* out = band.Out(y, p);
    if (counter > kCycleLast) counter = 0;
    if (backward == 0) {
      for (std::size_t x = 0; x + 1 < w; ++x) {
        const int e = Quantise(a[x], out, x);
        b[x] = below[x];
        if (Step(counter) <= kLastDown)
          b[x] = Store16(b[x] + e);
        else
          a[x + 1] = Store16(a[x + 1] + e);
      }
      const std::size_t x = w - 1;
      const int e = Quantise(a[x], out, x);
      b[x] = below[x];
      if (Step(counter) <= kRowEndDown) b[x] = Store16(b[x] + e);
    } else {
      for (std::size_t x = w - 1; x > 0; --x) {
        const int e = Quantise(b[x], out, x);
        a[x] = below[x];
        if (Step(counter) <= kLastDown)
          a[x] = Store16(a[x] + e);
        else
          b[x - 1] = Store16(b[x - 1] + e);
      }
      const int e = Quantise(b[0], out, 0);
      a[0] = below[0];
      if (Step(counter) <= kRowEndDown) a[0] = Store16(a[0] + e);
    }
    backward = !backward;
  }

  // The band's last row keeps for the next band what does not go ahead.
  std::uint8_t* out = band.Out(h - 1, p);
  if (counter > kCycleLast) counter = 0;
  if (backward == 0) {
    for (std::size_t x = 0; x + 1 < w; ++x) {
      const int e = Quantise(a[x], out, x);
      // required: the last row sends ahead from c >= 6, one step earlier than other rows.
      if (Step(counter) >= kLastRowAhead)
        a[x + 1] = Store16(a[x + 1] + e);
      else
        carry[x] = Store16(e);
    }
    // required: the row end only sets its dot; no counter step, its error is lost.
    if (a[w - 1] <= kThreshold) PutDot(out, w - 1);
  } else {
    for (std::size_t x = w - 1; x > 0; --x) {
      const int e = Quantise(b[x], out, x);
      if (Step(counter) >= kLastRowAhead)
        b[x - 1] = Store16(b[x - 1] + e);
      else
        carry[x] = Store16(e);
    }
    if (b[0] <= kThreshold) PutDot(out, 0);
  }
  backward = !backward;
}

// The fast pass: the same pixels in the same order as DiffusePlane, the same rows, carry
// entries, counters and directions left behind. What changes is how:
//   - the counter's choice does not depend on the image, so it is laid out once per band call
//     as masks (CyclePattern) and a pixel's error goes ahead as `e & mask`, down as the rest;
//   - the quantiser is a compare and a conditional move, the value carried along the row stays
//     in a register, and the dots of a byte are gathered and stored once;
//   - planes that start the band forward run in lockstep groups, each on its own working rows,
//     so their dependency chains overlap.
// A plane that resumes backward scans row 0 from what the previous plane left in the shared
// row B, so such a band runs its planes one after the other on the shared rows.

constexpr std::size_t kCycleLength = kCycleLast + 1;
constexpr unsigned kDotsPerByte = 8;

// Entry k says what a pixel does whose counter, after its step, reads k % kCycleLength: all
// ones where its whole error goes ahead, zero where it goes down (or into the carry). A row
// whose counter reads c before its first step looks up its pixel i at entry c + 1 + i.
struct CyclePattern {
  const std::int8_t* inner_ahead;  // inner rows: ahead from kLastDown + 1
  const std::int8_t* last_ahead;   // the band's last row: ahead from kLastRowAhead
};

// The entries from k = 0 on, the counter starting at 0.
void LayOut(std::int8_t* inner, std::int8_t* last, std::size_t n) {
  std::int32_t c = 0;
  for (std::size_t k = 0; k < n; ++k) {
    inner[k] = static_cast<std::int8_t>(c > kLastDown ? -1 : 0);
    last[k] = static_cast<std::int8_t>(c >= kLastRowAhead ? -1 : 0);
    if (++c == static_cast<std::int32_t>(kCycleLength)) c = 0;
  }
}

// The entries for bands up to kCachedPatternWidth pixels wide, kept in the engine across band
// calls: laying them out costs about a quarter of a one-row band's scan.
constexpr std::size_t kCachedPatternEntries = kCycleLength * 3072;
constexpr std::size_t kCachedPatternWidth = kCachedPatternEntries - kCycleLength;
struct CachedPattern {
  std::int8_t inner[kCachedPatternEntries];
  std::int8_t last[kCachedPatternEntries];
};
struct CachedPatternKey {};

// Entries for a band of width w: the cached ones, or for a wider band laid out in the engine's
// draw buffer (this family draws nothing).
CyclePattern PatternFor(Engine& engine, std::size_t w) {
  if (w <= kCachedPatternWidth) {
    const CachedPattern& cached = engine.fast_tables.Get<CachedPattern>(CachedPatternKey{}, [] {
      CachedPattern made;
      LayOut(made.inner, made.last, kCachedPatternEntries);
      return made;
    });
    return {cached.inner, cached.last};
  }
  const std::size_t n = w + kCycleLength;
  std::uint32_t* words = engine.draws.Reserve(2 * ((n + sizeof(std::uint32_t) - 1) / sizeof(std::uint32_t)));
  auto* inner = reinterpret_cast<std::int8_t*>(words);
  LayOut(inner, inner + n, n);
  return {inner, inner + n};
}

// One plane of a scan: its working rows, its carry entries and where its counter and direction live.
struct CycleLane {
  std::int16_t* a;
  std::int16_t* b;
  std::int16_t* carry;
  std::int32_t* counter;
  std::uint32_t* backward;
  unsigned p;
};

template <unsigned kLanes>
class CycleScan {
 public:
  CycleScan(const CyclePattern& pattern, const Band& band, const CycleLane* lanes)
      : pattern_(pattern), band_(band) {
    for (unsigned l = 0; l < kLanes; ++l) lanes_[l] = lanes[l];
  }

  // The band's rows; all lanes start it in the direction of lane 0.
  void Run() {
    const std::size_t w = band_.w, h = band_.h;
    for (unsigned l = 0; l < kLanes; ++l) {
      LoadFirstRow(lanes_[l].a, lanes_[l].carry, band_.In(0, lanes_[l].p), w);
      counter_[l] = *lanes_[l].counter;
      if (counter_[l] > kCycleLast) counter_[l] = 0;
    }
    const bool start_backward = *lanes_[0].backward != 0;
    for (std::size_t y = 0; y + 1 < h; ++y) {
      // Only the last two rows of a band leave values that outlive it in the working rows.
      const bool keep = y + 2 >= h;
      if (((y & 1) != 0) == start_backward)
        keep ? Row<true, false, true>(y) : Row<true, false, false>(y);
      else
        keep ? Row<false, false, true>(y) : Row<false, false, false>(y);
    }
    if ((((h - 1) & 1) != 0) == start_backward)
      Row<true, true, true>(h - 1);
    else
      Row<false, true, true>(h - 1);
    for (unsigned l = 0; l < kLanes; ++l) {
      *lanes_[l].counter = counter_[l];
      *lanes_[l].backward = start_backward != ((h & 1) != 0) ? 1u : 0u;
    }
  }

 private:
  // The working state of one lane's row.
  struct RowState {
    std::int16_t* cur;
    std::int16_t* down;      // the next row, or the carry entries on the band's last row
    const std::uint8_t* below;
    const std::int8_t* ahead;  // pixel x's mask: ahead[x] left to right, ahead[-x] right to left
    std::uint8_t* out;
    int v;
    unsigned acc;
  };

  // Pixel x of one lane, not the row's end; its dot lands at bit `shift` of the byte.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE static void Pixel(RowState& st, std::size_t x, unsigned shift) {
    const int v = st.v;
    if constexpr (kKeepCur) st.cur[x] = static_cast<std::int16_t>(v);
    const bool dot = v <= kThreshold;
    st.acc |= static_cast<unsigned>(dot) << shift;
    const int e = SelectUnpredictable(dot, v, v - kWhite);
    const int ahead = e & (kLtr ? st.ahead[x] : *(st.ahead - x));
    // The last row's carry entry was cleared when row 0 was loaded; it keeps what does not go ahead.
    if constexpr (kLast)
      st.down[x] = Store16(e - ahead);
    else
      st.down[x] = Store16(st.below[x] + (e - ahead));
    st.v = Store16(st.cur[kLtr ? x + 1 : x - 1] + ahead);
  }

  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE static void LanesPixel(RowState* st, std::size_t x, unsigned shift) {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE { Pixel<kLtr, kLast, kKeepCur>(st[l], x, shift); });
  }

  // Each lane's gathered dots into byte k of its output row (cleared before the band).
  HALFTONE_FORCE_INLINE static void Flush(RowState* st, std::size_t k) {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      st[l].out[k] = static_cast<std::uint8_t>(st[l].out[k] | st[l].acc);
      st[l].acc = 0;
    });
  }

  static unsigned Shift(std::size_t x) { return static_cast<unsigned>(kDotsPerByte - 1 - (x & (kDotsPerByte - 1))); }

  // Scan positions i0 .. i0+count-1 within one output byte.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesPartial(RowState* st, std::size_t i0, std::size_t count) const {
    const std::size_t w = band_.w;
    for (std::size_t i = i0; i < i0 + count; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      LanesPixel<kLtr, kLast, kKeepCur>(st, x, Shift(x));
    }
  }

  // Output byte k whole, its pixels in scan order with constant shifts.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE static void LanesByte(RowState* st, std::size_t k) {
    const std::size_t base = k * kDotsPerByte;
    [&]<unsigned... j>(std::integer_sequence<unsigned, j...>) HALFTONE_FORCE_INLINE {
      (LanesPixel<kLtr, kLast, kKeepCur>(st, base + (kLtr ? j : kDotsPerByte - 1 - j),
                                         kLtr ? kDotsPerByte - 1 - j : j),
       ...);
    }(std::make_integer_sequence<unsigned, kDotsPerByte>{});
    Flush(st, k);
  }

  // Row y of every lane, cut into whole output bytes plus a partial byte at either end.
  template <bool kLtr, bool kLast, bool kKeepCur>
  void Row(std::size_t y) {
    const std::size_t w = band_.w;
    RowState st[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      const CycleLane& ln = lanes_[l];
      const std::int8_t* pattern = (kLast ? pattern_.last_ahead : pattern_.inner_ahead) + counter_[l] + 1;
      st[l] = {kLtr ? ln.a : ln.b,
               kLast ? ln.carry : (kLtr ? ln.b : ln.a),
               kLast ? nullptr : band_.In(y + 1, ln.p),
               kLtr ? pattern : pattern + (w - 1),
               band_.Out(y, ln.p),
               0,
               0};
      st[l].v = st[l].cur[kLtr ? 0 : w - 1];
    }

    ForEachRowByte<kLtr, kDotsPerByte>(
        w, [&](std::size_t k) HALFTONE_FORCE_INLINE { LanesByte<kLtr, kLast, kKeepCur>(st, k); },
        [&](std::size_t i0, std::size_t n) HALFTONE_FORCE_INLINE { LanesPartial<kLtr, kLast, kKeepCur>(st, i0, n); },
        [&](std::size_t k) HALFTONE_FORCE_INLINE { Flush(st, k); });

    // The row's end: on inner rows its own counter step, down only early in the cycle; on the
    // band's last row the dot only, no step.
    const std::size_t x = kLtr ? w - 1 : 0;
    for (unsigned l = 0; l < kLanes; ++l) {
      RowState& s = st[l];
      const int v = s.v;
      s.cur[x] = static_cast<std::int16_t>(v);
      const bool dot = v <= kThreshold;
      s.acc |= static_cast<unsigned>(dot) << Shift(x);
      if constexpr (kLast) {
        counter_[l] = static_cast<std::int32_t>((counter_[l] + w - 1) % kCycleLength);
      } else {
        counter_[l] = static_cast<std::int32_t>((counter_[l] + w) % kCycleLength);
        const int e = dot ? v : v - kWhite;
        s.down[x] = Store16(s.below[x] + (counter_[l] <= kRowEndDown ? e : 0));
      }
      s.out[x / kDotsPerByte] = static_cast<std::uint8_t>(s.out[x / kDotsPerByte] | s.acc);
    }
  }

  CyclePattern pattern_;
  const Band& band_;
  CycleLane lanes_[kLanes];
  std::int32_t counter_[kLanes];
};

CycleLane LaneOf(Engine& engine, const Band& band, unsigned p, std::int16_t* a, std::int16_t* b) {
  return {a, b, engine.rows.carry(p, band.w), &engine.cycle_counter[p], &engine.cycle_direction[p], p};
}

void FastBand(Engine& engine, const Band& band) {
  const CyclePattern pattern = PatternFor(engine, band.w);
  const unsigned planes = band.planes;
  bool all_forward = true;
  for (unsigned p = 0; p < planes; ++p) all_forward = all_forward && engine.cycle_direction[p] == 0;
  if (!all_forward) {
    for (unsigned p = 0; p < planes; ++p) {
      const CycleLane lane = LaneOf(engine, band, p, engine.rows.a(), engine.rows.b());
      CycleScan<1>(pattern, band, &lane).Run();
    }
    return;
  }
  ForEachLockstepGroup(engine.threads, planes, kMaxLockstep, [&](unsigned first, unsigned n) {
    CycleLane lanes[kMaxLockstep];
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      lanes[l] = LaneOf(engine, band, p, LaneRowA(engine.rows, p, planes), LaneRowB(engine.rows, p, planes));
    }
    WithLaneCount(n, [&](auto lanes_n) { CycleScan<decltype(lanes_n)::value>(pattern, band, lanes).Run(); });
  });
}

}  // namespace

int CyclicDiffusion(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                    HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  // The scan runs to w - 1 and h - 1, so both must be at least 1; the counter and direction
  // exist for four planes only.
  const JobSpec spec{.bits = 1, .reseed = Reseed::kEveryCall, .needs_pixels = true,
                     .max_planes = Engine::kCyclePlanes};
  if (int rc = CheckJobBand(engine.rows, band, spec); rc != kOk) return rc;
  if (band.starts_job()) {
    engine.cycle_counter.fill(0);
    engine.cycle_direction.fill(0);
  }
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] {
    if (ForceScalar()) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane(engine, band, p);
      return;
    }
    FastBand(engine, band);
  });
}

}  // namespace halftone
