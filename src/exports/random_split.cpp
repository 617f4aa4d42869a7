// Exports of the grouped, single-dot-size, bilevel and eight-level random-split diffusion.
#include "exports/methods.h"

namespace halftone {

std::span<const MethodRow> RandomSplitMethods() { return {}; }

}  // namespace halftone
