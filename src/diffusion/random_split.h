// Random-split diffusion routines beyond the spine: grouped four-level, single-dot-size, the
// bilevel family and eight levels. Each takes the engine and one band; zero width or height is
// refused with kErrOutOfContract, as are bands outside a started job.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/engine.h"

namespace halftone {

// Two-bit output, grouped split (whole error or halves), every band carries into the next.
enum class GroupedMethod {
  kLevelValues,    // levels L0..L3 with raw-sample vetoes
  kFixedLevels,    // thresholds 64/128/192, levels 0/85/170/255, no veto
  kSmallDotOnly,   // one drop size, written as code 1
  kMediumDotOnly,  // code 2
  kLargeDotOnly,   // code 3
};
int GroupedFourLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                     HalftoneFlags flags, GroupedMethod method);

// One-bit output.
enum class BilevelMethod {
  kLightnessThirdsCurves,    // lightness, white guard, thirds by a 2-bit draw, tone-curve terms
  kLightnessOneBitJobSeed,   // lightness, white guard, 1-bit draw, seeded only at the start of a job
  kInkThirdsFullGuard,       // ink, full guard, thirds by a 2-bit draw
  kInkQuarters,              // ink, no guard, quarters by a 2-bit draw
  kLightnessWholeError,      // lightness, no guard, whole error to one neighbour by a 1-bit draw
  kInkWholeError,            // ink, no guard, whole error to one neighbour by a 1-bit draw
};
int BilevelRandomSplit(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                       HalftoneFlags flags, BilevelMethod method);

// One plane, every call a whole job: private working rows, nothing carried, the job buffers
// untouched. Lightness, no guard, whole error to one neighbour by a 1-bit draw.
int BilevelSinglePlane(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h);

// Four-bit output, eight drop codes (7 the largest, 0 none).
enum class EightLevelMethod {
  kLevelValues,  // levels L0..L7, restricted by the input sample
  kFixedLevels,  // fixed thresholds and levels on the corrected value alone
};
int EightLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
               HalftoneFlags flags, EightLevelMethod method);

}  // namespace halftone
