#include "frame/dispatch.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace halftone {
namespace {

std::atomic<int> g_override{-1};

bool FromEnvironment() {
  static const bool forced = [] {
    const char* v = std::getenv("HALFTONE_FORCE_SCALAR");
    return v != nullptr && std::strcmp(v, "1") == 0;
  }();
  return forced;
}

}  // namespace

bool ForceScalar() {
  const int o = g_override.load(std::memory_order_relaxed);
  return o < 0 ? FromEnvironment() : o == 1;
}

void SetForceScalar(int mode) { g_override.store(mode < 0 ? -1 : (mode ? 1 : 0), std::memory_order_relaxed); }

}  // namespace halftone
