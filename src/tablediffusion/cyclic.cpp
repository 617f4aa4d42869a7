// Cyclic one-neighbour diffusion: each pixel's whole error goes to a single neighbour, the pixel
// below or the next pixel of the scan, and a counter stepping through a cycle of 13 chooses
// which (7 steps down, 6 ahead). Whole-error moves keep dots crisp and cheap to compute; the
// fixed cycle, rather than a random bit, gives a regular texture that does not shimmer from
// band to band. The counter and the serpentine direction belong to the plane and run on
// across bands, so the texture continues over band boundaries.
#include "frame/job.h"
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
  return RunJobBand(engine, engine.rows, band, spec, [&](unsigned p) { DiffusePlane(engine, band, p); });
}

}  // namespace halftone
