// Threads the halftoning routines may use for the planes of a band.
#include "exports/instance.h"
#include "frame/dispatch.h"

extern "C" {

HALFTONE_API int HALFTONE_CALL halftone_set_threads(int n) {
  return halftone::Exclusive([&] {
    halftone::ProcessEngine().threads.SetCount(n);
    return halftone::ProcessEngine().threads.count();
  });
}

HALFTONE_API const char* HALFTONE_CALL halftone_path(void) { return halftone::PathName(halftone::ActivePath()); }

}  // extern "C"
