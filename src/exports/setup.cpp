// Set-up exports: version, reproducibility, host folder, tone curves and level values.
#include <string>

#include "exports/instance.h"
#include "frame/platform.h"
#include "tone/tone.h"

#ifndef HALFTONE_VERSION_STRING
#define HALFTONE_VERSION_STRING "0.0.0"
#endif

extern "C" {

HALFTONE_API const char* HALFTONE_CALL halftone_version(void) { return HALFTONE_VERSION_STRING; }

// A setter without a return value does nothing when refused as busy.
HALFTONE_API void HALFTONE_CALL halftone_set_fixed_time(long long seconds) {
  halftone::Exclusive([&] {
    halftone::ProcessEngine().clock.SetFixed(seconds);
    return halftone::kOk;
  });
}

HALFTONE_API int HALFTONE_CALL halftone_set_host_folder(const char* folder) {
  return halftone::Exclusive([&] {
    halftone::Engine& engine = halftone::ProcessEngine();
    if (folder == nullptr || *folder == '\0') {
      engine.host_folder_override.clear();
      return halftone::kOk;
    }
    std::string f(folder);
    const char sep = halftone::platform::PathSeparator();
    if (f.back() != sep && f.back() != '/') f.push_back(sep);
    engine.host_folder_override = f;
    return halftone::kOk;
  });
}

HALFTONE_API int HALFTONE_CALL halftone_last_load_status(void) {
  return halftone::Exclusive([] { return halftone::ProcessEngine().last_load_status; });
}

HALFTONE_API int HALFTONE_CALL Itsdiufiavs(int mode, const char* levels) {
  const int rc = halftone::Exclusive([&] {
    halftone::Engine& engine = halftone::ProcessEngine();
    // A missing or unreadable tone-curve file is silent: the slots keep what they held.
    engine.last_load_status = halftone::LoadToneCurveFile(engine.curves, engine.HostFolder());
    halftone::SelectMode(engine.curves, mode);
    return halftone::ParseLevelValues(engine.levels, levels);
  });
  return rc == halftone::kErrBusy ? rc : halftone::kOk;
}

}  // extern "C"
