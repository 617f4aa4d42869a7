// Exports of the double-precision table-driven diffusion family.
#include "exports/methods.h"

namespace halftone {

std::span<const MethodRow> DoubleDiffusionMethods() { return {}; }

}  // namespace halftone
