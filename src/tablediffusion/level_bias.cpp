// Serpentine integer diffusion with level-keyed bias bytes. Each pixel's error goes two ways,
// ahead along the row and straight down, and the share sent ahead depends on how light the
// input is: light areas get a fixed split alternating by column, so their sparse dots stay
// evenly spaced; mid-tones pick between two splits at random to break up worms; dark areas
// pick between all-ahead and halves, which clusters the few white gaps less. A bias byte from
// a built-in table, keyed by the input level, is added to the error at every second column,
// and the carry row starts each job slightly negative so the first rows print a little dark.
#include "frame/dispatch.h"
#include "frame/job.h"
#include "tablediffusion/error_shares.h"
#include "tablediffusion/integer_diffusion.h"
#include "tablediffusion/level_bias_fast.h"

namespace halftone {
namespace {

using namespace level_bias;

// Quantises s into the dot row at x and returns the error.
template <unsigned Bits>
inline int Quantise(int s, std::uint8_t* out, std::size_t x) {
  if constexpr (Bits == 1) return QuantiseBilevel(s, out, x);
  for (unsigned i = 0; i < 3; ++i) {
    if (s <= kFourThreshold[i]) {
      PutCode2(out, x, 3 - i);
      return s - kFourLevelValue[i];
    }
  }
  return s - kFourLevelValue[3];
}

// The working rows hold bare error; the input level is added when a pixel is quantised.
template <const LevelBiasTraits& M>
void DiffusePlane(Engine& engine, const Band& band, unsigned p) {
  const std::size_t w = band.w, h = band.h;
  std::int16_t* a = engine.rows.a();
  std::int16_t* b = engine.rows.b();
  std::int16_t* carry = engine.rows.carry(p, w);
  RandomBitSource& random = engine.random;
  LoadCarry(a, carry, w);

  for (std::size_t y = 0; y < h; ++y) {
    const std::uint8_t* in = band.In(y, p);
    std::uint8_t* out = band.Out(y, p);
    const bool last_row = y + 1 >= h;

    if ((y & 1) == 0) {
      // Forward: quantise A, the next row's errors go into B.
      for (std::size_t x = 0; x < w; ++x) {
        const int v = in[x];
        int e = Quantise<M.bits>(v + a[x], out, x);
        if constexpr (M.bias_ltr_even) {
          if ((x & 1) == 0) e += (*M.bias)[v];
        }
        const Shares s = Apply(Pick(BandOf(M, v, true).choice, x, random), e);
        if (x + 1 < w) a[x + 1] = Store16(a[x + 1] + s.ahead);
        // required: a forward last row still writes B, so an odd-height band carries nothing.
        b[x] = Store16(s.down);
      }
    } else {
      // Backward: quantise B, the next row's errors go into A, or into the carry row when
      // this is the band's last row.
      for (std::size_t x = w; x-- > 0;) {
        const int v = in[x];
        int e = Quantise<M.bits>(v + b[x], out, x);
        if constexpr (M.bias_rtl_odd) {
          if ((x & 1) == 1) e += (*M.bias)[v];
        }
        const Shares s = Apply(Pick(BandOf(M, v, false).choice, x, random), e);
        if (x > 0) b[x - 1] = Store16(b[x - 1] + s.ahead);
        if (last_row)
          carry[x] = Store16(s.down);
        else
          a[x] = Store16(s.down);
      }
    }
  }
}

template <const LevelBiasTraits& M>
int Run(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
        HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, M.bits);
  // Rows are scanned with plain y < h and x < w loops: zero sizes simply halftone nothing.
  const JobSpec spec{.reseed = Reseed::kStartOfJob};
  return RunJobBandPlanes(
      engine, engine.rows, band, spec,
      [&] {
        if (ForceScalar() || band.w == 0 || band.h == 0) {
          for (unsigned p = 0; p < band.planes; ++p) DiffusePlane<M>(engine, band, p);
        } else {
          DiffuseBandFast<M>(engine, band);
        }
      },
      M.carry_preset);
}

}  // namespace

int LevelBiasDiffusion(Engine& engine, LevelBiasMember member, const std::uint8_t* src, std::uint8_t* dst,
                       std::size_t w, std::size_t h, HalftoneFlags flags) {
  switch (member) {
    case LevelBiasMember::kFourLevel: return Run<kFourLevel>(engine, src, dst, w, h, flags);
    case LevelBiasMember::kBilevelWide: return Run<kBilevelWide>(engine, src, dst, w, h, flags);
    case LevelBiasMember::kBilevelHalves: return Run<kBilevelHalves>(engine, src, dst, w, h, flags);
    case LevelBiasMember::kBilevelLight: return Run<kBilevelLight>(engine, src, dst, w, h, flags);
    case LevelBiasMember::kBilevelHalving: return Run<kBilevelHalving>(engine, src, dst, w, h, flags);
  }
  return kErrOutOfContract;
}

}  // namespace halftone
