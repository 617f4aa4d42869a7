// Exports of the grouped, single-dot-size, bilevel and eight-level random-split diffusion.
#include "diffusion/random_split.h"
#include "exports/instance.h"
#include "exports/methods.h"

namespace {

using halftone::BilevelMethod;
using halftone::EightLevelMethod;
using halftone::GroupedMethod;
using halftone::HalftoneFlags;

int Grouped(unsigned char* src, unsigned char* dst, std::size_t w, std::size_t h, unsigned flags, GroupedMethod m) {
  return halftone::Exclusive(
      [&] { return halftone::GroupedFourLevel(halftone::ProcessEngine(), src, dst, w, h, HalftoneFlags{flags}, m); });
}

int Bilevel(unsigned char* src, unsigned char* dst, std::size_t w, std::size_t h, unsigned flags, BilevelMethod m) {
  return halftone::Exclusive(
      [&] { return halftone::BilevelRandomSplit(halftone::ProcessEngine(), src, dst, w, h, HalftoneFlags{flags}, m); });
}

int Eight(unsigned char* src, unsigned char* dst, std::size_t w, std::size_t h, unsigned flags, EightLevelMethod m) {
  return halftone::Exclusive(
      [&] { return halftone::EightLevel(halftone::ProcessEngine(), src, dst, w, h, HalftoneFlags{flags}, m); });
}

std::size_t Size(int n) { return static_cast<std::size_t>(n); }

}  // namespace

extern "C" {

HALFTONE_API int HALFTONE_CALL FastGroup(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Grouped(src, dst, Size(w), Size(h), flags, GroupedMethod::kLevelValues);
}

HALFTONE_API int HALFTONE_CALL FastGroup1(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return Grouped(src, dst, w, h, flags, GroupedMethod::kFixedLevels);
}

HALFTONE_API int HALFTONE_CALL ArcistPump(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Grouped(src, dst, Size(w), Size(h), flags, GroupedMethod::kSmallDotOnly);
}

HALFTONE_API int HALFTONE_CALL Kaishanxing(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Grouped(src, dst, Size(w), Size(h), flags, GroupedMethod::kMediumDotOnly);
}

HALFTONE_API int HALFTONE_CALL SymanOpening(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Grouped(src, dst, Size(w), Size(h), flags, GroupedMethod::kLargeDotOnly);
}

HALFTONE_API int HALFTONE_CALL sdiufiavs(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Bilevel(src, dst, Size(w), Size(h), flags, BilevelMethod::kLightnessThirdsCurves);
}

HALFTONE_API int HALFTONE_CALL sdiufiavs1(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return Bilevel(src, dst, w, h, flags, BilevelMethod::kLightnessOneBitJobSeed);
}

HALFTONE_API int HALFTONE_CALL mandfanes(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Bilevel(src, dst, Size(w), Size(h), flags, BilevelMethod::kInkThirdsFullGuard);
}

HALFTONE_API int HALFTONE_CALL orangecagn(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Bilevel(src, dst, Size(w), Size(h), flags, BilevelMethod::kInkQuarters);
}

HALFTONE_API int HALFTONE_CALL jsdi6yruis(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Bilevel(src, dst, Size(w), Size(h), flags, BilevelMethod::kLightnessWholeError);
}

HALFTONE_API int HALFTONE_CALL irpduix7sg(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return Bilevel(src, dst, w, h, flags, BilevelMethod::kInkWholeError);
}

HALFTONE_API int HALFTONE_CALL hxkjsdi67x(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h) {
  return halftone::Exclusive([&] { return halftone::BilevelSinglePlane(halftone::ProcessEngine(), src, dst, w, h); });
}

HALFTONE_API int HALFTONE_CALL RoundPump(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return Eight(src, dst, Size(w), Size(h), flags, EightLevelMethod::kLevelValues);
}

HALFTONE_API int HALFTONE_CALL RoundPump1(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                            unsigned int flags) {
  return Eight(src, dst, w, h, flags, EightLevelMethod::kFixedLevels);
}

}  // extern "C"

namespace halftone {

std::span<const MethodRow> RandomSplitMethods() {
  static constexpr const char* kGrouped = "random-split diffusion, grouped";
  static constexpr const char* kSingleDot = "random-split diffusion, one drop size";
  static constexpr const char* kBilevel = "random-split diffusion, bilevel";
  static constexpr const char* kEight = "random-split diffusion, eight levels";
  static const MethodRow rows[] = {
      {"FastGroup", kGrouped,
       "four levels from the level values, raw-sample vetoes, whole error or halves to next and below, "
       "carries every band, curve terms",
       2, HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&FastGroup)},
      {"FastGroup1", kGrouped,
       "four fixed levels 0/85/170/255 cut at 64/128/192 (leans to larger drops), no veto, whole error or halves",
       2, HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&FastGroup1)},
      {"ArcistPump", kSingleDot, "small drops only, dot at or below 128, grouped split, curve terms", 2,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&ArcistPump)},
      {"Kaishanxing", kSingleDot, "medium drops only, same dot positions as ArcistPump", 2, HALFTONE_ENTRY_BAND,
       HALFTONE_LAYOUT_BAND, 0, Entry(&Kaishanxing)},
      {"SymanOpening", kSingleDot, "large drops only, same dot positions as ArcistPump", 2, HALFTONE_ENTRY_BAND,
       HALFTONE_LAYOUT_BAND, 0, Entry(&SymanOpening)},
      {"sdiufiavs", kBilevel, "bilevel, lightness sense, paper stays white, thirds splits, curve terms", 1,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&sdiufiavs)},
      {"sdiufiavs1", kBilevel,
       "bilevel, lightness sense, paper stays white, whole error or thirds, random sequence runs through the job",
       1, HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&sdiufiavs1)},
      {"mandfanes", kBilevel, "bilevel, ink sense, solid ink always prints, thirds splits", 1, HALFTONE_ENTRY_BAND,
       HALFTONE_LAYOUT_BAND, 0, Entry(&mandfanes)},
      {"orangecagn", kBilevel, "bilevel, ink sense, quarter splits", 1, HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0,
       Entry(&orangecagn)},
      {"jsdi6yruis", kBilevel, "bilevel, lightness sense, whole error to next or below", 1, HALFTONE_ENTRY_BAND,
       HALFTONE_LAYOUT_BAND, 0, Entry(&jsdi6yruis)},
      {"irpduix7sg", kBilevel, "bilevel, ink sense, whole error to next or below", 1, HALFTONE_ENTRY_BAND_UNSIGNED,
       HALFTONE_LAYOUT_BAND, 0, Entry(&irpduix7sg)},
      {"hxkjsdi67x", kBilevel,
       "bilevel, lightness sense, one plane, whole error to next or below, nothing carried between calls", 1,
       HALFTONE_ENTRY_PLANE, HALFTONE_LAYOUT_ROWS, 0, Entry(&hxkjsdi67x)},
      {"RoundPump", kEight,
       "eight drop sizes from the level values, leaning toward the input sample, halves then thirds splits", 4,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&RoundPump)},
      {"RoundPump1", kEight, "eight drop sizes, fixed levels cut at multiples of 32, halves then thirds splits", 4,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&RoundPump1)},
  };
  return rows;
}

}  // namespace halftone
