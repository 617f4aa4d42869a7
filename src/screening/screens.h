// Pattern-stack and threshold-matrix screens over the loaded screening tables.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/engine.h"

namespace halftone {

// Which pattern screen: they differ in the stack they read and where its geometry comes from.
enum class PatternScreen {
  kMonoLoadedGeometry,  // 1 bit, pattern width, height and row length as last loaded
  kMonoFixed,           // 1 bit, 256 x 256 patterns of 32 bytes a row
  kDuoFixed,            // 2 bits, 256 x 256 patterns of 64 bytes a row
};

// Copies, for each run of equal samples, the pattern of that level a byte at a time. Returns 0,
// or kErrOutOfContract for a loaded geometry the pattern screens cannot tile.
int ScreenWithPatterns(Engine& engine, PatternScreen screen, const std::uint8_t* src, std::uint8_t* dst,
                       std::size_t w, std::size_t h, HalftoneFlags flags);

// Which threshold screen.
enum class ThresholdScreen {
  kBitmap,         // the loaded 256 x 256 bitmap, shifted 16 pixels diagonally per plane; v <= M
  kBayer,          // the 16 x 16 ordered-dither matrix; v < M
  kClusteredAm,    // the built-in clustered 16 x 16 tile; v < 2M - 1; counts rows per plane
};

// Returns 0, or kErrOutOfContract when the clustered screen gets more planes than it counts.
int ScreenWithThresholds(Engine& engine, ThresholdScreen screen, const std::uint8_t* src, std::uint8_t* dst,
                         std::size_t w, std::size_t h, HalftoneFlags flags);

// The dispersed 16 x 16 amplitude screen run as a serpentine job over the 16-bit job rows.
// Returns 0, or kErrOutOfContract for a band outside its job or with more than 12 planes.
int ScreenDispersedAmJob(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                         HalftoneFlags flags);

}  // namespace halftone
