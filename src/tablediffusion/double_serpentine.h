// The pieces the double-precision family shares: threshold, the row pass of the members that
// pass error ahead and straight down, and the plane loop over the serpentine rows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/engine.h"
#include "frame/job.h"

namespace halftone {

// At or below the threshold a pixel is a dot (output 0.0); above it, paper (255.0).
inline constexpr double kDotThreshold = 128.0;
inline constexpr double kDotOutput = 0.0;
inline constexpr double kPaperOutput = 255.0;
inline constexpr int kWhiteLevel = 255;
// Row ends keep one quarter of their error downward, as if three quarters went ahead.
inline constexpr double kRowEndAhead = 0.75;

// Quantises sum s of a pixel of input level v and returns its error. A reversed test makes a
// dot above the threshold instead. With the white guard, pure white input never gets a dot bit,
// though its error is still that of a dot.
template <bool kWhiteGuard>
inline double Quantise(double s, int v, bool reversed, std::uint8_t* bits, std::size_t x) {
  const bool dark = reversed ? s > kDotThreshold : s <= kDotThreshold;
  if (!dark) return s - kPaperOutput;
  if (!kWhiteGuard || v < kWhiteLevel) PutDot(bits, x);
  return s - kDotOutput;
}

// One row of the scan: `cur` holds the errors arriving at this row and takes the ahead shares,
// `down` takes the errors for the row below (the next working row, or the carry row on the
// band's last row).
struct DoubleRow {
  const std::uint8_t* in;
  std::uint8_t* bits;
  double* cur;
  double* down;
  std::size_t w;
  std::size_t y;  // row within the band
  bool forward;   // left to right
  bool last;      // the band's last row
};

// Traits of a member of the ahead-and-down kind:
//   kWhiteGuard                     no dot bit at input 255
//   kReversedEndTest                reversed test at x = 0 of a right-to-left last row
//   kQuarterAtRowEnd                row ends keep a quarter down; otherwise they take the
//                                   same shares as the other pixels and drop the ahead one
//   double Sum(v, err, y, x)        the value to threshold
//   bool BiasAt(x, forward)         whether the level bias is added to this pixel's error
//   double Bias(v)                  the level bias
//   double Ahead(e, v, x, forward)  the share passed to the next pixel of the scan
//   void StartRow(const DoubleRow&) anything the member prepares per row
template <class Traits>
void DiffuseAheadDownRow(Traits& t, const DoubleRow& r) {
  t.StartRow(r);
  const std::size_t w = r.w;
  for (std::size_t i = 0; i < w; ++i) {
    const std::size_t x = r.forward ? i : w - 1 - i;
    const bool row_end = i + 1 == w;
    const int v = r.in[x];
    // required: the band's last right-to-left row tests its final pixel the other way round.
    const bool reversed = Traits::kReversedEndTest && r.last && !r.forward && x == 0;
    double e = Quantise<Traits::kWhiteGuard>(t.Sum(v, r.cur[x], r.y, x), v, reversed, r.bits, x);
    if (t.BiasAt(x, r.forward)) e = e + t.Bias(v);
    if (row_end && Traits::kQuarterAtRowEnd) {
      r.down[x] = e - e * kRowEndAhead;
      continue;
    }
    const double ahead = t.Ahead(e, v, x, r.forward);
    if (!row_end) {
      const std::size_t next = r.forward ? x + 1 : x - 1;
      r.cur[next] = r.cur[next] + ahead;
    }
    r.down[x] = e - ahead;  // stored: the pixel below receives from this pixel only
  }
}

// The serpentine over one plane: left to right on even rows (errors in A, next row into B),
// right to left on odd rows (B into A), restarting left to right in every band. The last
// row's downward errors go to the carry row, whichever its direction.
template <class Traits>
void DiffuseAheadDownPlane(Traits& t, DoubleJobBuffers& rows, const Band& band, unsigned p) {
  double* a = rows.a();
  double* b = rows.b();
  double* carry = rows.carry(p, band.w);
  LoadCarry(a, carry, band.w);
  for (std::size_t y = 0; y < band.h; ++y) {
    const bool forward = (y & 1) == 0;
    const bool last = y + 1 == band.h;
    double* cur = forward ? a : b;
    double* next = forward ? b : a;
    DiffuseAheadDownRow(t, DoubleRow{band.In(y, p), band.Out(y, p), cur, last ? carry : next, band.w, y, forward, last});
  }
}

// No per-row preparation, no modulation, no level bias: the common case of the traits above.
struct PlainRowTraits {
  void StartRow(const DoubleRow&) {}
  double Sum(int v, double err, std::size_t, std::size_t) const { return v + err; }
  static bool BiasAt(std::size_t, bool) { return false; }
  double Bias(int) const { return 0.0; }
};

// Band frame of the family: one bit a pixel, at least one row and one column.
inline JobSpec DoubleJobSpec(Reseed reseed) {
  return JobSpec{.reseed = reseed, .needs_pixels = true};
}

// The members, one entry each; `DoubleDiffusion` dispatches to them.
int QuarterColumnBias(Engine& engine, const Band& band);
int HalfColumnBias(Engine& engine, const Band& band);
int EveryColumnBias(Engine& engine, const Band& band);
int Modulated(Engine& engine, const Band& band);
int RandomSplit(Engine& engine, const Band& band, DoubleMethod dump);
int ToneWeightRow(Engine& engine, const Band& band);
int Diagonal(Engine& engine, const Band& band);
int RunLength(Engine& engine, const Band& band);

}  // namespace halftone
