// Any bytes as a 2-bit pattern stack, with fuzzed pattern sizes.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return halftone::fuzz::FuzzPatternStack(halftone::PatternDepth::kDuo, data, size);
}
