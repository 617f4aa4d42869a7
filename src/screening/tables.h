// The process-wide screening tables: zero until a loader fills them, never freed.
#pragma once

#include <array>
#include <cstdint>

namespace halftone {

inline constexpr int kMatrixSize = 256;      // bitmap and bias matrices, pattern tiles
inline constexpr int kPatternSlots = 256;    // one pattern per input level
inline constexpr int kMonoRowBytes = 32;     // 256 pixels at 1 bit
inline constexpr int kDuoRowBytes = 64;      // 256 pixels at 2 bits
inline constexpr int kLayerCount = 256;      // one 16 x 16 tile per input level
inline constexpr int kLayerTile = 16;
inline constexpr int kBayerSize = 16;
inline constexpr int kPlaneRowCounterCount = 12;

// Width, height and bytes a row of the pattern stack the last pattern loader described.
struct PatternGeometry {
  std::int32_t width = 256;
  std::int32_t height = 256;
  std::int32_t bytes_per_row = 32;
};

// Masks that merge partial bytes at the ends of a run: head[k] keeps the first k pixel
// positions of a byte, tail[k] the positions from k on. Written by the pattern loaders.
struct EdgeMasks {
  std::array<std::uint8_t, 8> head{};
  std::array<std::uint8_t, 8> tail{};
};

// Every member's default is zero but the pattern geometry's (SetNonZeroDefaults): the engine
// keeps the tables in zero-filled pages and sets only those.
struct ScreeningTables {
  // Threshold bitmap, row-major, 256 bytes a row (the pixel value is the threshold).
  std::array<std::array<std::uint8_t, kMatrixSize>, kMatrixSize> bitmap{};
  // Signed bias derived from the bitmap, added to the value the next row will quantise.
  std::array<std::array<std::int16_t, kMatrixSize>, kMatrixSize> bias{};
  // One 256 x 256 dot pattern per input level: 1 bit and 2 bits a pixel.
  std::array<std::array<std::array<std::uint8_t, kMonoRowBytes>, kMatrixSize>, kPatternSlots> mono{};
  std::array<std::array<std::array<std::uint8_t, kDuoRowBytes>, kMatrixSize>, kPatternSlots> duo{};
  // Counts the loads that wrote the pattern stacks, so copies made of them (PatternRowBlocks)
  // know when they are stale. Code that writes the stacks after a screen has read them bumps it.
  std::uint32_t pattern_generation = 0;
  PatternGeometry geometry{};
  EdgeMasks masks{};
  // Per-level 16 x 16 modulation tiles: 16-bit (loaded from the text table) and double
  // (never filled by a loader; stays zero).
  std::array<std::array<std::array<std::int16_t, kLayerTile>, kLayerTile>, kLayerCount> layers{};
  std::array<std::array<std::array<double, kLayerTile>, kLayerTile>, kLayerCount> layers_double{};
  std::array<std::array<std::uint8_t, kBayerSize>, kBayerSize> bayer{};
  // Rows screened per plane by the clustered-dot screens; grows for the life of the process.
  std::array<std::uint32_t, kPlaneRowCounterCount> plane_row_counters{};
};

inline void SetNonZeroDefaults(ScreeningTables& t) { t.geometry = PatternGeometry{}; }

}  // namespace halftone
