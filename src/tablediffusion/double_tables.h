// Built-in tables of the double-precision diffusion family: the level bias tables (indexed by
// the 8-bit input level, never by the error) and the diagonal mask.
#pragma once

#include <array>
#include <cstdint>

namespace halftone {

inline constexpr int kLevels = 256;
using LevelBiasTable = std::array<double, kLevels>;

// Bias added to the error at every fourth column; strongest in the midtones, zero at pure
// black and pure white.
extern const LevelBiasTable kQuarterColumnBias;
// Bias added at every second column; like the table above but held longer into the highlights.
extern const LevelBiasTable kHalfColumnBias;
// Bias added at every pixel; nearly twice as strong in the midtones.
extern const LevelBiasTable kEveryColumnBias;

// Which way the diagonal share of a pixel goes: 1 sends it to column x - 1 of the next row,
// 0 to column x + 1. Looked up at (row mod 32, x mod 64).
inline constexpr int kDiagonalMaskRows = 32;
inline constexpr int kDiagonalMaskColumns = 64;
using DiagonalMask = std::array<std::array<std::uint8_t, kDiagonalMaskColumns>, kDiagonalMaskRows>;
extern const DiagonalMask kDiagonalMask;

}  // namespace halftone
