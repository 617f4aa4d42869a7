// The built-in test chart: what a print-mode tuner wants to see a method do.
#pragma once

#include <vector>

#include "image_io.h"

namespace halftone_tool {

// Draws the chart in lightness sense (0 = full ink, 255 = paper): smooth ramps, a soft
// photo-like area, fine lines and text-like edges, and flat patches at `patch_levels`.
GrayImage BuiltInChart(const std::vector<int>& patch_levels);

}  // namespace halftone_tool
