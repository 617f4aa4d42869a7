// Exports of the job signalling: the host's pair of job events and the bounded wait on them.
#include "exports/instance.h"
#include "signal/job_signals.h"

namespace halftone {
namespace {

JobSignals& ProcessSignals() {
  // Like the engine: made on first use, never destroyed, so a host thread still waiting at
  // process exit finds its events intact.
  static JobSignals* const signals = new JobSignals();
  return *signals;
}

}  // namespace
}  // namespace halftone

extern "C" {

HALFTONE_API int HALFTONE_CALL khjhusecx(void) {
  return halftone::Guarded([] { return halftone::ProcessSignals().Create(); });
}

HALFTONE_API int HALFTONE_CALL sinxcdke34i(unsigned int timeout) {
  return halftone::Guarded([&] { return halftone::ProcessSignals().Wait(timeout); });
}

HALFTONE_API int HALFTONE_CALL giwncwcg7w(void) {
  return halftone::Guarded([] { return halftone::ProcessSignals().Close(); });
}

}  // extern "C"
