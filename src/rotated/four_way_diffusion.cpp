// Serpentine bilevel diffusion through a lookup table that sends each pixel's whole error to
// one of four neighbours by a 2-bit draw; the output is written row for row.
#include <cstring>
#include <vector>

#include "rotated/lookup_common.h"
#include "rotated/lookup_diffusion.h"

namespace halftone {
namespace {

using lookup_detail::AddWrapped;
using lookup_detail::BitRowBytes;
using lookup_detail::Quantise;
using lookup_detail::Quantised;

// The four places a 2-bit draw can send the error, named from the scan's point of view.
enum Direction : unsigned {
  kAlong = 0,        // next pixel of the same row
  kBelowAhead = 1,   // row below, one pixel further in scan order
  kBelow = 2,        // straight below
  kBelowBehind = 3,  // row below, one pixel back in scan order
};
inline constexpr unsigned kDirectionMask = 3u;

}  // namespace

int FourWayLookupDiffusion(const LookupPlane& plane, CrtRand& rng, std::uint32_t seed) {
  if (!lookup_detail::Admissible(plane)) return kErrOutOfContract;
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
