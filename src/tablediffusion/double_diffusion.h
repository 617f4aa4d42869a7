// Bilevel serpentine error diffusion carried in double precision. Every method of the family
// takes one band (planes interleaved row by row), writes one bit a pixel (a set bit is a dot:
// the ink sense, dark input makes dots) and keeps its own rows of 64-bit errors through a job,
// separate from the 16-bit rows of the integer families.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/engine.h"

namespace halftone {

enum class DoubleMethod {
  kRunLength,            // whole error to one neighbour, the neighbour switching in random runs
  kRandomSplit,          // one third / two thirds, a random bit picks which way
  kRandomSplitRowDump,   // kRandomSplit formatting a per-row dump for the diagnostic log
  kRandomSplitPixelDump, // kRandomSplit formatting a per-pixel dump for the diagnostic log
  kQuarterColumnBias,    // level bias at every fourth column, level- and parity-keyed shares
  kToneWeightRow,        // ahead share from the local tone, held in a fourth row
  kHalfColumnBias,       // level bias at every second column, level-keyed shares
  kEveryColumnBias,      // level bias at every pixel, two thirds ahead
  kDiagonal,             // two thirds ahead, one third diagonally down by a banded mask
  kModulated,            // per-level 16 x 16 modulation in the sum, halves
};

// Halftones one band. Zero width or height, and bands outside a started job, are refused
// with kErrOutOfContract before anything is touched; otherwise returns 0.
int DoubleDiffusion(Engine& engine, DoubleMethod method, const std::uint8_t* src, std::uint8_t* dst,
                    std::size_t w, std::size_t h, HalftoneFlags flags);

}  // namespace halftone
