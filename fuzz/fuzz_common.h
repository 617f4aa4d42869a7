// Shared by the fuzz targets: one engine for the whole run (it is large), its tables reset
// between inputs would cost more than they tell, so inputs build on each other's tables the
// way a host's repeated loads do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frame/engine.h"
#include "screening/loaders.h"

namespace halftone::fuzz {

inline Engine& FuzzEngine() {
  static Engine* const engine = new Engine();
  return *engine;
}

// The first two bytes pick the pattern width and height (1..256 each, any value, so invalid
// sizes are fuzzed too); the rest is the file.
inline int FuzzPatternStack(PatternDepth depth, const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const int a = data[0] + 1, b = data[1] + 1;
  Engine& e = FuzzEngine();
  MemorySource source({data + 2, size - 2});
  if (DescribePatternStack(e.tables, depth, a, b) == kOk) ReadPatternStack(e.tables, depth, a, b, source);
  return 0;
}

}  // namespace halftone::fuzz
