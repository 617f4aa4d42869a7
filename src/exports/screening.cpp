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

// What those loaders return: 0, unless the call was refused as busy.
int HiddenLoad(int rc) { return rc == kErrBusy ? rc : kOk; }

int PatternScreenExport(PatternScreen screen, unsigned char* src, unsigned char* dst, std::size_t w, std::size_t h,
                        unsigned flags) {
  return Exclusive([&] { return ScreenWithPatterns(ProcessEngine(), screen, src, dst, w, h, HalftoneFlags{flags}); });
}

int ThresholdScreenExport(ThresholdScreen screen, unsigned char* src, unsigned char* dst, std::size_t w,
                          std::size_t h, unsigned flags) {
  return Exclusive([&] { return ScreenWithThresholds(ProcessEngine(), screen, src, dst, w, h, HalftoneFlags{flags}); });
}

std::size_t Size(int v) { return static_cast<std::size_t>(v); }

}  // namespace
}  // namespace halftone

using halftone::PatternScreen;
using halftone::ThresholdScreen;

extern "C" {

// required: the bitmap and text-table loaders hide their result from the host and return 0.
HALFTONE_API int HALFTONE_CALL PuaningFa(const char* name, int, int) {
  return halftone::HiddenLoad(
      halftone::RecordedLoad([&] { return halftone::LoadBitmapFile(halftone::ProcessEngine(), name, false); }));
}

HALFTONE_API int HALFTONE_CALL PuaningFa13(const char* name, int, int) {
  return halftone::HiddenLoad(
      halftone::RecordedLoad([&] { return halftone::LoadBitmapFile(halftone::ProcessEngine(), name, true); }));
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
  return halftone::HiddenLoad(
      halftone::RecordedLoad([&] { return halftone::LoadLayerFile(halftone::ProcessEngine(), name); }));
}

// Kept so hosts that resolve it load; it reads nothing and changes nothing.
HALFTONE_API int HALFTONE_CALL PuaningFaAM(const char*, int, int) { return halftone::kOk; }

HALFTONE_API int HALFTONE_CALL SincesKai(void) {
  return halftone::RecordedLoad([] {
    halftone::BuildBayerMatrix(halftone::ProcessEngine().tables);
    return halftone::kOk;
  });
}

HALFTONE_API int HALFTONE_CALL Sonicksure(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return halftone::PatternScreenExport(PatternScreen::kMonoLoadedGeometry, src, dst, halftone::Size(w),
                                       halftone::Size(h), flags);
}

HALFTONE_API int HALFTONE_CALL MutexWindow(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                             unsigned int flags) {
  return halftone::PatternScreenExport(PatternScreen::kMonoFixed, src, dst, w, h, flags);
}

// The older copy loop of MutexWindow; both write the same dots.
HALFTONE_API int HALFTONE_CALL MutexWindow_Bak(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                                 unsigned int flags) {
  return halftone::PatternScreenExport(PatternScreen::kMonoFixed, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL TextDownload(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return halftone::PatternScreenExport(PatternScreen::kDuoFixed, src, dst, halftone::Size(w), halftone::Size(h),
                                       flags);
}

HALFTONE_API int HALFTONE_CALL WindowText(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return halftone::ThresholdScreenExport(ThresholdScreen::kBitmap, src, dst, halftone::Size(w), halftone::Size(h),
                                         flags);
}

HALFTONE_API int HALFTONE_CALL Kaocosyx(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h, unsigned int flags) {
  return halftone::ThresholdScreenExport(ThresholdScreen::kBayer, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL WindowTextAM1(unsigned char* src, unsigned char* dst, unsigned int w, unsigned int h,
                               unsigned int flags) {
  return halftone::ThresholdScreenExport(ThresholdScreen::kClusteredAm, src, dst, w, h, flags);
}

HALFTONE_API int HALFTONE_CALL WindowTextAM(unsigned char* src, unsigned char* dst, int w, int h, unsigned int flags) {
  if (halftone::NegativeSize(w, h)) return halftone::kErrOutOfContract;
  return halftone::Exclusive([&] {
    return halftone::ScreenDispersedAmJob(halftone::ProcessEngine(), src, dst, halftone::Size(w), halftone::Size(h),
                                          halftone::HalftoneFlags{flags});
  });
}

}  // extern "C"

namespace halftone {

std::span<const MethodRow> ScreeningMethods() {
  static constexpr const char* kPatterns = "pattern-stack screening";
  static constexpr const char* kThresholds = "threshold-matrix screening";
  static const MethodRow rows[] = {
      {"Sonicksure", kPatterns, "bilevel, stored pattern per level, tiled at the loaded pattern size", 1,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_MONO, Entry(&Sonicksure)},
      {"MutexWindow", kPatterns, "bilevel, stored pattern per level, 256 x 256 tile", 1, HALFTONE_ENTRY_BAND_UNSIGNED,
       HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_MONO, Entry(&MutexWindow)},
      {"MutexWindow_Bak", kPatterns, "MutexWindow's older copy loop: the same dots", 1, HALFTONE_ENTRY_BAND_UNSIGNED,
       HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_MONO, Entry(&MutexWindow_Bak)},
      {"TextDownload", kPatterns, "four levels, stored 2-bit pattern per level, 256 x 256 tile, level 255 blank", 2,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_DUO, Entry(&TextDownload)},
      {"WindowText", kThresholds, "bilevel, loaded 256 x 256 threshold bitmap, shifted 16 pixels per plane", 1,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_BITMAP, Entry(&WindowText)},
      {"Kaocosyx", kThresholds, "bilevel, 16 x 16 ordered dither, finely dispersed dots", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, HALFTONE_TABLE_BAYER, Entry(&Kaocosyx)},
      {"WindowTextAM1", kThresholds, "bilevel, built-in clustered 16 x 16 tile: two round dots growing per tile", 1,
       HALFTONE_ENTRY_BAND_UNSIGNED, HALFTONE_LAYOUT_BAND, 0, Entry(&WindowTextAM1)},
      {"WindowTextAM", kThresholds, "bilevel, built-in dispersed 16 x 16 tile, serpentine job scan", 1,
       HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0, Entry(&WindowTextAM)},
  };
  return rows;
}

}  // namespace halftone
