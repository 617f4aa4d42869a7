// Serpentine four-level diffusion to two neighbours: the next pixel of the scan and the pixel
// below share each pixel's error one third to two thirds, and a random bit picks which gets
// the larger share. Randomising the split breaks up the worm patterns a fixed two-neighbour
// kernel draws in flat areas.
#include <algorithm>

#include "diffusion/four_level.h"
#include "diffusion/four_level_vector.h"
#include "diffusion/random_split_bands.h"
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
// The same scan as a pass of the random-split row engine (random_split_bands.h): each plane
// draws its split bits a row at a time from its own copy of the generator, the planes of a
// band run in lockstep groups or vector lanes, and a window table hands over each value's
// code, error, third and rest. What makes it this routine is data: one drawn bit a pixel, the
// row's end pixel included; a third one way and the rest the other; curve terms; and a last
// row that carries only right to left. Mirror any change to DiffusePlane here.
using random_split::EndDraw;
constexpr random_split::Split kThirdAlong = {fraction::kThird, fraction::kRestAfterThird};
constexpr random_split::Split kThirdDown = {fraction::kRestAfterThird, fraction::kThird};
constexpr random_split::RowEndRule kEndSplit = {EndDraw::kUsed, {fraction::kRestAfterThird, fraction::kThird}};
constexpr random_split::ScanTraits kSpineScan = {
    .draw_bits = 1,
    .curve_terms = true,
    .splits = {.inner_ltr = {kThirdAlong, kThirdDown},
               .inner_rtl = {kThirdAlong, kThirdDown},
               .last = {kThirdAlong, kThirdDown}},
    .inner_row_end = kEndSplit,
    .ltr_last_end_reads_b = false,
    .last_row_end = kEndSplit,
    .ltr_last_carries = false,
};

struct SpinePass : FourLevelDecision<kSplitDivisor> {
  static constexpr unsigned kBits = 2;
  static constexpr const random_split::ScanTraits& kScan = kSpineScan;
};

}  // namespace

int SerpentineFourLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w,
                        std::size_t h, HalftoneFlags flags) {
  const Band band = Band::Make(src, dst, w, h, flags, 2);
  const FourLevels lv = FourLevels::From(engine.levels);
  const JobSpec spec{.reseed = Reseed::kEveryCall};
  return RunJobBandPlanes(engine, engine.rows, band, spec, [&] {
    if (ForceScalar() || band.w == 0 || band.h == 0) {
      for (unsigned p = 0; p < band.planes; ++p) DiffusePlane(engine, band, p, lv);
      return;
    }
    random_split::ScanBandPlanes(SpinePass{{lv}}, engine, band);
  });
}

}  // namespace halftone
