// Shared set-up of the table-driven diffusion tests: an engine of their own (it is large, so on
// the heap), a pinned clock, and bands built from flat or listed rows.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "frame/band.h"
#include "frame/engine.h"

namespace halftone::testing {

inline std::unique_ptr<Engine> MakeEngine(long long seconds = 1002) {
  auto e = std::make_unique<Engine>();
  e->clock.SetFixed(seconds);
  return e;
}

inline HalftoneFlags Flags(unsigned planes, unsigned phase) { return HalftoneFlags{(planes << 8) | (phase << 16)}; }

// A band of `planes` planes, each row given by `level(x, y, p)`.
template <class Level>
std::vector<std::uint8_t> MakeSource(std::size_t w, std::size_t h, unsigned planes, Level level) {
  const std::size_t stride = RasterStride(w);
  std::vector<std::uint8_t> src(stride * h * planes, 0);
  for (std::size_t y = 0; y < h; ++y)
    for (unsigned p = 0; p < planes; ++p)
      for (std::size_t x = 0; x < w; ++x) src[(y * planes + p) * stride + x] = static_cast<std::uint8_t>(level(x, y, p));
  return src;
}

inline std::vector<std::uint8_t> Flat(std::size_t w, std::size_t h, unsigned planes, int v) {
  return MakeSource(w, h, planes, [v](std::size_t, std::size_t, unsigned) { return v; });
}

inline std::vector<std::uint8_t> OutputFor(std::size_t w, std::size_t h, unsigned planes, unsigned bits) {
  return std::vector<std::uint8_t>(DotStride(w, bits) * h * planes, 0xEE);  // not cleared: must be
}

// 2-bit code of pixel x in a dot row.
inline unsigned Code2(const std::uint8_t* row, std::size_t x) { return (row[x >> 2] >> (6 - 2 * (x & 3))) & 3u; }
inline bool Dot(const std::uint8_t* row, std::size_t x) { return (row[x >> 3] >> (7 - (x & 7))) & 1u; }

}  // namespace halftone::testing
