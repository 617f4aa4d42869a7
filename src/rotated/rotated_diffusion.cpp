// Serpentine bilevel diffusion through a lookup table, handed back turned, transposed or
// flipped. One pass serves all six members; a member is only where its dots land.
#include <algorithm>
#include <cstring>
#include <vector>

#include "frame/dispatch.h"
#include "rotated/lookup_common.h"
#include "rotated/lookup_diffusion.h"

namespace halftone {
namespace {

using namespace lookup_detail;

// The draw's lowest bit: 1 sends the error straight down, 0 along the row.
inline constexpr unsigned kDownBit = 1u;
inline constexpr std::size_t kBitsPerByte = 8;

// The caller's output buffer and the two row lengths a member may lay it out with.
struct Placement {
  std::uint8_t* dst;
  std::size_t w;
  std::size_t h;
  std::size_t column_row_bytes;  // an output row holding one input column: h pixels
  std::size_t flat_row_bytes;    // an output row holding one input row: w pixels

  // Each place ORs in `dot` (0 or 1), set or not: the fast path places without a branch.
  // Input (x, y) turned a quarter: output row w - 1 - x, column h - 1 - y.
  void Turned(std::size_t x, std::size_t y, bool dot) const {
    OrDot(dst + (w - 1 - x) * column_row_bytes, h - 1 - y, dot);
  }
  // Input (x, y) transposed: output row x, column y.
  void Transposed(std::size_t x, std::size_t y, bool dot) const { OrDot(dst + x * column_row_bytes, y, dot); }
  // Input (x, y) at output row `out_row` of the unturned layout, column x.
  void Flat(std::size_t out_row, std::size_t x, bool dot) const { OrDot(dst + out_row * flat_row_bytes, x, dot); }
  // required: backward rows of the mixed member go to output row h - 1 - y with the byte
  // order mirrored but the bit inside the byte set by x and the height, counted from the
  // least significant bit. Not a mirror image; it is what hosts of this member expect.
  void MirroredByHeight(std::size_t x, std::size_t y, bool dot) const {
    const std::size_t bit = (x + kBitsPerByte - h % kBitsPerByte) % kBitsPerByte;
    std::uint8_t& byte = dst[(h - 1 - y) * flat_row_bytes + (w - 1 - x) / kBitsPerByte];
    byte = static_cast<std::uint8_t>(byte | (static_cast<unsigned>(dot) << bit));
  }
};

// Member traits: kMember names the member, Body places a dot of rows 0 .. h - 2, Last a dot of
// row h - 1.
struct TurnedLastRowFlat {
  static constexpr RotatedMember kMember = RotatedMember::kTurnedLastRowFlat;
  static void Body(const Placement& p, std::size_t x, std::size_t y, bool, bool dot) { p.Turned(x, y, dot); }
  // required: the last input row is not turned but written as row h - 1 of a w-wide plane,
  // over the turned rows; output column 0 thus never receives a turned dot.
  static void Last(const Placement& p, std::size_t x, std::size_t y, bool dot) { p.Flat(y, x, dot); }
};
struct TransposedLastRowFlat {
  static constexpr RotatedMember kMember = RotatedMember::kTransposedLastRowFlat;
  static void Body(const Placement& p, std::size_t x, std::size_t y, bool, bool dot) { p.Transposed(x, y, dot); }
  // required: as above; output column h - 1 stays empty of transposed dots.
  static void Last(const Placement& p, std::size_t x, std::size_t y, bool dot) { p.Flat(y, x, dot); }
};
struct TurnedAll {
  static constexpr RotatedMember kMember = RotatedMember::kTurned;
  static void Body(const Placement& p, std::size_t x, std::size_t y, bool, bool dot) { p.Turned(x, y, dot); }
  static void Last(const Placement& p, std::size_t x, std::size_t y, bool dot) { p.Turned(x, y, dot); }
};
struct TransposedAll {
  static constexpr RotatedMember kMember = RotatedMember::kTransposed;
  static void Body(const Placement& p, std::size_t x, std::size_t y, bool, bool dot) { p.Transposed(x, y, dot); }
  static void Last(const Placement& p, std::size_t x, std::size_t y, bool dot) { p.Transposed(x, y, dot); }
};
struct RowsReversed {
  static constexpr RotatedMember kMember = RotatedMember::kRowsReversed;
  static void Body(const Placement& p, std::size_t x, std::size_t y, bool, bool dot) { p.Flat(p.h - 1 - y, x, dot); }
  static void Last(const Placement& p, std::size_t x, std::size_t y, bool dot) { p.Flat(p.h - 1 - y, x, dot); }
};
struct Mixed {
  static constexpr RotatedMember kMember = RotatedMember::kMixed;
  // required: forward rows go straight to their own output row, backward rows elsewhere;
  // rows that meet on one output row are OR-ed together.
  static void Body(const Placement& p, std::size_t x, std::size_t y, bool forward, bool dot) {
    if (forward)
      p.Flat(y, x, dot);
    else
      p.MirroredByHeight(x, y, dot);
  }
  static void Last(const Placement& p, std::size_t x, std::size_t y, bool dot) { p.MirroredByHeight(x, y, dot); }
};

// The fast form of a row with a row below: the error sent along the row stays in a register,
// and the draw and the dot select without branches. Same dots, same draws as the reference's
// row in DiffusePlane. `out` is a copy: dot stores could alias the caller's, which would reload
// it at every pixel.
template <class Member>
void BodyRowFast(const Placement out, std::size_t y, bool forward, const std::int32_t* cur, std::int32_t* next,
                 const std::uint8_t* below, const std::int32_t* lookup, CrtRand& rng) {
  const std::size_t w = out.w;
  std::int32_t along = 0;  // what the previous pixel of the scan sent along the row
  auto step = [&](std::size_t x) {
    const Quantised q = Quantise(AddWrapped(cur[x], along));
    Member::Body(out, x, y, forward, q.dot);
    const bool down = (rng.Next() & kDownBit) != 0;
    next[x] = AddWrapped(lookup[below[x]], ErrorIf(down, q.error));
    along = ErrorIf(!down, q.error);  // dropped after the row's last pixel
  };
  if (forward)
    for (std::size_t x = 0; x < w; ++x) step(x);
  else
    for (std::size_t x = w; x-- > 0;) step(x);
}

// Serpentine over the plane: even rows left to right, odd rows right to left. The row below
// is looked up as the scan passes over it, then takes the error when the draw says "down";
// otherwise the error goes to the following pixel of the row, and is lost at the row's end.
// The dots are OR-ed straight into the cleared output: OR-ing commutes, so this equals
// staging the plane and turning it afterwards. kFast runs the rows with a row below through
// BodyRowFast; the generator runs on a local copy either way.
template <class Member, bool kFast>
void DiffusePlane(const LookupPlane& plane, CrtRand& caller_rng, std::uint32_t seed) {
  const std::size_t w = static_cast<std::size_t>(plane.w);
  const std::size_t h = static_cast<std::size_t>(plane.h);
  const std::size_t stride = RasterStride(w);
  const std::int32_t* lookup = plane.lookup;
  std::vector<std::int32_t> row_a(w);
  std::vector<std::int32_t> row_b(w);

  const Placement out{plane.dst, w, h, BitRowBytes(h), BitRowBytes(w)};
  // required: only the member's own area is cleared; the unturned last row of the
  // *LastRowFlat members may reach past it into bytes the caller provides.
  std::memset(out.dst, 0, RotatedClearedBytes(Member::kMember, w, h));
  CrtRand rng = caller_rng;
  rng.Seed(seed);
  for (std::size_t x = 0; x < w; ++x) row_a[x] = lookup[plane.src[x]];

  std::size_t y = 0;
  for (; y + 1 < h; ++y) {
    const bool forward = y % 2 == 0;
    std::int32_t* cur = forward ? row_a.data() : row_b.data();
    std::int32_t* next = forward ? row_b.data() : row_a.data();
    const std::uint8_t* below = plane.src + (y + 1) * stride;
    if constexpr (kFast) {
      BodyRowFast<Member>(out, y, forward, cur, next, below, lookup, rng);
      continue;
    }
    for (std::size_t i = 0; i < w; ++i) {
      const std::size_t x = forward ? i : w - 1 - i;
      const Quantised q = Quantise(cur[x]);
      if (q.dot) Member::Body(out, x, y, forward, true);
      next[x] = lookup[below[x]];
      if (rng.Next() & kDownBit) {
        next[x] = AddWrapped(next[x], q.error);
      } else if (i + 1 < w) {
        const std::size_t ahead = forward ? x + 1 : x - 1;
        cur[ahead] = AddWrapped(cur[ahead], q.error);
      }  // required: at the end of the row the error is dropped, not turned downwards
    }
  }

  // The last row continues the serpentine. With no row below, "down" drops the error, but
  // every pixel still draws so the sequence stays aligned.
  const bool forward = y % 2 == 0;
  std::int32_t* cur = forward ? row_a.data() : row_b.data();
  for (std::size_t i = 0; i < w; ++i) {
    const std::size_t x = forward ? i : w - 1 - i;
    const Quantised q = Quantise(cur[x]);
    if (q.dot) Member::Last(out, x, y, true);
    if ((rng.Next() & kDownBit) == 0 && i + 1 < w) {
      const std::size_t ahead = forward ? x + 1 : x - 1;
      cur[ahead] = AddWrapped(cur[ahead], q.error);
    }
  }
  caller_rng = rng;
}

template <class Member>
void DiffusePlaneChosen(const LookupPlane& plane, CrtRand& rng, std::uint32_t seed) {
  if (ForceScalar())
    DiffusePlane<Member, false>(plane, rng, seed);
  else
    DiffusePlane<Member, true>(plane, rng, seed);
}

}  // namespace

// The turned and transposed members lay an input column on each output row, the others an
// input row.
std::size_t RotatedClearedBytes(RotatedMember member, std::size_t w, std::size_t h) {
  const bool flat = member == RotatedMember::kRowsReversed || member == RotatedMember::kMixed;
  return flat ? h * BitRowBytes(w) : w * BitRowBytes(h);
}

std::size_t RotatedBufferBytes(RotatedMember member, std::size_t w, std::size_t h) {
  const std::size_t cleared = RotatedClearedBytes(member, w, h);
  const bool last_row_flat =
      member == RotatedMember::kTurnedLastRowFlat || member == RotatedMember::kTransposedLastRowFlat;
  return last_row_flat ? std::max(cleared, h * BitRowBytes(w)) : cleared;
}

int RotatedLookupDiffusion(RotatedMember member, const LookupPlane& plane, CrtRand& rng, std::uint32_t seed) {
  if (!lookup_detail::Admissible(plane)) return kErrOutOfContract;
  switch (member) {
    case RotatedMember::kTurnedLastRowFlat:
      DiffusePlaneChosen<TurnedLastRowFlat>(plane, rng, seed);
      break;
    case RotatedMember::kTransposedLastRowFlat:
      DiffusePlaneChosen<TransposedLastRowFlat>(plane, rng, seed);
      break;
    case RotatedMember::kTurned:
      DiffusePlaneChosen<TurnedAll>(plane, rng, seed);
      break;
    case RotatedMember::kTransposed:
      DiffusePlaneChosen<TransposedAll>(plane, rng, seed);
      break;
    case RotatedMember::kRowsReversed:
      DiffusePlaneChosen<RowsReversed>(plane, rng, seed);
      break;
    case RotatedMember::kMixed:
      DiffusePlaneChosen<Mixed>(plane, rng, seed);
      break;
    default:
      return kErrOutOfContract;
  }
  return kOk;
}

}  // namespace halftone
