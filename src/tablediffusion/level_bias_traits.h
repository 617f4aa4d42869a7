// The members of the level-keyed bias diffusion as data: their quantiser, carry preset, bias
// table and columns, and the split rule of each input-level band per scan direction. Shared by
// the readable pass (level_bias.cpp) and its fast path (level_bias_fast.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "tablediffusion/error_shares.h"
#include "tablediffusion/integer_diffusion.h"

namespace halftone::level_bias {

// A band of input levels sharing one split rule; the lowest level of a band differs between
// forward and backward rows for most members.
struct LevelBand {
  int lowest_ltr;
  int lowest_rtl;
  ShareChoice choice;
};

struct LevelBiasTraits {
  unsigned bits;                // 1: bilevel at 128; 2: four levels 0/85/170/255
  std::int16_t carry_preset;    // every carry entry at the start of a job
  const LevelBiasTable* bias;   // null: no bias
  bool bias_ltr_even;           // bias added at even columns of forward rows
  bool bias_rtl_odd;            // bias added at odd columns of backward rows
  std::size_t band_count;
  std::array<LevelBand, 4> bands;  // lightest band first; the last band starts at level 0
};

inline constexpr Fraction kTwoThirds{2, 3};
inline constexpr Fraction kThreeQuartersFloor{3, 4, false, Rounding::kFloor};
inline constexpr Fraction kHalfFloor{1, 2, false, Rounding::kFloor};
inline constexpr Fraction kHalfTrunc{1, 2};

constexpr ShareChoice ByParity(Fraction even, Fraction odd) { return {Selector::kParity, {even, odd, even, odd}}; }

// The four-level and the wide bilevel member split alike. required: the band limits differ
// between the two scan directions (216/166 forward against 213/185 or 213/179 backward).
inline constexpr std::array<LevelBand, 4> kThreeQuarterBands{{{216, 213, ByParity(kTwoThirds, kThreeQuartersFloor)},
                                                              {166, 185, ByBit(kTwoThirds, kThreeQuartersFloor)},
                                                              {0, 0, ByBit(kHalfFloor, fraction::kAll)}}};
inline constexpr LevelBiasTraits kFourLevel{2, -13, &kFourLevelBias, true, true, 3, kThreeQuarterBands};
inline constexpr LevelBiasTraits kBilevelWide{1, -25, &kBilevelWideBias, true, true, 3, kThreeQuarterBands};

// required: forward rows never add this member's bias.
inline constexpr LevelBiasTraits kBilevelHalves{
    1, -35, &kBilevelHalvesBias, false, true, 3,
    {{{216, 213, ByParity(kTwoThirds, kHalfFloor)},
      {166, 179, ByBit(kTwoThirds, kHalfFloor)},
      {0, 0, ByBit(kHalfFloor, fraction::kAll)}}}};

inline constexpr LevelBiasTraits kBilevelLight{
    1, 0, &kBilevelLightBias, true, true, 4,
    {{{229, 229, Always(kTwoThirds)},
      {203, 203, ByParity(kHalfTrunc, kTwoThirds)},
      {176, 176, ByBit(kHalfTrunc, kTwoThirds)},
      {0, 0, ByBit(kHalfTrunc, fraction::kAll)}}}};

inline constexpr LevelBiasTraits kBilevelHalving{1, 0, nullptr, false, false, 1, {{{0, 0, Always(kHalfTrunc)}}}};

// Fixed four-level quantiser: thresholds 64/128/192 against levels 0/85/170/255, first match.
inline constexpr int kFourThreshold[3] = {64, 128, 192};
inline constexpr int kFourLevelValue[4] = {0, 85, 170, 255};

}  // namespace halftone::level_bias
