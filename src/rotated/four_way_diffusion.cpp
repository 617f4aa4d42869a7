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

// One row of the scan: row y of the plane, its output row and the lookup row below.
struct FourWayRow {
  std::size_t w;
  bool forward;
  bool has_below;
  std::int32_t* cur;
  std::int32_t* next;
  const std::uint8_t* below;
  const std::int32_t* lookup;
  std::uint8_t* out;
};

// Pixel i of the row's scan, every boundary checked.
void GuardedPixel(const FourWayRow& r, std::size_t i, CrtRand& rng) {
  const std::size_t x = r.forward ? i : r.w - 1 - i;
  const bool has_ahead = i + 1 < r.w;  // a pixel follows in scan order
  const bool has_behind = i > 0;       // a pixel precedes in scan order
  const std::size_t ahead = r.forward ? x + 1 : x - 1;
  const std::size_t behind = r.forward ? x - 1 : x + 1;

  const Quantised q = Quantise(r.cur[x]);
  if (q.dot) PutDot(r.out, x);
  // The row below is looked up one pixel ahead of the scan, so "below and ahead" finds its
  // sample already in place; the first pixel of the row also loads its own.
  if (r.has_below) {
    if (has_ahead) r.next[ahead] = r.lookup[r.below[ahead]];
    if (i == 0) r.next[x] = r.lookup[r.below[x]];
  }
  // required: a missing target drops the error; it is never sent elsewhere.
  switch (rng.Next() & kDirectionMask) {
    case kAlong:
      if (has_ahead) r.cur[ahead] = AddWrapped(r.cur[ahead], q.error);
      break;
    case kBelowAhead:
      if (has_ahead && r.has_below) r.next[ahead] = AddWrapped(r.next[ahead], q.error);
      break;
    case kBelow:
      if (r.has_below) r.next[x] = AddWrapped(r.next[x], q.error);
      break;
    case kBelowBehind:
      if (has_behind && r.has_below) r.next[behind] = AddWrapped(r.next[behind], q.error);
      break;
  }
}

// The fast form of a row with a row below and at least three pixels: between the first and
// the last pixel every target is in place, so each draw selects its error without a branch,
// and the error sent along the row stays in a register. The ends are guarded pixels.
void InnerRowFast(const FourWayRow r, CrtRand& rng) {
  GuardedPixel(r, 0, rng);
  std::int32_t along = 0;  // what the previous pixel of the scan sent along the row
  auto inner = [&](std::size_t x, std::size_t ahead, std::size_t behind) {
    const Quantised q = Quantise(AddWrapped(r.cur[x], along));
    OrDot(r.out, x, q.dot);
    const unsigned d = rng.Next() & kDirectionMask;
    along = ErrorIf(d == kAlong, q.error);
    r.next[ahead] = AddWrapped(r.lookup[r.below[ahead]], ErrorIf(d == kBelowAhead, q.error));
    r.next[x] = AddWrapped(r.next[x], ErrorIf(d == kBelow, q.error));
    r.next[behind] = AddWrapped(r.next[behind], ErrorIf(d == kBelowBehind, q.error));
  };
  const std::size_t last = r.forward ? r.w - 1 : 0;
  if (r.forward)
    for (std::size_t x = 1; x + 1 < r.w; ++x) inner(x, x + 1, x - 1);
  else
    for (std::size_t x = r.w - 2; x > 0; --x) inner(x, x - 1, x + 1);
  r.cur[last] = AddWrapped(r.cur[last], along);
  GuardedPixel(r, r.w - 1, rng);
}

}  // namespace

int FourWayLookupDiffusion(const LookupPlane& plane, CrtRand& caller_rng, std::uint32_t seed) {
  if (!lookup_detail::Admissible(plane)) return kErrOutOfContract;
  const bool fast = !ForceScalar();
  const std::size_t w = static_cast<std::size_t>(plane.w);
  const std::size_t h = static_cast<std::size_t>(plane.h);
  const std::size_t stride = RasterStride(w);
  const std::size_t out_stride = BitRowBytes(w);

  // Every entry of the row below is loaded before any error lands on it, so the rows need no
  // clearing.
  std::vector<std::int32_t> row_a(w);
  std::vector<std::int32_t> row_b(w);
  for (std::size_t x = 0; x < w; ++x) row_a[x] = plane.lookup[plane.src[x]];
  std::memset(plane.dst, 0, h * out_stride);
  CrtRand rng = caller_rng;  // a local copy: the generator stays in registers
  rng.Seed(seed);

  for (std::size_t y = 0; y < h; ++y) {
    const bool forward = y % 2 == 0;
    const bool has_below = y + 1 < h;
    const FourWayRow row{w,
                         forward,
                         has_below,
                         forward ? row_a.data() : row_b.data(),
                         forward ? row_b.data() : row_a.data(),
                         has_below ? plane.src + (y + 1) * stride : nullptr,
                         plane.lookup,
                         plane.dst + y * out_stride};
    if (fast && has_below && w >= 3) {
      InnerRowFast(row, rng);
      continue;
    }
    for (std::size_t i = 0; i < w; ++i) GuardedPixel(row, i, rng);
  }
  caller_rng = rng;
  return kOk;
}

}  // namespace halftone
