// Any bytes as a layer text table.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  halftone::ParseLayerTable(halftone::fuzz::FuzzEngine().tables, {data, size});
  return 0;
}
