// TIFF reading and writing for the halftone command (needs libtiff; without it every call says
// so and fails cleanly).
#pragma once

#include <string>
#include <vector>

#include "runner.h"

namespace halftone_tool {

bool HaveTiff();

// libtiff reports through handlers: ListenToTiff keeps the last error for our own messages and
// drops warnings (unknown private tags are common in files from prepress tools);
// TiffErrorSuffix gives " (that error)", or nothing.
void ListenToTiff();
std::string TiffErrorSuffix();

// Writes dot planes as a multi-page TIFF, one page per plane, at the method's depth (1, 2 or 4
// bits a pixel), min-is-white: the codes exactly as the method wrote them, 0 = no ink, so a
// dot reads as black in any viewer. `names` name the pages; `description` goes into every page.
std::string WriteDotTiff(const std::string& path, const DotPlanes& dots, const std::vector<std::string>& names,
                         const std::string& description);

}  // namespace halftone_tool
