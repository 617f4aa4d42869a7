// Built-in threshold matrices of the screens, and the ordered-dither matrix generator.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "screening/tables.h"

namespace halftone {

using Matrix16 = std::array<std::array<std::uint8_t, kBayerSize>, kBayerSize>;

// Dispersed 16 x 16 matrix of the serpentine amplitude screen: values 1..128, each held by two
// cells, rows 8-15 are rows 0-7 with their halves swapped, save row 13: row 5 turned by nine
// places, not eight. Compared as v < 2 * M - 1.
extern const Matrix16 kDispersedAmMatrix;
// Clustered-dot 16 x 16 matrix of the plain amplitude screen: two dots a tile, one growing from
// the centre of each 8 x 8 quadrant pair, built from its first eight rows.
extern const Matrix16 kClusteredAmMatrix;

// The 16 x 16 recursive (Bayer) ordered-dither matrix: the values 0..255 each once, every
// 2 x 2, 4 x 4 and 8 x 8 sub-tile as evenly spread as the level allows.
constexpr Matrix16 BayerMatrix() {
  // Doubling step: D2n = [[4 Dn, 4 Dn + 2], [4 Dn + 3, 4 Dn + 1]].
  constexpr std::uint8_t kQuadrantAdd[2][2] = {{0, 2}, {3, 1}};
  Matrix16 m{};  // m[0][0] = 0 is the 1 x 1 seed; the first doubling gives [[0, 2], [3, 1]]
  for (std::size_t size = 1; size < std::size_t{kBayerSize}; size *= 2) {
    Matrix16 next{};
    for (std::size_t y = 0; y < 2 * size; ++y)
      for (std::size_t x = 0; x < 2 * size; ++x)
        next[y][x] = static_cast<std::uint8_t>(4 * m[y % size][x % size] + kQuadrantAdd[y / size][x / size]);
    m = next;
  }
  return m;
}

}  // namespace halftone
