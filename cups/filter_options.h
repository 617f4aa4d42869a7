// The job options rastertohalftone reads, named as CUPS options are: HalftoneMethod and
// HalftoneMode (also choices in the PPD), HalftoneLevels, HalftoneBandRows, HalftoneThreads,
// HalftoneTables and HalftoneTime.
#pragma once

#include <string>

#include "halftone/halftone.h"

namespace halftone_cups {

inline constexpr const char* kDefaultMethod = "RoundFaxest";
inline constexpr int kDefaultBandRows = 64;
inline constexpr int kMaxBandRows = 1 << 16;
inline constexpr int kMaxThreads = 64;
// The print modes the PPD offers; the options string may name any mode the library takes.
inline constexpr int kPpdModes = 4;

struct FilterOptions {
  halftone_method_info method{};
  int mode = 0;
  std::string levels;        // level-values list as the library takes it, each value followed by ','
  int band_rows = kDefaultBandRows;
  int threads = 0;           // 0: one a core
  std::string tables;        // folder of table files; empty: the example tables
  long long fixed_time = -1; // < 0: the library's clock
};

// Reads the options string of a job (argv[5] of a filter) over the queue's PPD defaults for
// HalftoneMethod and HalftoneMode (`ppd`, the file CUPS names in $PPD; null for none). Options
// not named Halftone* are CUPS's and left alone. Returns an empty string, or "OPTION: what is
// wrong" for the first unknown Halftone* option or bad value.
std::string ParseFilterOptions(const char* text, const char* ppd, FilterOptions& out);

// The default levels for a method: four even levels, or eight for the 4-bit methods.
std::string DefaultLevels(const halftone_method_info& method);

}  // namespace halftone_cups
