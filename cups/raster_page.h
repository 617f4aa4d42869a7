// One CUPS raster page through a halftoning method: continuous-tone rows in (8-bit K, CMYK,
// RGB, sRGB, grey; chunky or banded), dot planes out (K or CMYK at the method's 1, 2 or 4 bits,
// planar), streamed band by band.
#pragma once

#include <atomic>
#include <string>

#include <cups/raster.h>

#include "filter_options.h"

namespace halftone_cups {

// Checks that `in` describes a page the filter takes and fills in the header of its dot page.
// Returns an empty string or what is wrong with the page.
std::string DotPageHeader(const cups_page_header2_t& in, int bits, cups_page_header2_t& out);

// Halftones the page whose header was just read from `in` and writes its dot page, header
// first, to `out`. When `cancel` is set the halftoning stops and the rest of the page is
// written without ink, so the page still ends cleanly; `cancelled` says so. Returns an empty
// string or what failed.
std::string HalftonePage(cups_raster_t* in, const cups_page_header2_t& header, cups_raster_t* out,
                         const FilterOptions& options, const std::atomic<bool>& cancel, bool& cancelled);

}  // namespace halftone_cups
