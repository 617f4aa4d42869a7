// Serpentine bilevel diffusion through a lookup table that sends each pixel's whole error to
// one of four neighbours by a 2-bit draw; the output is written row for row.
#include <cstring>
#include <vector>

#include "frame/dispatch.h"
#include "rotated/lookup_common.h"
#include "rotated/lookup_diffusion.h"

namespace halftone {
namespace {

using namespace lookup_detail;

// The four places a 2-bit draw can send the error, named from the scan's point of view.
enum Direction : unsigned {
  kAlong = 0,        // next pixel of the same row
  kBelowAhead = 1,   // row below, one pixel further in scan order
  kBelow = 2,        // straight below
  kBelowBehind = 3,  // row below, one pixel back in scan order
};
inline constexpr unsigned kDirectionMask = 3u;

// The fast path of FourWayLookupDiffusion: the error sent along the row stays in a register,
// and between a row's first and last pixel every target is in place, so each draw selects its
// error without a branch. Rows' ends and the last row take the guarded pixel, as the reference.
void FourWayFast(const LookupPlane& plane, CrtRand& caller_rng, std::uint32_t seed) {
  const std::size_t w = static_cast<std::size_t>(plane.w);
  const std::size_t h = static_cast<std::size_t>(plane.h);
  const std::size_t stride = RasterStride(w);
  const std::size_t out_stride = BitRowBytes(w);
  const std::int32_t* lookup = plane.lookup;

  std::vector<std::int32_t> row_a(w);
  std::vector<std::int32_t> row_b(w);
  for (std::size_t x = 0; x < w; ++x) row_a[x] = lookup[plane.src[x]];
  std::memset(plane.dst, 0, h * out_stride);
  CrtRand rng = caller_rng;
  rng.Seed(seed);

  for (std::size_t y = 0; y < h; ++y) {
    const bool forward = y % 2 == 0;
    const bool has_below = y + 1 < h;
    const std::int32_t* cur = forward ? row_a.data() : row_b.data();
    std::int32_t* next = forward ? row_b.data() : row_a.data();
    const std::uint8_t* below = has_below ? plane.src + (y + 1) * stride : nullptr;
    std::uint8_t* out = plane.dst + y * out_stride;
    std::int32_t along = 0;  // what the previous pixel of the scan sent along the row

    // Pixel i of the scan with every boundary checked.
    auto guarded = [&](std::size_t i) {
      const std::size_t x = forward ? i : w - 1 - i;
      const bool has_ahead = i + 1 < w;
      const bool has_behind = i > 0;
      const std::size_t ahead = forward ? x + 1 : x - 1;
      const std::size_t behind = forward ? x - 1 : x + 1;
      const Quantised q = Quantise(AddWrapped(cur[x], along));
      if (q.dot) PutDot(out, x);
      if (has_below) {
        if (has_ahead) next[ahead] = lookup[below[ahead]];
        if (i == 0) next[x] = lookup[below[x]];
      }
      const unsigned d = rng.Next() & kDirectionMask;
      along = has_ahead && d == kAlong ? q.error : 0;
      if (has_below) {
        if (d == kBelowAhead && has_ahead) next[ahead] = AddWrapped(next[ahead], q.error);
        if (d == kBelow) next[x] = AddWrapped(next[x], q.error);
        if (d == kBelowBehind && has_behind) next[behind] = AddWrapped(next[behind], q.error);
      }
    };
    // Pixel x, neither first nor last of the scan, with a row below.
    auto inner = [&](std::size_t x, std::size_t ahead, std::size_t behind) {
      const Quantised q = Quantise(AddWrapped(cur[x], along));
      OrDot(out, x, q.dot);
      const unsigned d = rng.Next() & kDirectionMask;
      along = ErrorIf(d == kAlong, q.error);
      next[ahead] = AddWrapped(lookup[below[ahead]], ErrorIf(d == kBelowAhead, q.error));
      next[x] = AddWrapped(next[x], ErrorIf(d == kBelow, q.error));
      next[behind] = AddWrapped(next[behind], ErrorIf(d == kBelowBehind, q.error));
    };

    if (!has_below || w < 3) {
      for (std::size_t i = 0; i < w; ++i) guarded(i);
      continue;
    }
    guarded(0);
    if (forward)
      for (std::size_t x = 1; x + 1 < w; ++x) inner(x, x + 1, x - 1);
    else
      for (std::size_t x = w - 2; x > 0; --x) inner(x, x - 1, x + 1);
    guarded(w - 1);
  }
  caller_rng = rng;
}

}  // namespace

int FourWayLookupDiffusion(const LookupPlane& plane, CrtRand& rng, std::uint32_t seed) {
  if (!lookup_detail::Admissible(plane)) return kErrOutOfContract;
  if (!ForceScalar()) {
    FourWayFast(plane, rng, seed);
    return kOk;
  }
  const std::size_t w = static_cast<std::size_t>(plane.w);
  const std::size_t h = static_cast<std::size_t>(plane.h);
  const std::size_t stride = RasterStride(w);
  const std::size_t out_stride = BitRowBytes(w);
  const std::int32_t* lookup = plane.lookup;

  // Every entry of the row below is loaded before any error lands on it, so the rows need no
  // clearing.
  std::vector<std::int32_t> row_a(w);
  std::vector<std::int32_t> row_b(w);
  for (std::size_t x = 0; x < w; ++x) row_a[x] = lookup[plane.src[x]];
  std::memset(plane.dst, 0, h * out_stride);
  rng.Seed(seed);

  for (std::size_t y = 0; y < h; ++y) {
    const bool forward = y % 2 == 0;
    const bool has_below = y + 1 < h;
    std::int32_t* cur = forward ? row_a.data() : row_b.data();
    std::int32_t* next = forward ? row_b.data() : row_a.data();
    const std::uint8_t* below = has_below ? plane.src + (y + 1) * stride : nullptr;
    std::uint8_t* out = plane.dst + y * out_stride;
    for (std::size_t i = 0; i < w; ++i) {
      const std::size_t x = forward ? i : w - 1 - i;
      const bool has_ahead = i + 1 < w;  // a pixel follows in scan order
      const bool has_behind = i > 0;     // a pixel precedes in scan order
      const std::size_t ahead = forward ? x + 1 : x - 1;
      const std::size_t behind = forward ? x - 1 : x + 1;

      const Quantised q = Quantise(cur[x]);
      if (q.dot) PutDot(out, x);
      // The row below is looked up one pixel ahead of the scan, so "below and ahead" finds
      // its sample already in place; the first pixel of the row also loads its own.
      if (has_below) {
        if (has_ahead) next[ahead] = lookup[below[ahead]];
        if (i == 0) next[x] = lookup[below[x]];
      }
      // required: a missing target drops the error; it is never sent elsewhere.
      switch (rng.Next() & kDirectionMask) {
        case kAlong:
          if (has_ahead) cur[ahead] = AddWrapped(cur[ahead], q.error);
          break;
        case kBelowAhead:
          if (has_ahead && has_below) next[ahead] = AddWrapped(next[ahead], q.error);
          break;
        case kBelow:
          if (has_below) next[x] = AddWrapped(next[x], q.error);
          break;
        case kBelowBehind:
          if (has_behind && has_below) next[behind] = AddWrapped(next[behind], q.error);
          break;
      }
    }
  }
  return kOk;
}

}  // namespace halftone
