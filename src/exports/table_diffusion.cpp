// Exports of the table-driven diffusion families.
#include "exports/methods.h"

namespace halftone {

std::span<const MethodRow> TableDiffusionMethods() { return {}; }

}  // namespace halftone
