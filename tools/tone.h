// Tone response: how much ink a method lays down for each input level, measured on flat patches
// halftoned the way a host would (one job a patch, in bands, with the mode and levels given).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "image_io.h"
#include "runner.h"

namespace halftone_tool {

constexpr int kToneLevels = 256;

struct ToneOptions {
  RunOptions run;
  int patch = 256;  // patch side in pixels; the first quarter of its rows is left to settle
};

struct ToneCurve {
  std::string method;
  std::vector<double> coverage;  // kToneLevels entries, 0 = bare paper, 1 = full ink everywhere
  std::string family;            // the method's family, which the plot groups by
};

// Ink coverage of one dot plane over rows first_row .. rows - 1: every code counted as its share
// of the depth's full ink (1 of 1, 3 of 3, 7 of 7), averaged over the pixels.
double InkCoverage(const DotPlanes& dots, int plane, int first_row);

// Halftones a flat patch at every input level 0..255 with `method` and measures its coverage
// below the settling rows. `on_level` (may be empty) is told each finished level. Returns an
// empty string, or the message of the first failure.
std::string MeasureTone(const halftone_method_info& method, const ToneOptions& options, ToneCurve& curve,
                        const std::function<void(int level)>& on_level);

// One row per input level: "level,<method>,<method>..." with coverage as a fraction.
std::string WriteToneCsv(const std::string& path, const std::vector<ToneCurve>& curves);

// Coverage against input level as small multiples: a panel per family, a coloured curve per
// method with a legend naming it, and the straight line from full ink at 0 to none at 255 for
// reference in every panel.
RgbImage PlotTone(const std::vector<ToneCurve>& curves, const std::string& title);

}  // namespace halftone_tool
