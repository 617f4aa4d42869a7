// The diagonal member: two thirds of each pixel's error go to the next pixel of the scan and
// the remaining third to the next row, one column to the left or to the right as a banded mask
// says, never straight down. The mask's bands slant the diagonal shares in alternate directions
// every eight rows, so no single diagonal texture builds up over a flat area.
#include <algorithm>

#include "frame/dispatch.h"
#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"
#include "tablediffusion/double_serpentine_fast.h"
#include "tablediffusion/double_tables.h"

namespace halftone {
namespace {

constexpr double kThirds = 3.0;

void DiffusePlane(DoubleJobBuffers& rows, const Band& band, unsigned p) {
  const std::size_t w = band.w;
  double* a = rows.a();
  double* b = rows.b();
  double* carry = rows.carry(p, w);
  LoadCarry(a, carry, w);
  for (std::size_t y = 0; y < band.h; ++y) {
    const bool forward = (y & 1) == 0;
    const bool last = y + 1 == band.h;
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* bits = band.Out(y, p);
    const auto& mask = kDiagonalMask[y % kDiagonalMaskRows];
    double* cur = forward ? a : b;
    double* next = forward ? b : a;
    std::fill(next, next + w, 0.0);
    // required: only a right-to-left last row hands its diagonal shares to the next band.
    double* diagonal = last && !forward ? carry : next;
    for (std::size_t i = 0; i < w; ++i) {
      const std::size_t x = forward ? i : w - 1 - i;
      const int v = in[x];
      const double e = Quantise<true>(v + cur[x], v, false, bits, x);
      const double ahead = (e + e) / kThirds;
      if (i + 1 < w) {
        const std::size_t n = forward ? x + 1 : x - 1;
        cur[n] = cur[n] + ahead;
      }
      const double third = e / kThirds;
      // Shares that would leave the row at either edge are dropped.
      if (mask[x % kDiagonalMaskColumns] != 0) {
        if (x > 0) diagonal[x - 1] = diagonal[x - 1] + third;
      } else if (x + 1 < w) {
        diagonal[x + 1] = diagonal[x + 1] + third;
      }
    }
  }
}

// The fast form, a kernel of the serpentine row engine: planes in lockstep on their own rows,
// the carried error in a register, both threshold outcomes doubled before the compare picks
// one, so the division by three follows the sum straight away. The diagonal shares go to the
// next row in the reference's order, each one pixel late: its division then never holds up the
// ahead share's division, which the next pixel waits for.
struct DiagonalKernel {
  using Cell = double;
  using Real = double_fast::Real;
  static constexpr unsigned kBits = 1;
  static constexpr bool kStarts = false;
  static constexpr bool kDraws = false;
  static constexpr bool kSpreadsDown = true;
  static constexpr unsigned kGroupUnroll = 1;
  struct LaneState {
    const std::uint8_t* mask;  // the row's band of the mask
    std::size_t w;
    Real pending;  // the error whose diagonal share is not placed yet
  };

  static LaneState StartLane(const row_engine::LaneOf<double>&) { return {nullptr, 0, Real::Of(0.0)}; }
  // The row the shares go to starts empty. (A right-to-left last row hands them to the carry,
  // cleared when the band began.)
  template <bool, bool>
  static void LaneRow(LaneState& s, const row_engine::RowView<double>& r) {
    std::fill(r.down, r.down + r.w, 0.0);
    s.mask = kDiagonalMask[r.y % kDiagonalMaskRows].data();
    s.w = r.w;
  }
  static void SetRow(std::size_t) {}

  template <bool kLtr, bool, bool kEnd>
  HALFTONE_FORCE_INLINE static row_engine::PixelOutOf<Real> Step(const LaneState&, int v, Real held,
                                                                          std::size_t, unsigned, unsigned) {
    const Real s = Real::Level(v) + held;
    const double_fast::Mask dark = double_fast::AtOrBelow(s, Real::Of(kDotThreshold));
    const unsigned code = dark.bit() & static_cast<unsigned>(v < kWhiteLevel);
    const Real e_paper = s - Real::Of(kPaperOutput);
    Real ahead = Real::Of(0.0);
    if constexpr (!kEnd) ahead = double_fast::Select(dark, s + s, e_paper + e_paper) / Real::Of(kThirds);
    return {code, ahead, double_fast::Select(dark, s, e_paper)};
  }

  // e / 3.0 to column x - 1 or x + 1 of the next row; shares that would leave the row at either
  // edge are dropped.
  static void Share(const LaneState& s, double* down, std::size_t x, Real e) {
    const Real third = e / Real::Of(kThirds);
    using Cells = row_engine::Cells<double>;
    if (s.mask[x % kDiagonalMaskColumns] != 0) {
      if (x > 0) Cells::Put(down + x - 1, Real::Load(down + x - 1) + third);
    } else if (x + 1 < s.w) {
      Cells::Put(down + x + 1, Real::Load(down + x + 1) + third);
    }
  }
  template <bool kLtr, bool kEnd>
  HALFTONE_FORCE_INLINE static void PutDown(LaneState& s, double* down, std::size_t x, std::size_t i, Real e) {
    if (i > 0) Share(s, down, kLtr ? x - 1 : x + 1, s.pending);
    s.pending = e;
    if constexpr (kEnd) Share(s, down, x, s.pending);
  }
};

}  // namespace

int Diagonal(Engine& engine, const Band& band) {
  return RunJobBandPlanes(engine, engine.double_rows, band, DoubleJobSpec(Reseed::kStartOfJob), [&] {
    if (ForceScalar()) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane(engine.double_rows, band, p);
    } else {
      row_engine::RunBand(DiagonalKernel{}, engine, band);
    }
  });
}

}  // namespace halftone
