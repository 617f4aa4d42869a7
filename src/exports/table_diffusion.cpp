// Exports of the 16-bit integer table-driven diffusion families.
#include "exports/instance.h"
#include "exports/methods.h"
#include "tablediffusion/integer_diffusion.h"

namespace {

using halftone::HalftoneFlags;
using halftone::LayerModulatedMember;
using halftone::LevelBiasMember;
using halftone::LevelRestrictedMember;

int LevelBias(LevelBiasMember m, unsigned char* src, unsigned char* dst, unsigned w, unsigned h, unsigned flags) {
  return halftone::Exclusive([&] {
    return halftone::LevelBiasDiffusion(halftone::ProcessEngine(), m, src, dst, w, h, HalftoneFlags{flags});
  });
}

int Restricted(LevelRestrictedMember m, unsigned char* src, unsigned char* dst, std::size_t w, std::size_t h,
               unsigned flags) {
  return halftone::Exclusive([&] {
    return halftone::LevelRestrictedDiffusion(halftone::ProcessEngine(), m, src, dst, w, h, HalftoneFlags{flags});
  });
}

int Layered(LayerModulatedMember m, unsigned char* src, unsigned char* dst, std::size_t w, std::size_t h,
            unsigned flags) {
  return halftone::Exclusive([&] {
    return halftone::LayerModulatedDiffusion(halftone::ProcessEngine(), m, src, dst, w, h, HalftoneFlags{flags});
  });
}

}  // namespace

extern "C" {

HALFTONE_API int HALFTONE_CALL sdiufiavs2(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return LevelBias(LevelBiasMember::kBilevelHalves, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL sdiufiavs3(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return LevelBias(LevelBiasMember::kBilevelWide, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL sdiufiavs4(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return LevelBias(LevelBiasMember::kFourLevel, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL suiruiskao8(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return LevelBias(LevelBiasMember::kBilevelHalving, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL suiruiskao11(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                              unsigned int flags) {
  return LevelBias(LevelBiasMember::kBilevelLight, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL highforces(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return halftone::Exclusive([&] {
    return halftone::CyclicDiffusion(halftone::ProcessEngine(), src, dst, w, h, HalftoneFlags{flags});
  });
}

HALFTONE_API int HALFTONE_CALL Kaocosyx13(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Restricted(LevelRestrictedMember::kMatrixFourLevel, src, dst, static_cast<std::size_t>(w),
                    static_cast<std::size_t>(h), flags);
}

HALFTONE_API int HALFTONE_CALL Kaocosyx14(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Restricted(LevelRestrictedMember::kRandomFourLevel, src, dst, static_cast<std::size_t>(w),
                    static_cast<std::size_t>(h), flags);
}

HALFTONE_API int HALFTONE_CALL Kaocosyx1(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Restricted(LevelRestrictedMember::kMatrixBilevel, src, dst, static_cast<std::size_t>(w),
                    static_cast<std::size_t>(h), flags);
}

HALFTONE_API int HALFTONE_CALL Kaocosyx10(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return Restricted(LevelRestrictedMember::kRandomBilevel, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL CrisixOut(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                           unsigned int flags) {
  return Layered(LayerModulatedMember::kLayerTiles, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL CrisixOut31(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Layered(LayerModulatedMember::kCurveBias, src, dst, static_cast<std::size_t>(w),
                 static_cast<std::size_t>(h), flags);
}

}  // extern "C"

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
