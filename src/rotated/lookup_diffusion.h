// Bilevel diffusion of one plane through a caller-supplied table of input levels, with the
// C runtime's rand() choosing where each pixel's error goes. Six members hand the dots back
// turned a quarter, transposed or flipped; the four-way member writes them row for row.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rotated/crt_rand.h"

namespace halftone {

// One plane as the host hands it over. src rows are RasterStride(w) bytes apart; lookup has
// 256 entries indexed by the input level.
struct LookupPlane {
  const std::uint8_t* src = nullptr;
  std::uint8_t* dst = nullptr;
  int w = 0;
  int h = 0;
  const std::int32_t* lookup = nullptr;
};

// Where the serpentine diffusion puts its dots; each member is one of these.
enum class RotatedMember {
  kTurnedLastRowFlat,      // quarter turn; the last input row unturned at row h - 1 of a w-wide plane
  kTransposedLastRowFlat,  // transpose; the last input row unturned likewise
  kTurned,                 // quarter turn of every row
  kTransposed,             // transpose of every row
  kRowsReversed,           // no turn, output rows in reverse order
  kMixed,                  // forward rows straight, backward and last rows reversed and bit-mirrored
};

// Bytes of output a member clears: w rows of ((h + 31) >> 5) * 4 bytes for the turned and
// transposed members, h rows of ((w + 31) >> 5) * 4 bytes for the others.
std::size_t RotatedClearedBytes(RotatedMember member, std::size_t w, std::size_t h);

// Bytes the caller's buffer must hold: the cleared bytes, and for the two members that write
// the last input row unturned also h rows of ((w + 31) >> 5) * 4 bytes.
std::size_t RotatedBufferBytes(RotatedMember member, std::size_t w, std::size_t h);

// Seeds `rng` with `seed`, diffuses the plane and writes the member's layout. Returns 0, or
// kErrOutOfContract (nothing touched) for a non-positive size or a null pointer.
int RotatedLookupDiffusion(RotatedMember member, const LookupPlane& plane, CrtRand& rng, std::uint32_t seed);

// The four-way member: each pixel's whole error goes to one of four neighbours by a 2-bit
// draw; output h rows of ((w + 31) >> 5) * 4 bytes. Same seeding and refusals.
int FourWayLookupDiffusion(const LookupPlane& plane, CrtRand& rng, std::uint32_t seed);

}  // namespace halftone
