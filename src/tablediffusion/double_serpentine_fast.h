// The fast path of the ahead-and-down members (double_serpentine.h): the same pixels in the
// same order per plane, the same double operations in the same order, the same draws, the same
// rows left behind. What changes is how:
//   - the planes of a group run in lockstep, row y of every plane in one loop, each on its own
//     working rows (the last plane on the shared ones, so they end the band as the sequential
//     scan leaves them), so the floating-point dependency chains of the planes overlap;
//   - the error carried to the next pixel stays in a register (it is still stored, as the
//     reference leaves it in the working row);
//   - the dot decision is a compare mask, not a branch: e = s - (dark ? 0.0 : 255.0), which is
//     the reference's s - 0.0 or s - 255.0;
//   - direction and row end are template parameters, the row-end pixel is peeled;
//   - the dots of a byte are gathered in a register and stored once;
//   - a random member's split bits come from the band's draws made ahead.
// The readable pass stays the reference; mirror any change to it here.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "frame/band_draws.h"
#include "frame/lockstep.h"
#include "frame/random_bits.h"
#include "tablediffusion/double_serpentine.h"

namespace halftone::double_fast {

// One double of the fast passes. With SSE2 it lives in the low lane of an XMM register and every
// operation is the scalar instruction (addsd, subsd, mulsd, divsd), the same IEEE operation as
// on a plain double; keeping it in the register type spares the zeroing moves that converting
// to and from double costs on every select. Without SSE2 it is a plain double.
#if defined(__SSE2__)
struct Real {
  __m128d r;
  static Real Of(double d) { return {_mm_set_sd(d)}; }
  static Real Load(const double* p) { return {_mm_load_sd(p)}; }
  static Real Level(int v) { return {_mm_cvtsi32_sd(_mm_setzero_pd(), v)}; }
  void Store(double* p) const { _mm_store_sd(p, r); }
  friend Real operator+(Real a, Real b) { return {_mm_add_sd(a.r, b.r)}; }
  friend Real operator-(Real a, Real b) { return {_mm_sub_sd(a.r, b.r)}; }
  friend Real operator*(Real a, Real b) { return {_mm_mul_sd(a.r, b.r)}; }
  friend Real operator/(Real a, Real b) { return {_mm_div_sd(a.r, b.r)}; }
};
// All ones where the compare holds.
struct Mask {
  __m128d m;
  unsigned bit() const { return static_cast<unsigned>(_mm_movemask_pd(m)) & 1u; }
};
inline Mask AtOrBelow(Real s, Real t) { return {_mm_cmple_sd(s.r, t.r)}; }
inline Mask Above(Real s, Real t) { return {_mm_cmplt_sd(t.r, s.r)}; }
inline Real Select(Mask m, Real yes, Real no) { return {_mm_or_pd(_mm_and_pd(m.m, yes.r), _mm_andnot_pd(m.m, no.r))}; }
#else
struct Real {
  double r;
  static Real Of(double d) { return {d}; }
  static Real Load(const double* p) { return {*p}; }
  static Real Level(int v) { return {static_cast<double>(v)}; }
  void Store(double* p) const { *p = r; }
  friend Real operator+(Real a, Real b) { return {a.r + b.r}; }
  friend Real operator-(Real a, Real b) { return {a.r - b.r}; }
  friend Real operator*(Real a, Real b) { return {a.r * b.r}; }
  friend Real operator/(Real a, Real b) { return {a.r / b.r}; }
};
struct Mask {
  bool m;
  unsigned bit() const { return m ? 1u : 0u; }
};
inline Mask AtOrBelow(Real s, Real t) { return {s.r <= t.r}; }
inline Mask Above(Real s, Real t) { return {s.r > t.r}; }
inline Real Select(Mask m, Real yes, Real no) { return m.m ? yes : no; }
#endif

// What a share may depend on besides the error: the pixel, its row and its draw's split bit.
struct Px {
  int v;
  std::size_t x;
  unsigned split;  // the pixel's split bit (bit 1 of its drawn word)
  const std::uint8_t* in;  // the pixel's row
  std::size_t w;
};

// The common sum, the level plus the error that arrived (the reference's v + err), and no
// operation after the share.
struct PlainFast {
  Real Sum(int v, Real c, std::size_t, std::size_t) const { return Real::Level(v) + c; }
  static Real Finish(Real n, const Px&) { return n; }
};

inline constexpr unsigned kSplitBitShift = 1;  // a draw's split bit is bit 1 of its word
inline constexpr std::uint8_t kSplitBitMask = 1;

// One plane of a lockstep group.
struct Lane {
  double* a;                   // working row A (errors arriving at left-to-right rows)
  double* b;                   // working row B
  double* carry;               // the plane's carry entries
  const std::uint8_t* splits;  // the plane's slice of the band's split bits (random members)
  unsigned p;
};

// A member's fast traits:
//   kWhiteGuard, kReversedEndTest, kQuarterAtRowEnd  as the reference traits
//   kDrawsPerPixel                   true when every pixel but the row end takes one drawn word
//   Real Sum(v, c, y, x)             the value to threshold, as the reference's Sum
//   bool BiasAt(x, forward)          as the reference
//   Real Bias(v)                     as the reference
//   Real Scale(e, px)                the reference's ahead share up to its last operation,
//   Real Finish(n, px)               and that operation (a division, or nothing): the scan
//                                    selects between the dark and the paper outcome before it,
//                                    so a division is done once
//
// Both outcomes of the threshold are carried to the share and the one the compare picks is
// kept: the compare then runs beside the arithmetic instead of ahead of it. For the dark
// outcome the reference's s - 0.0 is s itself (no double is changed by subtracting +0.0).
template <class Fast, unsigned kLanes>
class AheadDownLockstep {
 public:
  AheadDownLockstep(const Fast& fast, const Band& band, const Lane* lanes) : fast_(fast), band_(band) {
    for (unsigned l = 0; l < kLanes; ++l) lanes_[l] = lanes[l];
  }

  void Run() {
    const std::size_t h = band_.h;
    for (unsigned l = 0; l < kLanes; ++l) LoadCarriedErrors(lanes_[l].a, lanes_[l].carry, band_.w);
    ScanSerpentineRows(h, [&]<bool kLtr, bool kLast>(std::size_t y) { Row<kLtr, kLast>(y); });
  }

 private:
  static constexpr unsigned kPerByte = 8;

  static unsigned Shift(std::size_t x) { return static_cast<unsigned>(kPerByte - 1 - (x & (kPerByte - 1))); }
  static unsigned Guard(int v) { return Fast::kWhiteGuard ? static_cast<unsigned>(v < kWhiteLevel) : 1u; }

  template <bool kFwd, bool kLast>
  void Row(std::size_t y) {
    const std::size_t w = band_.w;
    double* cur[kLanes];
    double* down[kLanes];
    const std::uint8_t* in[kLanes];
    std::uint8_t* out[kLanes];
    const std::uint8_t* splits[kLanes];
    Real c[kLanes];
    unsigned acc[kLanes];
    const std::size_t x0 = kFwd ? 0 : w - 1;
    for (unsigned l = 0; l < kLanes; ++l) {
      cur[l] = kFwd ? lanes_[l].a : lanes_[l].b;
      down[l] = kLast ? lanes_[l].carry : (kFwd ? lanes_[l].b : lanes_[l].a);
      in[l] = band_.In(y, lanes_[l].p);
      out[l] = band_.Out(y, lanes_[l].p);
      splits[l] = lanes_[l].splits + (Fast::kDrawsPerPixel ? y * (w - 1) : 0);
      c[l] = Real::Load(cur[l] + x0);
      acc[l] = 0;
    }
    const Real threshold = Real::Of(kDotThreshold);
    const Real paper = Real::Of(kPaperOutput);
    static_assert(kDotOutput == 0.0);

    for (std::size_t i = 0; i + 1 < w; ++i) {
      const std::size_t x = kFwd ? i : w - 1 - i;
      const std::size_t next = kFwd ? x + 1 : x - 1;
      const unsigned shift = Shift(x);
      const bool bias_at = fast_.BiasAt(x, kFwd);
      ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
        const int v = in[l][x];
        c[l].Store(cur[l] + x);
        const Real s = fast_.Sum(v, c[l], y, x);
        const Mask dark = AtOrBelow(s, threshold);
        acc[l] |= (dark.bit() & Guard(v)) << shift;
        Real e_dark = s, e_paper = s - paper;
        if (bias_at) {
          const Real bias = fast_.Bias(v);
          e_dark = e_dark + bias;
          e_paper = e_paper + bias;
        }
        const Px px{v, x, Fast::kDrawsPerPixel ? splits[l][i] : 0u, in[l], w};
        const Real e = Select(dark, e_dark, e_paper);
        const Real ahead = fast_.Finish(Select(dark, fast_.Scale(e_dark, px), fast_.Scale(e_paper, px)), px);
        (e - ahead).Store(down[l] + x);
        c[l] = Real::Load(cur[l] + next) + ahead;
      });
      if ((x & (kPerByte - 1)) == (kFwd ? kPerByte - 1 : 0)) {
        ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
          out[l][x / kPerByte] = static_cast<std::uint8_t>(out[l][x / kPerByte] | acc[l]);
          acc[l] = 0;
        });
      }
    }

    // The row end: nothing ahead of it; on the band's last right-to-left row the member may
    // test it the other way round.
    const std::size_t x = kFwd ? w - 1 : 0;
    constexpr bool kReversed = Fast::kReversedEndTest && kLast && !kFwd;
    const Real row_end_ahead = Real::Of(kRowEndAhead);
    for (unsigned l = 0; l < kLanes; ++l) {
      const int v = in[l][x];
      c[l].Store(cur[l] + x);
      const Real s = fast_.Sum(v, c[l], y, x);
      const Mask dark = kReversed ? Above(s, threshold) : AtOrBelow(s, threshold);
      acc[l] |= (dark.bit() & Guard(v)) << Shift(x);
      Real e = Select(dark, s, s - paper);
      if (fast_.BiasAt(x, kFwd)) e = e + fast_.Bias(v);
      if constexpr (Fast::kQuarterAtRowEnd) {
        (e - e * row_end_ahead).Store(down[l] + x);
      } else {
        const Px px{v, x, 0u, in[l], w};
        (e - fast_.Finish(fast_.Scale(e, px), px)).Store(down[l] + x);
      }
      out[l][x / kPerByte] = static_cast<std::uint8_t>(out[l][x / kPerByte] | acc[l]);
    }
  }

  const Fast& fast_;
  const Band& band_;
  Lane lanes_[kLanes];
};

template <class Fast>
void RunLockstep(const Fast& fast, const Band& band, const Lane* lanes, unsigned n) {
  WithLaneCount(n, [&](auto lanes_n) { AheadDownLockstep<Fast, decltype(lanes_n)::value>(fast, band, lanes).Run(); });
}

// Widest group a member runs well in: a member may ask for narrower groups with `kLockstep`
// (measured with halftone_bench, not derived).
template <class Fast>
constexpr unsigned LockstepWidth() {
  if constexpr (requires { Fast::kLockstep; })
    return Fast::kLockstep;
  else
    return kMaxLockstep;
}

// Splits a band's planes into lockstep groups of at most `widest`, each plane on its own working
// rows (the last plane on the shared ones, so they end the band as the sequential scan leaves
// them) with its slice of `splits` (per_plane each), and runs `group(lanes, n)` for every
// group on the engine's threads. Groups are not split below `widest` to give every thread one:
// the long division chains gain more from wide groups than from a second core (four planes,
// two threads: two pairs ran at 0.87-0.89 times one group of four, suiruiskao2 to 4).
template <class Group>
void ForEachLockstepGroup(Engine& engine, const Band& band, const std::uint8_t* splits, std::size_t per_plane,
                          unsigned widest, Group&& group) {
  const unsigned planes = band.planes;
  DoubleJobBuffers& rows = engine.double_rows;
  halftone::ForEachLockstepGroup(engine.threads, planes, widest, widest, [&](unsigned first, unsigned n) {
    Lane lanes[kMaxLockstep];
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      lanes[l] = {LaneRowA(rows, p, planes), LaneRowB(rows, p, planes), rows.carry(p, band.w),
                  splits == nullptr ? nullptr : splits + per_plane * p, p};
    }
    group(lanes, n);
  });
}

// Every plane of a band: makes the band's draws ahead where the member draws, kept as their split
// bits (plane p's slice at p * h * (w - 1), the order the sequential scan draws them), and runs
// the planes in lockstep groups.
template <class Fast>
void AheadDownBand(const Fast& fast, Engine& engine, const Band& band) {
  constexpr unsigned kWidest = LockstepWidth<Fast>();
  const std::size_t per_plane = Fast::kDrawsPerPixel ? band.h * (band.w - 1) : 0;
  std::uint8_t* splits = nullptr;
  if (per_plane != 0)
    splits = DrawBandBytes(engine, per_plane * band.planes, 0, kSplitBitShift, kSplitBitMask,
                           LockstepGroupCount(band.planes, engine.threads.count(), kWidest, kWidest));
  ForEachLockstepGroup(engine, band, splits, per_plane, kWidest,
                       [&](const Lane* lanes, unsigned n) { RunLockstep(fast, band, lanes, n); });
}

}  // namespace halftone::double_fast
