// What the lookup-table diffusion routines share: the dot decision on looked-up levels and
// the error arithmetic.
#pragma once

#include <cstdint>

#include "frame/band.h"
#include "rotated/lookup_diffusion.h"

namespace halftone::lookup_detail {

// Looked-up levels below this print a dot; the ink scale runs 0 (full ink) .. 255 (paper).
inline constexpr std::int32_t kDotBelow = 129;
// A pixel left blank carries the difference to paper white.
inline constexpr std::int32_t kPaper = 255;

// The error a pixel passes on: its whole value when it printed (the dot stands for 0), the
// distance to paper otherwise. A looked-up 128 prints and passes +128; 129 passes -126.
struct Quantised {
  bool dot;
  std::int32_t error;
};
inline Quantised Quantise(std::int32_t v) {
  if (v < kDotBelow) return {true, v};
  return {false, v - kPaper};
}

// Lookup tables may hold any 32-bit value; sums wrap as 32-bit machine arithmetic does
// instead of overflowing.
inline std::int32_t AddWrapped(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// `e` where `c` holds, else 0, without a branch: the fast paths select every error this way,
// since which way a random draw sends it is not predictable.
inline std::int32_t ErrorIf(bool c, std::int32_t e) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(e) & (0u - static_cast<std::uint32_t>(c)));
}

// ORs `dot` (0 or 1) in as pixel x of a dot row.
inline void OrDot(std::uint8_t* row, std::size_t x, bool dot) {
  row[x >> 3] = static_cast<std::uint8_t>(row[x >> 3] | (static_cast<unsigned>(dot) << (7 - (x & 7))));
}

inline bool Admissible(const LookupPlane& p) {
  return p.w > 0 && p.h > 0 && p.src != nullptr && p.dst != nullptr && p.lookup != nullptr;
}

// Bytes of a one-bit row of n pixels, rounded up to whole 32-bit words.
constexpr std::size_t BitRowBytes(std::size_t n) { return DotStride(n, 1); }

}  // namespace halftone::lookup_detail
