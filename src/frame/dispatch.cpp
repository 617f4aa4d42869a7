#include "frame/dispatch.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "frame/vector_rows.h"

namespace halftone {
namespace {

constexpr int kFromEnvironment = -1;
std::atomic<int> g_override{kFromEnvironment};

// The fastest tier this build has.
constexpr Path kFastest = HALFTONE_VECTOR_ROWS ? Path::kVector : Path::kLockstep;

Path Available(Path p) { return p == Path::kVector && kFastest != Path::kVector ? Path::kLockstep : p; }

Path FromEnvironment() {
  static const Path path = [] {
    const char* v = std::getenv("HALFTONE_PATH");
    if (v != nullptr && std::strcmp(v, "reference") == 0) return Path::kReference;
    if (v != nullptr && std::strcmp(v, "lockstep") == 0) return Path::kLockstep;
    return kFastest;
  }();
  return path;
}

}  // namespace

Path ActivePath() {
  const int o = g_override.load(std::memory_order_relaxed);
  return o == kFromEnvironment ? FromEnvironment() : static_cast<Path>(o);
}

const char* PathName(Path path) {
  switch (path) {
    case Path::kReference: return "reference";
    case Path::kLockstep: return "lockstep";
    default: return "vector";
  }
}

void SetPath(int path) {
  g_override.store(path < 0 ? kFromEnvironment : static_cast<int>(Available(static_cast<Path>(path))),
                   std::memory_order_relaxed);
}

}  // namespace halftone
