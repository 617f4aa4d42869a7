// Cyclic one-neighbour diffusion: each pixel's whole error goes to a single neighbour, the pixel
// below or the next pixel of the scan, and a counter stepping through a cycle of 13 chooses
// which (7 steps down, 6 ahead). Whole-error moves keep dots crisp and cheap to compute; the
// fixed cycle, rather than a random bit, gives a regular texture that does not shimmer from
// band to band. The counter and the serpentine direction belong to the plane and run on
// across bands, so the texture continues over band boundaries.
#include "frame/dispatch.h"
#include "frame/job.h"
#include "frame/lockstep.h"
#include "frame/row_engine.h"
#include "tablediffusion/integer_diffusion.h"

namespace halftone {
namespace {

constexpr std::int32_t kCycleLast = 12;   // the counter runs 1, 2, ..., 12, 0, 1, ...
constexpr std::int32_t kLastDown = 6;     // inner pixels: c <= 6 sends the error down
constexpr std::int32_t kRowEndDown = 5;   // row ends: c <= 5 sends it down, else it is dropped
constexpr std::int32_t kLastRowAhead = 6; // last row of a band: c >= 6 sends it ahead

inline std::int32_t Step(std::int32_t& counter) {
  if (++counter > kCycleLast) counter = 0;
  return counter;
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
        const int e = QuantiseBilevel(a[x], out, x);
        b[x] = below[x];
        if (Step(counter) <= kLastDown)
          b[x] = Store16(b[x] + e);
        else
          a[x + 1] = Store16(a[x + 1] + e);
      }
      const std::size_t x = w - 1;
      const int e = QuantiseBilevel(a[x], out, x);
      b[x] = below[x];
      if (Step(counter) <= kRowEndDown) b[x] = Store16(b[x] + e);
    } else {
      for (std::size_t x = w - 1; x > 0; --x) {
        const int e = QuantiseBilevel(b[x], out, x);
        a[x] = below[x];
        if (Step(counter) <= kLastDown)
          a[x] = Store16(a[x] + e);
        else
          b[x - 1] = Store16(b[x - 1] + e);
      }
      const int e = QuantiseBilevel(b[0], out, 0);
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
      const int e = QuantiseBilevel(a[x], out, x);
      // required: the last row sends ahead from c >= 6, one step earlier than other rows.
      if (Step(counter) >= kLastRowAhead)
        a[x + 1] = Store16(a[x + 1] + e);
      else
        carry[x] = Store16(e);
    }
    // required: the row end only sets its dot; no counter step, its error is lost.
    if (a[w - 1] <= kBilevelCut) PutDot(out, w - 1);
  } else {
    for (std::size_t x = w - 1; x > 0; --x) {
      const int e = QuantiseBilevel(b[x], out, x);
      if (Step(counter) >= kLastRowAhead)
        b[x - 1] = Store16(b[x - 1] + e);
      else
        carry[x] = Store16(e);
    }
    if (b[0] <= kBilevelCut) PutDot(out, 0);
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

// The counter's choice as a kernel of the serpentine row engine: rows hold the value to
// quantise (input plus error), the next row starts from its input, and each lane carries its
// plane's counter and the row's masks.
struct CycleKernel {
  static constexpr unsigned kBits = 1;
  static constexpr bool kStarts = true;
  static constexpr bool kStartIsInput = true;
  static constexpr bool kDraws = false;
  static constexpr bool kLastLtrToCarry = true;
  struct LaneState {
    std::int32_t counter;
    std::int32_t* home;        // where the plane's counter lives between bands
    const std::int8_t* ahead;  // pixel x's mask: ahead[x] left to right, ahead[-x] right to left
    std::size_t w;
  };
  CyclePattern pattern;
  Engine* engine;

  LaneState StartLane(const row_engine::Lane& lane) const {
    std::int32_t& home = engine->cycle_counter[lane.p];
    return {home > kCycleLast ? 0 : home, &home, nullptr, 0};
  }
  template <bool kLtr, bool kLast>
  void LaneRow(LaneState& s, const row_engine::RowView<std::int16_t>& r) const {
    const std::int8_t* row = (kLast ? pattern.last_ahead : pattern.inner_ahead) + s.counter + 1;
    s.ahead = kLtr ? row : row + (r.w - 1);
    s.w = r.w;
  }
  void SetRow(std::size_t) {}
  static void FillStart(std::int16_t* row, const std::uint8_t* in, std::size_t, std::size_t w) {
    for (std::size_t x = 0; x < w; ++x) row[x] = in[x];
  }
  // Inner pixels send the whole error ahead or down by the mask. The row's end: on inner rows
  // its own counter step, down only early in the cycle; on the band's last row the dot only,
  // no step (its carry entry stays cleared).
  template <bool kLtr, bool kLast, bool kEnd>
  HALFTONE_FORCE_INLINE row_engine::PixelOut Step(LaneState& s, int, int v, std::size_t x, unsigned,
                                                            unsigned) const {
    const bool dot = v <= kBilevelCut;
    const int e = SelectAtOrBelow(v, kBilevelCut, v, v - kBilevelWhite);
    if constexpr (kEnd) {
      s.counter = static_cast<std::int32_t>((s.counter + s.w - (kLast ? 1 : 0)) % kCycleLength);
      if constexpr (kLast) *s.home = s.counter;
      return {dot, 0, kLast || s.counter > kRowEndDown ? 0 : e};
    } else {
      const int ahead = e & (kLtr ? s.ahead[x] : *(s.ahead - x));
      return {dot, ahead, e - ahead};
    }
  }
};

void FastBand(Engine& engine, const Band& band) {
  const CycleKernel kernel{PatternFor(engine, band.w), &engine};
  const unsigned planes = band.planes;
  bool all_forward = true;
  for (unsigned p = 0; p < planes; ++p) all_forward = all_forward && engine.cycle_direction[p] == 0;
  if (all_forward) {
    row_engine::RunBand(kernel, engine, band);
  } else {
    for (unsigned p = 0; p < planes; ++p) {
      const row_engine::Lane lane{engine.rows.a(), engine.rows.b(), engine.rows.carry(p, band.w), nullptr, p};
      row_engine::Scan<CycleKernel, 1>(kernel, band, &lane).Run(engine.cycle_direction[p] != 0);
    }
  }
  for (unsigned p = 0; p < planes; ++p) engine.cycle_direction[p] ^= static_cast<std::uint32_t>(band.h & 1);
}

}  // namespace

int CyclicDiffusion(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                    HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 1);
  // The scan runs to w - 1 and h - 1, so both must be at least 1; the counter and direction
  // exist for four planes only.
  const JobSpec spec{.reseed = Reseed::kEveryCall, .needs_pixels = true, .max_planes = Engine::kCyclePlanes};
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] {
    if (band.starts_job()) {
      engine.cycle_counter.fill(0);
      engine.cycle_direction.fill(0);
    }
    if (ForceScalar()) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane(engine, band, p);
      return;
    }
    FastBand(engine, band);
  });
}

}  // namespace halftone
