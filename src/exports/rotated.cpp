// Exports of the rotated and four-way bilevel diffusion with level lookup.
#include "exports/methods.h"

namespace halftone {

std::span<const MethodRow> RotatedMethods() { return {}; }

}  // namespace halftone
