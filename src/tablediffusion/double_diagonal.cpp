// The diagonal member: two thirds of each pixel's error go to the next pixel of the scan and
// the remaining third to the next row, one column to the left or to the right as a banded mask
// says, never straight down. The mask's bands slant the diagonal shares in alternate directions
// every eight rows, so no single diagonal texture builds up over a flat area.
#include <algorithm>

#include "tablediffusion/double_diffusion.h"
#include "tablediffusion/double_serpentine.h"
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

}  // namespace

int Diagonal(Engine& engine, const Band& band) {
  return RunJobBand(engine, engine.double_rows, band, DoubleJobSpec(Reseed::kStartOfJob),
                    [&](unsigned p) { DiffusePlane(engine.double_rows, band, p); });
}

}  // namespace halftone
