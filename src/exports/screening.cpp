// Exports of the loaders and the pattern and threshold screens.
#include "exports/instance.h"
#include "exports/methods.h"
#include "screening/loaders.h"
#include "screening/screens.h"

namespace halftone {
namespace {

// Every load records the code it determined, also for the loaders that return 0 to the host.
template <class Body>
int RecordedLoad(Body&& body) {
  return Exclusive([&] {
    const int rc = Guarded(body);
    ProcessEngine().last_load_status = rc;
    return rc;
  });
}

// A recorded load that returns 0 to the host, unless the call was refused as busy.
template <class Body>
int HiddenLoad(Body&& body) {
  const int rc = RecordedLoad(body);
  return rc == kErrBusy ? rc : kOk;
}

}  // namespace
}  // namespace halftone

using halftone::Entry;
using halftone::PatternScreen;
using halftone::ScreenDispersedAmJob;
using halftone::ScreenWithPatterns;
using halftone::ScreenWithThresholds;
using halftone::ThresholdScreen;

extern "C" {

// required: the bitmap and text-table loaders hide their result from the host and return 0.
HALFTONE_API int HALFTONE_CALL PuaningFa(const char* name, int, int) {
  return halftone::HiddenLoad([&] { return halftone::LoadBitmapFile(halftone::ProcessEngine(), name, false); });
}

HALFTONE_API int HALFTONE_CALL PuaningFa13(const char* name, int, int) {
  return halftone::HiddenLoad([&] { return halftone::LoadBitmapFile(halftone::ProcessEngine(), name, true); });
}

HALFTONE_API int HALFTONE_CALL KaiDuaning(const char* name, int a, int b) {
  return halftone::RecordedLoad([&] {
    return halftone::LoadPatternFile(halftone::ProcessEngine(), halftone::PatternDepth::kMono, name, a, b);
  });
}

HALFTONE_API int HALFTONE_CALL NingJing(const char* name, int a, int b) {
  return halftone::RecordedLoad([&] {
    return halftone::LoadPatternFile(halftone::ProcessEngine(), halftone::PatternDepth::kDuo, name, a, b);
  });
}

HALFTONE_API int HALFTONE_CALL NiceMents(const char* name, int, int) {
  return halftone::HiddenLoad([&] { return halftone::LoadLayerFile(halftone::ProcessEngine(), name); });
}

// Kept so hosts that resolve it load; it reads nothing and changes nothing.
HALFTONE_API int HALFTONE_CALL PuaningFaAM(const char*, int, int) { return halftone::kOk; }

HALFTONE_API int HALFTONE_CALL SincesKai(void) {
  return halftone::RecordedLoad([] {
    halftone::BuildBayerMatrix(halftone::ProcessEngine().tables);
    return halftone::kOk;
  });
}

}  // extern "C"

HALFTONE_BAND_EXPORT(Sonicksure, int, Entry<ScreenWithPatterns>(PatternScreen::kMonoLoadedGeometry))
HALFTONE_BAND_EXPORT(MutexWindow, unsigned int, Entry<ScreenWithPatterns>(PatternScreen::kMonoFixed))
// The older copy loop of MutexWindow; both write the same dots.
HALFTONE_BAND_EXPORT(MutexWindow_Bak, unsigned int, Entry<ScreenWithPatterns>(PatternScreen::kMonoFixed))
HALFTONE_BAND_EXPORT(TextDownload, int, Entry<ScreenWithPatterns>(PatternScreen::kDuoFixed))
HALFTONE_BAND_EXPORT(WindowText, int, Entry<ScreenWithThresholds>(ThresholdScreen::kBitmap))
HALFTONE_BAND_EXPORT(Kaocosyx, unsigned int, Entry<ScreenWithThresholds>(ThresholdScreen::kBayer))
HALFTONE_BAND_EXPORT(WindowTextAM1, unsigned int, Entry<ScreenWithThresholds>(ThresholdScreen::kClusteredAm))
HALFTONE_BAND_EXPORT(WindowTextAM, int, Entry<ScreenDispersedAmJob>())

namespace halftone {

std::span<const MethodRow> ScreeningMethods() {
  static constexpr const char* kPatterns = "pattern-stack screening";
  static constexpr const char* kThresholds = "threshold-matrix screening";
  static const MethodRow rows[] = {
      Row("Sonicksure", kPatterns, 1, Sonicksure,
          "bilevel, stored pattern per level, tiled at the loaded pattern size", HALFTONE_TABLE_MONO),
      Row("MutexWindow", kPatterns, 1, MutexWindow,
          "bilevel, stored pattern per level, 256 x 256 tile", HALFTONE_TABLE_MONO),
      Row("MutexWindow_Bak", kPatterns, 1, MutexWindow_Bak,
          "MutexWindow's older copy loop: the same dots", HALFTONE_TABLE_MONO),
      Row("TextDownload", kPatterns, 2, TextDownload,
          "four levels, stored 2-bit pattern per level, 256 x 256 tile, level 255 blank", HALFTONE_TABLE_DUO),
      Row("WindowText", kThresholds, 1, WindowText,
          "bilevel, loaded 256 x 256 threshold bitmap, shifted 16 pixels per plane", HALFTONE_TABLE_BITMAP),
      Row("Kaocosyx", kThresholds, 1, Kaocosyx,
          "bilevel, 16 x 16 ordered dither, finely dispersed dots", HALFTONE_TABLE_BAYER),
      Row("WindowTextAM1", kThresholds, 1, WindowTextAM1,
          "bilevel, built-in clustered 16 x 16 tile: two round dots growing per tile"),
      Row("WindowTextAM", kThresholds, 1, WindowTextAM,
          "bilevel, built-in dispersed 16 x 16 tile, serpentine job scan"),
  };
  return rows;
}

}  // namespace halftone
