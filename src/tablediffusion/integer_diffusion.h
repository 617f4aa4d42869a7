// Table-driven error diffusion on the 16-bit error rows: the engine-level entry points behind
// the exports, and the bilevel decision the routines share. Every routine takes the band as the
// host hands it over and returns 0, or kErrOutOfContract for a band outside the job contract
// (nothing touched then).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/engine.h"

namespace halftone {

// The bilevel decision: a dot where the value s is at or below kBilevelCut; paper above it,
// which takes kBilevelWhite off the error. No guard for white: negative error arriving at level
// 255 can make a dot there.
inline constexpr int kBilevelCut = 128, kBilevelWhite = 255;
// Sets the dot of column x where s makes one and returns the error.
inline int QuantiseBilevel(int s, std::uint8_t* out, std::size_t x) {
  if (s <= kBilevelCut) {
    PutDot(out, x);
    return s;
  }
  return s - kBilevelWhite;
}

// Serpentine diffusion with a byte bias keyed by the input level, the row share chosen by
// input-level bands; the carry row starts each job slightly dark.
enum class LevelBiasMember {
  kFourLevel,       // four levels 0/85/170/255, carry -13, 2/3 or 3/4 ahead
  kBilevelWide,     // bilevel, carry -25, bias up to 31 over the mid-tones
  kBilevelHalves,   // bilevel, carry -35, bias min(v, 31, 255 - v) on backward rows only, 2/3 or 1/2
  kBilevelLight,    // bilevel, no carry preset, small bias min(v, 8, 255 - v), four level bands
  kBilevelHalving,  // bilevel, plain halving, no bias, no draws
};
int LevelBiasDiffusion(Engine& engine, LevelBiasMember member, const std::uint8_t* src, std::uint8_t* dst,
                       std::size_t w, std::size_t h, HalftoneFlags flags);

// The built-in bias bytes, 256 entries indexed by the input level.
using LevelBiasTable = std::array<std::uint8_t, 256>;
extern const LevelBiasTable kFourLevelBias;    // v up to 54, flat 54, falling to 0 at 255
extern const LevelBiasTable kBilevelWideBias;  // 0 to 104, v - 96 up to 31, flat, 254 - v
extern const LevelBiasTable kBilevelHalvesBias;
extern const LevelBiasTable kBilevelLightBias;

// Bilevel diffusion whose whole error goes to one neighbour, chosen by a per-plane counter
// cycling through 13 steps that persists across bands. At most four planes.
int CyclicDiffusion(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w, std::size_t h,
                    HalftoneFlags flags);

// Diffusion whose bias comes from the current tone curves and, for two members, a tiled bias
// matrix; the four-level members only choose between the two levels around the input.
enum class LevelRestrictedMember {
  kMatrixFourLevel,  // four levels, 256-period bias matrix, halves
  kRandomFourLevel,  // four levels, no matrix, whole error ahead or down by a random bit
  kMatrixBilevel,    // bilevel, 240-period bias matrix, thirds by scan direction
  kRandomBilevel,    // bilevel, no matrix, quarter and third splits by a random bit
};
int LevelRestrictedDiffusion(Engine& engine, LevelRestrictedMember member, const std::uint8_t* src,
                             std::uint8_t* dst, std::size_t w, std::size_t h, HalftoneFlags flags);

// Bilevel halving diffusion modulated by per-level 16 x 16 tiles of the layer table, and its
// sibling that biases with the tone curves and picks the split at random by level band.
enum class LayerModulatedMember { kLayerTiles, kCurveBias };
int LayerModulatedDiffusion(Engine& engine, LayerModulatedMember member, const std::uint8_t* src, std::uint8_t* dst,
                            std::size_t w, std::size_t h, HalftoneFlags flags);

}  // namespace halftone
