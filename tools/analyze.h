// Measures of a method's dots, for choosing one: on flat patches the radially averaged power
// spectrum (RAPSD), its anisotropy, the principal frequency against the blue-noise ideal and the
// low-frequency energy a viewer sees as grain; on a picture the error a viewer sees, input and
// dots both filtered by a model of the eye's contrast sensitivity. FFTs by FFTW.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "picture.h"
#include "runner.h"

namespace halftone_tool {

bool HaveAnalysis();

// An ink field: each pixel's share of full ink, 0 (paper) to 1, row-major.
struct InkField {
  int width = 0, height = 0;
  std::vector<double> ink;
};

// A dot plane as ink: every code at its share of the depth's full ink; rows first_row and on.
InkField DotInk(const DotPlanes& dots, int plane, int first_row = 0);
// A picture plane as the ink it asks for: (255 - sample) / 255 in the library's lightness sense,
// sample / 255 for the methods that take their input in ink sense.
InkField PictureInk(const GrayImage& plane, bool ink_sense = false);

// The periodogram |DFT(f - mean)|^2 / (width * height) of a field: rows of width / 2 + 1
// non-negative frequencies (FFTW's half-complex layout), height rows.
std::vector<double> Periodogram(const InkField& field);

// Radial statistics of a square field's periodogram in annuli one DFT bin wide: bin k holds the
// frequencies within half a bin of k / side cycles a pixel (k = 1 .. side / sqrt 2).
struct RadialSpectrum {
  double coverage = 0;             // mean ink of the field
  double variance = 0;             // of the field: g (1 - g) for two levels, less for more
  std::vector<double> frequency;   // cycles a pixel, one entry a bin
  std::vector<double> power;       // RAPSD over the field's variance: white noise is 1 throughout
  std::vector<double> anisotropy;  // variance over the annulus / mean^2: 1 (0 dB) for white noise
};
RadialSpectrum Rapsd(const InkField& field);

// The blue-noise principal frequency for coverage g, in cycles a pixel: sqrt(g) for g <= 1/2,
// sqrt(1 - g) above (Ulichney).
double IdealPrincipalFrequency(double coverage);

// What one flat patch's spectrum says.
struct PatchMeasure {
  int level = 0;                 // input level (lightness: 0 full ink asked, 255 paper)
  double coverage = 0;
  double principal = 0;          // where the smoothed RAPSD first reaches white noise, cycles a pixel
  double ideal = 0;              // IdealPrincipalFrequency(coverage)
  double principal_error = 0;    // |principal - ideal| / ideal
  double anisotropy_db = 0;      // mean anisotropy above half the ideal frequency, dB
  double graininess_db = 0;      // mean periodogram below half the ideal frequency, dB over a
                                 // two-level white noise of the same coverage
  bool patterned = false;        // false for a patch of bare paper or solid ink: no spectrum
  RadialSpectrum spectrum;
};
PatchMeasure MeasurePatch(const InkField& field, int level);

// The eye's contrast sensitivity, Mannos and Sakrison's model in cycles a degree, flat at its
// peak below the peak frequency so that the mean tone counts in full.
double ContrastSensitivity(double cycles_per_degree);

// Viewing conditions: resolution and distance.
struct Viewing {
  double dpi = 600;
  double distance_mm = 300;
};

// The RMS of the difference of two fields as the eye sees it: both filtered by the contrast
// sensitivity at `viewing`. Zero for a field against itself.
double VisualError(const InkField& a, const InkField& b, const Viewing& viewing);

struct AnalyzeOptions {
  RunOptions run;                 // mode, levels list, band rows, fixed time
  std::vector<int> levels;        // input levels of the flat patches
  int patch = 256;                // measured side of a patch
  int settle = 64;                // rows run before the measured patch
  Viewing viewing;
};

// Every measure of one method.
struct MethodAnalysis {
  halftone_method_info method{};
  std::vector<PatchMeasure> patches;
  double graininess_db = 0;       // means over the patterned patches
  double anisotropy_db = 0;
  double principal_error = 0;
  double visual_error = 0;        // on the picture, averaged over its planes
  double tone_deviation = 0;      // RMS of coverage against the linear response over the patches
  double megapixels_per_second = 0;  // the picture's run, all planes
  bool ink_sense = false;         // coverage rises with the input level: the input is ink, not lightness
  std::string error;              // why the method could not be measured
};

std::vector<int> DefaultAnalysisLevels();

// Runs `method` on flat patches and on `picture` and measures it.
MethodAnalysis AnalyzeMethod(const halftone_method_info& method, const Picture& picture, const AnalyzeOptions& options);

// The CSV tables and pictures of an analysis, into folder `dir`: patches.csv, spectra.csv and
// ranking.csv; spectra-<METHOD>.png (small multiples, a panel a level) and ranking.png.
std::string WriteAnalysis(const std::string& dir, const std::vector<MethodAnalysis>& results, const AnalyzeOptions& options,
                          const std::string& title);

}  // namespace halftone_tool
