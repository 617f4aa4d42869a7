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
  LoadCarriedErrors(a, carry, w);
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

// The fast form (double_serpentine_fast.h): planes in lockstep on their own rows, the carried
// error in a register, both threshold outcomes doubled before the compare picks one, so the
// division by three follows the sum straight away; dots gathered per byte. The diagonal shares
// are added to the next row in the reference's order, beside the chain.
template <unsigned kLanes>
class DiagonalLockstep {
 public:
  DiagonalLockstep(const Band& band, const double_fast::Lane* lanes) : band_(band) {
    for (unsigned l = 0; l < kLanes; ++l) lanes_[l] = lanes[l];
  }

  void Run() {
    for (unsigned l = 0; l < kLanes; ++l) LoadCarriedErrors(lanes_[l].a, lanes_[l].carry, band_.w);
    ScanSerpentineRows(band_.h, [&]<bool kLtr, bool kLast>(std::size_t y) { Row<kLtr, kLast>(y); });
  }

 private:
  using Real = double_fast::Real;
  static constexpr unsigned kPerByte = 8;
  static unsigned Shift(std::size_t x) { return static_cast<unsigned>(kPerByte - 1 - (x & (kPerByte - 1))); }

  template <bool kFwd, bool kLast>
  void Row(std::size_t y) {
    const std::size_t w = band_.w;
    const auto& mask = kDiagonalMask[y % kDiagonalMaskRows];
    double* cur[kLanes];
    double* diagonal[kLanes];
    const std::uint8_t* in[kLanes];
    std::uint8_t* out[kLanes];
    Real c[kLanes];
    unsigned acc[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      cur[l] = kFwd ? lanes_[l].a : lanes_[l].b;
      double* next = kFwd ? lanes_[l].b : lanes_[l].a;
      std::fill(next, next + w, 0.0);
      // required: only a right-to-left last row hands its diagonal shares to the next band.
      diagonal[l] = kLast && !kFwd ? lanes_[l].carry : next;
      in[l] = band_.In(y, lanes_[l].p);
      out[l] = band_.Out(y, lanes_[l].p);
      c[l] = Real::Load(cur[l] + (kFwd ? 0 : w - 1));
      acc[l] = 0;
    }
    const Real threshold = Real::Of(kDotThreshold), paper = Real::Of(kPaperOutput), thirds = Real::Of(kThirds);

    // A pixel's diagonal share, e / 3.0 to column x - 1 or x + 1 of the next row. Shares that
    // would leave the row at either edge are dropped.
    auto share = [&](unsigned l, std::size_t x, Real e) {
      const Real third = e / thirds;
      if (mask[x % kDiagonalMaskColumns] != 0) {
        if (x > 0) (Real::Load(diagonal[l] + x - 1) + third).Store(diagonal[l] + x - 1);
      } else if (x + 1 < w) {
        (Real::Load(diagonal[l] + x + 1) + third).Store(diagonal[l] + x + 1);
      }
    };
    // Each pixel's diagonal share is added one pixel later, while the next pixel's sum is
    // formed: its division then never holds up the ahead share's division, which the next
    // pixel waits for. The shares still reach each entry of the row in scan order.
    Real pending[kLanes];
    for (Real& e : pending) e = Real::Of(0.0);
    // One pixel of every lane; the row end (i = w - 1) passes nothing ahead.
    auto pixel = [&](std::size_t i, auto row_end) {
      const std::size_t x = kFwd ? i : w - 1 - i;
      const std::size_t before = kFwd ? x - 1 : x + 1;
      ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
        const int v = in[l][x];
        c[l].Store(cur[l] + x);
        const Real s = Real::Level(v) + c[l];
        const double_fast::Mask dark = double_fast::AtOrBelow(s, threshold);
        acc[l] |= (dark.bit() & static_cast<unsigned>(v < kWhiteLevel)) << Shift(x);
        const Real e_paper = s - paper;
        if constexpr (!decltype(row_end)::value) {
          const Real ahead = double_fast::Select(dark, s + s, e_paper + e_paper) / thirds;
          c[l] = Real::Load(cur[l] + (kFwd ? x + 1 : x - 1)) + ahead;
        }
        if (i > 0) share(l, before, pending[l]);
        pending[l] = double_fast::Select(dark, s, e_paper);
        if constexpr (decltype(row_end)::value) share(l, x, pending[l]);
      });
      if (row_end || (x & (kPerByte - 1)) == (kFwd ? kPerByte - 1 : 0)) {
        for (unsigned l = 0; l < kLanes; ++l) {
          out[l][x / kPerByte] = static_cast<std::uint8_t>(out[l][x / kPerByte] | acc[l]);
          acc[l] = 0;
        }
      }
    };
    for (std::size_t i = 0; i + 1 < w; ++i) pixel(i, std::false_type{});
    pixel(w - 1, std::true_type{});
  }

  const Band& band_;
  double_fast::Lane lanes_[kLanes];
};

void DiagonalBand(Engine& engine, const Band& band) {
  double_fast::ForEachLockstepGroup(engine, band, nullptr, 0, kMaxLockstep, [&](const double_fast::Lane* lanes, unsigned n) {
    WithLaneCount(n, [&](auto lanes_n) { DiagonalLockstep<decltype(lanes_n)::value>(band, lanes).Run(); });
  });
}

}  // namespace

int Diagonal(Engine& engine, const Band& band) {
  return RunJobBandPlanes(engine, engine.double_rows, band, DoubleJobSpec(Reseed::kStartOfJob), [&] {
    if (ForceScalar()) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane(engine.double_rows, band, p);
    } else {
      DiagonalBand(engine, band);
    }
  });
}

}  // namespace halftone
