// Exports of the 16-bit integer table-driven diffusion families.
#include "exports/instance.h"
#include "exports/methods.h"
#include "tablediffusion/integer_diffusion.h"

using halftone::Entry;
using halftone::CyclicDiffusion;
using halftone::LayerModulatedDiffusion;
using halftone::LayerModulatedMember;
using halftone::LevelBiasDiffusion;
using halftone::LevelBiasMember;
using halftone::LevelRestrictedDiffusion;
using halftone::LevelRestrictedMember;

HALFTONE_BAND_EXPORT(sdiufiavs2, unsigned int, Entry<LevelBiasDiffusion>(LevelBiasMember::kBilevelHalves))
HALFTONE_BAND_EXPORT(sdiufiavs3, unsigned int, Entry<LevelBiasDiffusion>(LevelBiasMember::kBilevelWide))
HALFTONE_BAND_EXPORT(sdiufiavs4, unsigned int, Entry<LevelBiasDiffusion>(LevelBiasMember::kFourLevel))
HALFTONE_BAND_EXPORT(suiruiskao8, unsigned int, Entry<LevelBiasDiffusion>(LevelBiasMember::kBilevelHalving))
HALFTONE_BAND_EXPORT(suiruiskao11, unsigned int, Entry<LevelBiasDiffusion>(LevelBiasMember::kBilevelLight))
HALFTONE_BAND_EXPORT(highforces, unsigned int, Entry<CyclicDiffusion>())
HALFTONE_BAND_EXPORT(Kaocosyx13, int, Entry<LevelRestrictedDiffusion>(LevelRestrictedMember::kMatrixFourLevel))
HALFTONE_BAND_EXPORT(Kaocosyx14, int, Entry<LevelRestrictedDiffusion>(LevelRestrictedMember::kRandomFourLevel))
HALFTONE_BAND_EXPORT(Kaocosyx1, int, Entry<LevelRestrictedDiffusion>(LevelRestrictedMember::kMatrixBilevel))
HALFTONE_BAND_EXPORT(Kaocosyx10, unsigned int, Entry<LevelRestrictedDiffusion>(LevelRestrictedMember::kRandomBilevel))
HALFTONE_BAND_EXPORT(CrisixOut, unsigned int, Entry<LayerModulatedDiffusion>(LayerModulatedMember::kLayerTiles))
HALFTONE_BAND_EXPORT(CrisixOut31, int, Entry<LayerModulatedDiffusion>(LayerModulatedMember::kCurveBias))

namespace halftone {

std::span<const MethodRow> TableDiffusionMethods() {
  static constexpr const char* kLevelBias = "level-keyed bias diffusion, 16-bit";
  static constexpr const char* kCyclic = "cyclic one-neighbour diffusion";
  static constexpr const char* kRestricted = "level-restricted diffusion with curve bias";
  static constexpr const char* kLayered = "level-modulated halving diffusion";
  static const MethodRow rows[] = {
      Row("sdiufiavs2", kLevelBias, 1, sdiufiavs2,
          "bilevel, starts jobs dark, small mid-tone bias on backward rows, 2/3 or 1/2 ahead by level band"),
      Row("sdiufiavs3", kLevelBias, 1, sdiufiavs3,
          "bilevel, starts jobs dark, mid-tone bias up to 31, 2/3 or 3/4 ahead by level band"),
      Row("sdiufiavs4", kLevelBias, 2, sdiufiavs4,
          "four levels 0/85/170/255, starts jobs dark, level bias every other column, random splits in mid-tones"),
      Row("suiruiskao8", kLevelBias, 1, suiruiskao8, "bilevel, plain halving to next and below, no randomness"),
      Row("suiruiskao11", kLevelBias, 1, suiruiskao11,
          "bilevel, faint level bias, halves or 2/3 ahead, random in the darker tones"),
      Row("highforces", kCyclic, 1, highforces,
          "bilevel, whole error to one neighbour on a 13-step cycle, regular texture continuing across bands; "
          "at most four planes"),
      Row("Kaocosyx13", kRestricted, 2, Kaocosyx13,
          "four levels, only the two levels around the input, tiled bias matrix, halves", HALFTONE_TABLE_BIAS),
      Row("Kaocosyx14", kRestricted, 2, Kaocosyx14,
          "four levels, only the two levels around the input, whole error ahead or down at random"),
      Row("Kaocosyx1", kRestricted, 1, Kaocosyx1,
          "bilevel, tiled bias matrix (period 240), thirds by scan direction", HALFTONE_TABLE_BIAS),
      Row("Kaocosyx10", kRestricted, 1, Kaocosyx10,
          "bilevel, quarter, third or three-quarter splits at random, curve bias backward"),
      Row("CrisixOut", kLayered, 1, CrisixOut,
          "bilevel halving, texture per input level from the loaded layer tiles", HALFTONE_TABLE_LAYER),
      Row("CrisixOut31", kLayered, 1, CrisixOut31,
          "bilevel, curve bias, thirds, halves or whole error at random by level band"),
  };
  return rows;
}

}  // namespace halftone
