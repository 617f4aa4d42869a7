// Any bytes as an 8-bit threshold bitmap file.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  halftone::MemorySource source({data, size});
  halftone::ReadBitmapMatrix(halftone::fuzz::FuzzEngine().tables, source, true);
  return 0;
}
