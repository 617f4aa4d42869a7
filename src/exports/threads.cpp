// Threads the halftoning routines may use for the planes of a band.
#include "exports/instance.h"

extern "C" {

HALFTONE_API int HALFTONE_CALL halftone_set_threads(int n) {
  return halftone::Exclusive([&] {
    halftone::ProcessEngine().threads.SetCount(n);
    return halftone::ProcessEngine().threads.count();
  });
}

}  // extern "C"
