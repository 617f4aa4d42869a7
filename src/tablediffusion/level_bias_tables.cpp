// The bias bytes of the level-keyed integer diffusions. Each maps an input level (0..255) to a
// non-negative term, in input-level units, that is added to the quantisation error at every
// second column: it darkens the print where the diffusion alone would leave highlights and
// shadows too clean. All of them vanish at 0 and 255, so pure black and pure white stay pure
// in the absence of carried error. The tables are generated here from their defining runs.
#include <algorithm>
#include <cstddef>

#include "tablediffusion/integer_diffusion.h"

namespace halftone {
namespace {

constexpr int kLevels = 256;

// Four-level table: follows the level up to 54, stays at 54 to 215, then falls along these
// hand-set steps to 0 at 255.
constexpr int kFourLevelRise = 54;
constexpr int kFourLevelFallStart = 216;
constexpr std::array<std::uint8_t, 40> kFourLevelFall = {53, 52, 50, 48, 46, 45, 44, 43, 42, 41, 40, 39, 38, 37,
                                                         36, 34, 32, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20,
                                                         18, 16, 14, 12, 10, 8,  6,  4,  3,  2,  1,  0};
static_assert(kFourLevelFallStart + kFourLevelFall.size() == kLevels, "the fall ends at level 255");

constexpr LevelBiasTable MakeFourLevelBias() {
  LevelBiasTable t{};
  for (int v = 0; v < kLevels; ++v) {
    if (v < kFourLevelFallStart)
      t[v] = static_cast<std::uint8_t>(std::min(v, kFourLevelRise));
    else
      t[v] = kFourLevelFall[static_cast<std::size_t>(v - kFourLevelFallStart)];
  }
  return t;
}

// Wide bilevel table: nothing in the highlights up to 104, a ramp v - 96 to 31 at 127, flat 31
// to 223, then 254 - v down to 0 at 254, and 0 at 255.
constexpr int kWideQuietTop = 104, kWideRampOffset = 96, kWidePlateau = 31, kWideFallStart = 224;
constexpr int kWideFallBase = 254;

constexpr LevelBiasTable MakeBilevelWideBias() {
  LevelBiasTable t{};
  for (int v = 0; v < kLevels; ++v) {
    int b = 0;
    if (v <= kWideQuietTop)
      b = 0;
    else if (v - kWideRampOffset < kWidePlateau)
      b = v - kWideRampOffset;
    else if (v < kWideFallStart)
      b = kWidePlateau;
    else if (v < kLevels - 1)
      b = kWideFallBase - v;
    t[v] = static_cast<std::uint8_t>(b);
  }
  return t;
}

// A tent clipped at `cap`: min(v, cap, 255 - v).
constexpr LevelBiasTable MakeClippedTent(int cap) {
  LevelBiasTable t{};
  for (int v = 0; v < kLevels; ++v) t[v] = static_cast<std::uint8_t>(std::min({v, cap, kLevels - 1 - v}));
  return t;
}

constexpr int kHalvesCap = 31;
constexpr int kLightCap = 8;

}  // namespace

constexpr LevelBiasTable kFourLevelBias = MakeFourLevelBias();
constexpr LevelBiasTable kBilevelWideBias = MakeBilevelWideBias();
constexpr LevelBiasTable kBilevelHalvesBias = MakeClippedTent(kHalvesCap);
constexpr LevelBiasTable kBilevelLightBias = MakeClippedTent(kLightCap);

static_assert(kFourLevelBias[0] == 0 && kFourLevelBias[54] == 54 && kFourLevelBias[215] == 54);
static_assert(kFourLevelBias[216] == 53 && kFourLevelBias[231] == 34 && kFourLevelBias[255] == 0);
static_assert(kBilevelWideBias[104] == 0 && kBilevelWideBias[105] == 9 && kBilevelWideBias[127] == 31);
static_assert(kBilevelWideBias[223] == 31 && kBilevelWideBias[224] == 30 && kBilevelWideBias[254] == 0);
static_assert(kBilevelWideBias[255] == 0);
static_assert(kBilevelHalvesBias[31] == 31 && kBilevelHalvesBias[224] == 31 && kBilevelHalvesBias[240] == 15);
static_assert(kBilevelLightBias[5] == 5 && kBilevelLightBias[128] == 8 && kBilevelLightBias[252] == 3);

}  // namespace halftone
