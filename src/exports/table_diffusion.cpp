// Exports of the 16-bit integer table-driven diffusion families.
#include "exports/methods.h"

namespace halftone {

std::span<const MethodRow> TableDiffusionMethods() { return {}; }

}  // namespace halftone
