#include "exports/instance.h"

#include <memory>

namespace halftone {

constinit CallGate process_gate;

Engine& ProcessEngine() {
  // Built on first use and kept for the life of the process, like the host expects of its
  // printing library; never destroyed, so no exit-time ordering problems.
  static Engine* const engine = new Engine();
  return *engine;
}

}  // namespace halftone

#if defined(_WIN32)
#include <windows.h>
// The DLL entry point does nothing: every buffer is made by the start-of-job call.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
#endif
