// The contact sheet: every method on the same picture, side by side, each tile captioned with
// the method's name and character, with a reduced view of the whole result and a crop at one
// sheet pixel a dot so the dot structure shows.
#pragma once

#include <string>
#include <vector>

#include "image_io.h"
#include "runner.h"

namespace halftone_tool {

struct SheetEntry {
  halftone_method_info method{};
  DotPlanes dots;     // empty planes when the method could not run
  std::string error;  // why it could not
};

// Lays the entries out in `columns` columns under a `title` line and a smaller `detail` line; `inks` names the ink of each
// plane (as Picture::names) for the colour of the print.
RgbImage ContactSheet(const std::vector<SheetEntry>& entries, const std::vector<std::string>& inks,
                      const std::string& title, const std::string& detail, int columns);

}  // namespace halftone_tool
