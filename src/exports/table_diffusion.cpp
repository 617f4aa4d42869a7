// Exports of the 16-bit integer table-driven diffusion families.
#include "exports/instance.h"
#include "exports/methods.h"
#include "tablediffusion/integer_diffusion.h"

namespace halftone {
namespace {

auto LevelBias(LevelBiasMember m) {
  return [m](Engine& e, const BandCall& b) { return LevelBiasDiffusion(e, m, b.src, b.dst, b.w, b.h, b.flags); };
}

int Cyclic(Engine& e, const BandCall& b) { return CyclicDiffusion(e, b.src, b.dst, b.w, b.h, b.flags); }

auto Restricted(LevelRestrictedMember m) {
  return [m](Engine& e, const BandCall& b) { return LevelRestrictedDiffusion(e, m, b.src, b.dst, b.w, b.h, b.flags); };
}

auto Layered(LayerModulatedMember m) {
  return [m](Engine& e, const BandCall& b) { return LayerModulatedDiffusion(e, m, b.src, b.dst, b.w, b.h, b.flags); };
}

}  // namespace
}  // namespace halftone

using halftone::Cyclic;
using halftone::Layered;
using halftone::LayerModulatedMember;
using halftone::LevelBias;
using halftone::LevelBiasMember;
using halftone::LevelRestrictedMember;
using halftone::Restricted;

HALFTONE_BAND_EXPORT(sdiufiavs2, unsigned int, LevelBias(LevelBiasMember::kBilevelHalves))
HALFTONE_BAND_EXPORT(sdiufiavs3, unsigned int, LevelBias(LevelBiasMember::kBilevelWide))
HALFTONE_BAND_EXPORT(sdiufiavs4, unsigned int, LevelBias(LevelBiasMember::kFourLevel))
HALFTONE_BAND_EXPORT(suiruiskao8, unsigned int, LevelBias(LevelBiasMember::kBilevelHalving))
HALFTONE_BAND_EXPORT(suiruiskao11, unsigned int, LevelBias(LevelBiasMember::kBilevelLight))
HALFTONE_BAND_EXPORT(highforces, unsigned int, Cyclic)
HALFTONE_BAND_EXPORT(Kaocosyx13, int, Restricted(LevelRestrictedMember::kMatrixFourLevel))
HALFTONE_BAND_EXPORT(Kaocosyx14, int, Restricted(LevelRestrictedMember::kRandomFourLevel))
HALFTONE_BAND_EXPORT(Kaocosyx1, int, Restricted(LevelRestrictedMember::kMatrixBilevel))
HALFTONE_BAND_EXPORT(Kaocosyx10, unsigned int, Restricted(LevelRestrictedMember::kRandomBilevel))
HALFTONE_BAND_EXPORT(CrisixOut, unsigned int, Layered(LayerModulatedMember::kLayerTiles))
HALFTONE_BAND_EXPORT(CrisixOut31, int, Layered(LayerModulatedMember::kCurveBias))

namespace halftone {

std::span<const MethodRow> TableDiffusionMethods() {
  static constexpr const char* kLevelBias = "level-keyed bias diffusion, 16-bit";
  static constexpr const char* kCyclic = "cyclic one-neighbour diffusion";
  static constexpr const char* kRestricted = "level-restricted diffusion with curve bias";
  static constexpr const char* kLayered = "level-modulated halving diffusion";
  static const MethodRow rows[] = {
      {"sdiufiavs2", kLevelBias,
       "bilevel, starts jobs dark, small mid-tone bias on backward rows, 2/3 or 1/2 ahead by level band", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&sdiufiavs2)},
      {"sdiufiavs3", kLevelBias,
       "bilevel, starts jobs dark, mid-tone bias up to 31, 2/3 or 3/4 ahead by level band", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&sdiufiavs3)},
      {"sdiufiavs4", kLevelBias,
       "four levels 0/85/170/255, starts jobs dark, level bias every other column, random splits in mid-tones",
       2, HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&sdiufiavs4)},
      {"suiruiskao8", kLevelBias, "bilevel, plain halving to next and below, no randomness", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao8)},
      {"suiruiskao11", kLevelBias, "bilevel, faint level bias, halves or 2/3 ahead, random in the darker tones", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&suiruiskao11)},
      {"highforces", kCyclic,
       "bilevel, whole error to one neighbour on a 13-step cycle, regular texture continuing across bands; "
       "at most four planes",
       1, HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&highforces)},
      {"Kaocosyx13", kRestricted,
       "four levels, only the two levels around the input, tiled bias matrix, halves", 2, HALFTONE_ENTRY_BAND,
       HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_BIAS, Entry(&Kaocosyx13)},
      {"Kaocosyx14", kRestricted,
       "four levels, only the two levels around the input, whole error ahead or down at random", 2,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&Kaocosyx14)},
      {"Kaocosyx1", kRestricted, "bilevel, tiled bias matrix (period 240), thirds by scan direction", 1,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_BIAS, Entry(&Kaocosyx1)},
      {"Kaocosyx10", kRestricted, "bilevel, quarter, third or three-quarter splits at random, curve bias backward",
       1, HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&Kaocosyx10)},
      {"CrisixOut", kLayered, "bilevel halving, texture per input level from the loaded layer tiles", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_LAYER, Entry(&CrisixOut)},
      {"CrisixOut31", kLayered, "bilevel, curve bias, thirds, halves or whole error at random by level band", 1,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&CrisixOut31)},
  };
  return rows;
}

}  // namespace halftone
