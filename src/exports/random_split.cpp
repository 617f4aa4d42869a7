// Exports of the grouped, single-dot-size, bilevel and eight-level random-split diffusion.
#include "diffusion/random_split.h"
#include "exports/instance.h"
#include "exports/methods.h"

using halftone::EntryLast;
using halftone::BilevelMethod;
using halftone::BilevelRandomSplit;
using halftone::EightLevel;
using halftone::EightLevelMethod;
using halftone::GroupedFourLevel;
using halftone::GroupedMethod;

HALFTONE_BAND_EXPORT(FastGroup, int, EntryLast<GroupedFourLevel>(GroupedMethod::kLevelValues))
HALFTONE_BAND_EXPORT(FastGroup1, unsigned int, EntryLast<GroupedFourLevel>(GroupedMethod::kFixedLevels))
HALFTONE_BAND_EXPORT(ArcistPump, int, EntryLast<GroupedFourLevel>(GroupedMethod::kSmallDotOnly))
HALFTONE_BAND_EXPORT(Kaishanxing, int, EntryLast<GroupedFourLevel>(GroupedMethod::kMediumDotOnly))
HALFTONE_BAND_EXPORT(SymanOpening, int, EntryLast<GroupedFourLevel>(GroupedMethod::kLargeDotOnly))
HALFTONE_BAND_EXPORT(sdiufiavs, int, EntryLast<BilevelRandomSplit>(BilevelMethod::kLightnessThirdsCurves))
HALFTONE_BAND_EXPORT(sdiufiavs1, unsigned int, EntryLast<BilevelRandomSplit>(BilevelMethod::kLightnessOneBitJobSeed))
HALFTONE_BAND_EXPORT(mandfanes, int, EntryLast<BilevelRandomSplit>(BilevelMethod::kInkThirdsFullGuard))
HALFTONE_BAND_EXPORT(orangecagn, int, EntryLast<BilevelRandomSplit>(BilevelMethod::kInkQuarters))
HALFTONE_BAND_EXPORT(jsdi6yruis, int, EntryLast<BilevelRandomSplit>(BilevelMethod::kLightnessWholeError))
HALFTONE_BAND_EXPORT(irpduix7sg, unsigned int, EntryLast<BilevelRandomSplit>(BilevelMethod::kInkWholeError))

extern "C" HALFTONE_API int HALFTONE_CALL hxkjsdi67x(unsigned char* src, unsigned char* dst, unsigned int w,
                                                     unsigned int h) {
  return halftone::Exclusive([&] { return halftone::BilevelSinglePlane(halftone::ProcessEngine(), src, dst, w, h); });
}

HALFTONE_BAND_EXPORT(RoundPump, int, EntryLast<EightLevel>(EightLevelMethod::kLevelValues))
HALFTONE_BAND_EXPORT(RoundPump1, unsigned int, EntryLast<EightLevel>(EightLevelMethod::kFixedLevels))

namespace halftone {

std::span<const MethodRow> RandomSplitMethods() {
  static constexpr const char* kGrouped = "random-split diffusion, grouped";
  static constexpr const char* kSingleDot = "random-split diffusion, one drop size";
  static constexpr const char* kBilevel = "random-split diffusion, bilevel";
  static constexpr const char* kEight = "random-split diffusion, eight levels";
  static const MethodRow rows[] = {
      Row("FastGroup", kGrouped, 2, FastGroup,
          "four levels from the level values, raw-sample vetoes, whole error or halves to next and below, "
          "carries every band, curve terms"),
      Row("FastGroup1", kGrouped, 2, FastGroup1,
          "four fixed levels 0/85/170/255 cut at 64/128/192 (leans to larger drops), no veto, whole error or halves"),
      Row("ArcistPump", kSingleDot, 2, ArcistPump, "small drops only, dot at or below 128, grouped split, curve terms"),
      Row("Kaishanxing", kSingleDot, 2, Kaishanxing, "medium drops only, same dot positions as ArcistPump"),
      Row("SymanOpening", kSingleDot, 2, SymanOpening, "large drops only, same dot positions as ArcistPump"),
      Row("sdiufiavs", kBilevel, 1, sdiufiavs,
          "bilevel, lightness sense, paper stays white, thirds splits, curve terms"),
      Row("sdiufiavs1", kBilevel, 1, sdiufiavs1,
          "bilevel, lightness sense, paper stays white, whole error or thirds, random sequence runs through the job"),
      Row("mandfanes", kBilevel, 1, mandfanes, "bilevel, ink sense, solid ink always prints, thirds splits"),
      Row("orangecagn", kBilevel, 1, orangecagn, "bilevel, ink sense, quarter splits"),
      Row("jsdi6yruis", kBilevel, 1, jsdi6yruis, "bilevel, lightness sense, whole error to next or below"),
      Row("irpduix7sg", kBilevel, 1, irpduix7sg, "bilevel, ink sense, whole error to next or below"),
      Row("hxkjsdi67x", kBilevel, 1, hxkjsdi67x,
          "bilevel, lightness sense, one plane, whole error to next or below, nothing carried between calls",
          0, HALFTONE_LAYOUT_ROWS),
      Row("RoundPump", kEight, 4, RoundPump,
          "eight drop sizes from the level values, leaning toward the input sample, halves then thirds splits"),
      Row("RoundPump1", kEight, 4, RoundPump1,
          "eight drop sizes, fixed levels cut at multiples of 32, halves then thirds splits"),
  };
  return rows;
}

}  // namespace halftone
