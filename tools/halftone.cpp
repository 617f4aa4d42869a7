// halftone: a tuning bench for the library's halftoning methods. Halftones a grey or colour
// picture (or the built-in test chart) with any method, band by band through the same entry
// points a print host calls; lays every method side by side on a contact sheet; and measures
// the tone response of methods on flat patches.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "analyze.h"
#include "chart.h"
#include "draw.h"
#include "halftone/halftone.h"
#include "image_io.h"
#include "page_sink.h"
#include "page_source.h"
#include "picture.h"
#include "progress.h"
#include "runner.h"
#include "sheet.h"
#include "tables.h"
#include "tiff_io.h"
#include "tone.h"
#include "usage.h"

namespace {

using namespace halftone_tool;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr const char* kDefaultMethod = "RoundFaxest";
constexpr const char* kFourLevels = "0,85,170,255,";
constexpr const char* kEightLevels = "0,36,73,109,146,182,219,255,";
constexpr int kDefaultColumns = 3;
constexpr int kMinPatch = 16;
constexpr int kMaxPatch = 4096;
constexpr int kMaxPreviewScale = 256;
constexpr int kAnalyzePatch = 256;

void Usage(std::FILE* to) { PrintUsage(to, kDefaultMethod, kFourLevels, kEightLevels, kDefaultColumns); }

int Fail(int code, const std::string& message) {
  std::fprintf(stderr, "halftone: %s\n", message.c_str());
  if (code == kExitUsage) std::fprintf(stderr, "Try 'halftone --help' for more information.\n");
  return code;
}

bool ParseInt(const char* text, long long lo, long long hi, long long& value) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  long long v = std::strtoll(text, &end, 10);
  if (*end != '\0' || v < lo || v > hi) return false;
  value = v;
  return true;
}

void ListAll() {
  for (const auto& m : ListMethods())
    std::printf("%-16s %d-bit  %-40s %s\n", m.name, m.output_bits, m.family, m.description);
}

std::string Stem(const std::string& path) {
  const auto dot = path.find_last_of('.');
  const auto slash = path.find_last_of("/\\");
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return path;
  return path.substr(0, dot);
}

enum class Command { kHalftone, kSheet, kTone, kAnalyze };

struct Args {
  Command command = Command::kHalftone;
  std::string input, output, tiff, csv, levels, moths;
  std::vector<std::string> methods;
  bool all = false, levels_given = false, quiet = false, no_preview = false;
  int columns = kDefaultColumns;
  int preview_scale = 1;
  std::vector<int> patch_levels;  // analyze: input levels of the flat patches
  double dpi = 600, distance_mm = 300;
  int patch = 256;
  RunOptions options;
};

// Parses the command line; returns -1 to go on, or the exit status to stop with.
int Parse(int argc, char** argv, Args& a) {
  int i = 1;
  if (argc > 1 && std::strcmp(argv[1], "sheet") == 0) {
    a.command = Command::kSheet;
    ++i;
  } else if (argc > 1 && std::strcmp(argv[1], "tone") == 0) {
    a.command = Command::kTone;
    ++i;
  } else if (argc > 1 && std::strcmp(argv[1], "analyze") == 0) {
    a.command = Command::kAnalyze;
    a.patch = kAnalyzePatch;
    ++i;
  }
  for (; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
    long long n = 0;
    if (arg == "-h" || arg == "--help") {
      Usage(stdout);
      return 0;
    } else if (arg == "--version") {
      std::printf("halftone %s (PNG %s, TIFF %s, JPEG %s; %s tier)\n", halftone_version(), HavePng() ? "yes" : "no",
                  HaveTiff() ? "yes" : "no", HaveJpeg() ? "yes" : "no", halftone_path());
      return 0;
    } else if (arg == "--list") {
      ListAll();
      return 0;
    } else if (arg == "-m" || arg == "--method") {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "option '" + arg + "' needs a method name");
      a.methods.push_back(v);
    } else if (arg == "--all" && (a.command == Command::kTone || a.command == Command::kAnalyze)) {
      a.all = true;
    } else if (arg == "--mode") {
      if (!ParseInt(value(), -1000000, 1000000, n)) return Fail(kExitUsage, "--mode needs a whole number");
      a.options.mode = static_cast<int>(n);
    } else if (arg == "--levels") {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "--levels needs a list such as 0,85,170,255,");
      a.levels = v;
      a.levels_given = true;
    } else if (arg == "--band-rows") {
      if (!ParseInt(value(), 1, 1 << 20, n)) return Fail(kExitUsage, "--band-rows needs a number of rows from 1 up");
      a.options.band_rows = static_cast<int>(n);
    } else if (arg == "--time") {
      if (!ParseInt(value(), 0, 0xFFFFFFFFLL, n)) return Fail(kExitUsage, "--time needs seconds from 0 to 4294967295");
      a.options.fixed_time = n;
    } else if (arg == "--moths") {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "--moths needs a folder");
      a.moths = v;
    } else if (arg == "-o" || arg == "--output") {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "option '" + arg + "' needs a file name");
      a.output = v;
    } else if (arg == "--tiff" && a.command == Command::kHalftone) {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "--tiff needs a file name");
      a.tiff = v;
    } else if (arg == "--no-preview" && a.command == Command::kHalftone) {
      a.no_preview = true;
    } else if (arg == "--preview-scale" && a.command == Command::kHalftone) {
      if (!ParseInt(value(), 1, kMaxPreviewScale, n))
        return Fail(kExitUsage, "--preview-scale needs a number from 1 to " + std::to_string(kMaxPreviewScale));
      a.preview_scale = static_cast<int>(n);
    } else if (arg == "--columns" && a.command == Command::kSheet) {
      if (!ParseInt(value(), 1, 64, n)) return Fail(kExitUsage, "--columns needs a number from 1 to 64");
      a.columns = static_cast<int>(n);
    } else if (arg == "--input" && a.command == Command::kAnalyze) {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "--input needs a picture file");
      a.input = v;
    } else if (arg == "--patch-levels" && a.command == Command::kAnalyze) {
      const char* v = value();
      a.patch_levels.clear();
      for (const char* p = v; p && *p;) {
        char* end = nullptr;
        const long level = std::strtol(p, &end, 10);
        if (end == p || level < 0 || level > 255) return Fail(kExitUsage, "--patch-levels needs levels from 0 to 255, comma-separated");
        a.patch_levels.push_back(static_cast<int>(level));
        p = *end == ',' ? end + 1 : end;
        if (*end != ',' && *end != '\0') return Fail(kExitUsage, "--patch-levels needs levels from 0 to 255, comma-separated");
      }
      if (a.patch_levels.empty()) return Fail(kExitUsage, "--patch-levels needs levels from 0 to 255, comma-separated");
    } else if (arg == "--dpi" && a.command == Command::kAnalyze) {
      if (!ParseInt(value(), 10, 10000, n)) return Fail(kExitUsage, "--dpi needs a resolution from 10 to 10000");
      a.dpi = static_cast<double>(n);
    } else if (arg == "--distance" && a.command == Command::kAnalyze) {
      if (!ParseInt(value(), 10, 100000, n)) return Fail(kExitUsage, "--distance needs a viewing distance in millimetres, 10 up");
      a.distance_mm = static_cast<double>(n);
    } else if (arg == "--patch" && (a.command == Command::kTone || a.command == Command::kAnalyze)) {
      if (!ParseInt(value(), kMinPatch, kMaxPatch, n))
        return Fail(kExitUsage, "--patch needs a size from " + std::to_string(kMinPatch) + " to " + std::to_string(kMaxPatch));
      a.patch = static_cast<int>(n);
    } else if (arg == "--csv" && a.command == Command::kTone) {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "--csv needs a file name");
      a.csv = v;
    } else if (arg == "-q" || arg == "--quiet") {
      a.quiet = true;
    } else if (arg.size() > 1 && arg[0] == '-') {
      return Fail(kExitUsage, "unknown option '" + arg + "'");
    } else if (a.command == Command::kTone) {
      return Fail(kExitUsage, "'tone' takes no input file ('" + arg + "'): it halftones flat patches");
    } else if (a.command == Command::kAnalyze) {
      return Fail(kExitUsage, "'analyze' takes its picture with --input ('" + arg + "')");
    } else if (a.input.empty()) {
      a.input = arg;
    } else {
      return Fail(kExitUsage, "more than one input given ('" + a.input + "' and '" + arg + "')");
    }
  }
  return -1;
}

// A level list as people write it, without the comma that ends every value.
std::string Shown(std::string levels) {
  if (!levels.empty() && levels.back() == ',') levels.pop_back();
  return levels;
}

std::string LevelsFor(const halftone_method_info& m, const Args& a) {
  return a.levels_given ? a.levels : m.output_bits == 4 ? kEightLevels : kFourLevels;
}

// Methods named with -m, in order, or every method when none was named.
int ChooseMethods(const Args& a, std::vector<halftone_method_info>& chosen) {
  if (a.methods.empty()) {
    chosen = ListMethods();
    return -1;
  }
  for (const auto& name : a.methods) {
    halftone_method_info m{};
    if (!FindMethod(name, m)) return Fail(kExitUsage, "unknown method '" + name + "' (see 'halftone --list')");
    chosen.push_back(m);
  }
  return -1;
}

// The picture to work on: INPUT, or the built-in chart with patches at the level values.
int LoadPicture(const Args& a, const std::string& levels, Picture& picture) {
  if (!a.input.empty()) {
    if (std::string err = ReadPicture(a.input, picture); !err.empty()) return Fail(kExitFailure, err);
    return -1;
  }
  std::vector<int> patch_levels;
  for (const char* p = levels.c_str(); *p;) {
    patch_levels.push_back(std::atoi(p));
    const char* comma = std::strchr(p, ',');
    if (!comma) break;
    p = comma + 1;
  }
  picture = GreyPicture(BuiltInChart(patch_levels));
  return -1;
}

std::string Describe(const halftone_method_info& m, const RunOptions& o) {
  return std::string(m.name) + ", mode " + std::to_string(o.mode) + ", levels " + o.levels + ", bands of " +
         std::to_string(o.band_rows) + " rows";
}

// Where a run's dots go: the dot-plane TIFF, the preview, or both, each written as the rows come.
struct Outputs {
  DotTiffStream tiff;
  PreviewStream preview;
  bool want_tiff = false, want_preview = false;

  std::string Open(const Args& a, const std::string& preview_path, const halftone_method_info& m, int width, int height,
                   const std::vector<std::string>& names) {
    if (want_tiff)
      if (std::string e = tiff.Open(a.tiff, width, height, m.output_bits, names, Describe(m, a.options)); !e.empty()) return e;
    if (want_preview)
      if (std::string e = preview.Open(preview_path, width, height, m.output_bits, names, a.preview_scale); !e.empty())
        return e;
    return {};
  }
  // One sink for each file, so they can be written side by side.
  std::vector<BandSink> Sinks() {
    std::vector<BandSink> sinks;
    if (want_tiff) sinks.push_back([this](const std::uint8_t* b, int n, std::size_t s) { return tiff.Band(b, n, s); });
    if (want_preview)
      sinks.push_back([this](const std::uint8_t* b, int n, std::size_t s) { return preview.Band(b, n, s); });
    return sinks;
  }
  std::string Close() {
    if (want_tiff)
      if (std::string e = tiff.Close(); !e.empty()) return e;
    return want_preview ? preview.Close() : std::string{};
  }
};

// A banded method over a picture file, band by band: neither the picture nor its dots nor the
// preview is ever held whole. Reading and writing run beside the library.
int HalftoneStreamed(const Args& a, const halftone_method_info& method, const std::string& preview, Outputs& out) {
  std::unique_ptr<PageSource> source;
  if (std::string err = OpenPage(a.input, source); !err.empty()) return Fail(kExitFailure, err);
  std::string message;
  if (PrepareTables(method.tables, a.moths, message) != 0) return Fail(kExitFailure, message);
  if (std::string err = out.Open(a, preview, method, source->width(), source->height(), source->names()); !err.empty())
    return Fail(kExitFailure, err);

  Progress progress("halftoning", 1000, a.quiet);
  RunOptions options = a.options;
  // Reading and writing beside the library pay where there is work to overlap: several planes,
  // or a compressed file to write. One plane into an uncompressed file runs faster without.
  const bool compressed = out.want_tiff || (out.want_preview && HasExtension(preview, ".png"));
  options.overlap = source->planes() > 1 || compressed;
  options.on_progress = [&](long long done, long long total) { progress.Update(done * 1000 / total); };
  std::string err = RunMethodStreamed(
      method, source->width(), source->height(), source->planes(), options,
      [&](std::uint8_t* band, int count, std::size_t stride) { return source->Read(band, count, stride); },
      out.Sinks());
  progress.Finish();
  if (err.empty()) err = out.Close();
  return err.empty() ? 0 : Fail(kExitFailure, err);
}

int Halftone(Args& a) {
  if (a.methods.size() > 1) return Fail(kExitUsage, "halftone takes one method (use 'halftone sheet' to compare)");
  const std::string name = a.methods.empty() ? kDefaultMethod : a.methods[0];
  halftone_method_info method{};
  if (!FindMethod(name, method)) return Fail(kExitUsage, "unknown method '" + name + "' (see 'halftone --list')");
  std::string preview = a.output.empty() ? "halftone.png" : a.output;
  if (HasExtension(preview, ".tif") || HasExtension(preview, ".tiff")) {
    if (!a.tiff.empty()) return Fail(kExitUsage, "two TIFF outputs given ('" + preview + "' and '" + a.tiff + "')");
    a.tiff = preview;
    preview = Stem(preview) + ".png";
  }
  if (!a.tiff.empty() && !HaveTiff())
    return Fail(kExitFailure, "this build has no TIFF support (libtiff was not found): install libtiff-dev and rebuild");
  Outputs out;
  out.want_tiff = !a.tiff.empty();
  out.want_preview = !a.no_preview;
  if (!out.want_tiff && !out.want_preview)
    return Fail(kExitUsage, "--no-preview leaves nothing to write: name a dot-plane TIFF with -o DOTS.tif or --tiff");
  a.options.levels = LevelsFor(method, a);
  if (!a.input.empty() && Banded(method)) return HalftoneStreamed(a, method, preview, out);

  // The built-in chart, and methods that take a whole plane at a time, run in memory.
  Picture picture;
  if (int rc = LoadPicture(a, a.options.levels, picture); rc >= 0) return rc;
  std::string message;
  if (PrepareTables(method.tables, a.moths, message) != 0) return Fail(kExitFailure, message);

  Progress progress("halftoning", 1000, a.quiet);
  a.options.on_progress = [&](long long done, long long total) { progress.Update(done * 1000 / total); };
  DotPlanes dots;
  std::string err = RunMethod(method, picture.planes, a.options, dots);
  progress.Finish();
  if (!err.empty()) return Fail(kExitFailure, err);
  std::vector<GrayImage>().swap(picture.planes);
  if (std::string e = out.Open(a, preview, method, dots.pixels, dots.rows, picture.names); !e.empty())
    return Fail(kExitFailure, e);
  // One dot row of every plane at a time, laid out as a band.
  const std::size_t P = dots.planes.size();
  std::vector<std::uint8_t> band(P * dots.stride);
  const std::vector<BandSink> sinks = out.Sinks();
  for (int y = 0; y < dots.rows && err.empty(); ++y) {
    for (std::size_t p = 0; p < P; ++p)
      std::memcpy(&band[p * dots.stride], dots.planes[p].data() + static_cast<std::size_t>(y) * dots.stride, dots.stride);
    for (std::size_t k = 0; k < sinks.size() && err.empty(); ++k) err = sinks[k](band.data(), 1, dots.stride);
  }
  if (err.empty()) err = out.Close();
  return err.empty() ? 0 : Fail(kExitFailure, err);
}

int Sheet(Args& a) {
  if (!HaveDrawing()) return Fail(kExitFailure, "this build has no 'sheet' (it draws with cairo: install libcairo2-dev and rebuild)");
  std::vector<halftone_method_info> methods;
  if (int rc = ChooseMethods(a, methods); rc >= 0) return rc;
  const std::string output = a.output.empty() ? "sheet.png" : a.output;
  Picture picture;
  if (int rc = LoadPicture(a, a.levels_given ? a.levels : kFourLevels, picture); rc >= 0) return rc;

  std::vector<SheetEntry> entries;
  Progress progress("contact sheet", static_cast<long long>(methods.size()), a.quiet);
  for (std::size_t i = 0; i < methods.size(); ++i) {
    progress.Update(static_cast<long long>(i), methods[i].name);
    SheetEntry e;
    e.method = methods[i];
    RunOptions options = a.options;
    options.levels = LevelsFor(e.method, a);
    std::string message;
    if (PrepareTables(e.method.tables, a.moths, message) != 0)
      e.error = message.empty() ? "its tables could not be loaded" : message;
    else
      e.error = RunMethod(e.method, picture.planes, options, e.dots);
    entries.push_back(std::move(e));
  }
  progress.Finish();
  const std::string title = "Contact sheet: " + (a.input.empty() ? std::string("built-in chart") : a.input);
  const std::string detail = "halftone " + std::string(halftone_version()) + ", " + std::to_string(methods.size()) +
                             " methods, mode " + std::to_string(a.options.mode) + ", levels " +
                             (a.levels_given ? Shown(a.levels) : Shown(kFourLevels) + " (" + Shown(kEightLevels) + " at 4 bits)") +
                             ", bands of " + std::to_string(a.options.band_rows) + " rows" +
                             (a.options.fixed_time >= 0 ? ", time " + std::to_string(a.options.fixed_time) : std::string());
  if (std::string err = WriteRgb(output, ContactSheet(entries, picture.names, title, detail, a.columns)); !err.empty())
    return Fail(kExitFailure, err);
  return 0;
}

int Tone(Args& a) {
  if (!HaveDrawing()) return Fail(kExitFailure, "this build has no 'tone' (it draws with cairo: install libcairo2-dev and rebuild)");
  if (!a.all && a.methods.empty()) return Fail(kExitUsage, "'tone' needs -m METHOD or --all");
  if (a.all && !a.methods.empty()) return Fail(kExitUsage, "give either -m METHOD or --all, not both");
  std::vector<halftone_method_info> methods;
  if (int rc = ChooseMethods(a, methods); rc >= 0) return rc;
  const std::string plot = a.output.empty() ? "tone.png" : a.output;
  const std::string csv = a.csv.empty() ? Stem(plot) + ".csv" : a.csv;

  std::vector<ToneCurve> curves;
  Progress progress("tone response", static_cast<long long>(methods.size()) * kToneLevels, a.quiet);
  int failures = 0;
  for (std::size_t i = 0; i < methods.size(); ++i) {
    const auto& m = methods[i];
    ToneOptions options;
    options.run = a.options;
    options.run.levels = LevelsFor(m, a);
    options.patch = a.patch;
    std::string message;
    ToneCurve curve;
    if (PrepareTables(m.tables, a.moths, message) != 0) {
      progress.Finish();
      std::fprintf(stderr, "halftone: %s skipped: %s\n", m.name, message.c_str());
      ++failures;
      continue;
    }
    const std::string err = MeasureTone(m, options, curve, [&](int level) {
      progress.Update(static_cast<long long>(i) * kToneLevels + level + 1, m.name);
    });
    if (!err.empty()) {
      progress.Finish();
      std::fprintf(stderr, "halftone: %s skipped: %s\n", m.name, err.c_str());
      ++failures;
      continue;
    }
    curves.push_back(std::move(curve));
  }
  progress.Finish();
  if (curves.empty()) return Fail(kExitFailure, "no method could be measured");
  const std::string title = "Tone response, mode " + std::to_string(a.options.mode) + ", levels " +
                            (a.levels_given ? Shown(a.levels) : Shown(kFourLevels) + " (" + Shown(kEightLevels) + " at 4 bits)") + ", patches " + std::to_string(a.patch) +
                            "x" + std::to_string(a.patch);
  if (std::string err = WriteToneCsv(csv, curves); !err.empty()) return Fail(kExitFailure, err);
  if (std::string err = WriteRgb(plot, PlotTone(curves, title)); !err.empty()) return Fail(kExitFailure, err);
  return failures == 0 ? 0 : kExitFailure;
}

int Analyze(Args& a) {
  if (!HaveAnalysis() || !HaveDrawing())
    return Fail(kExitFailure, "this build has no 'analyze' (it needs FFTW and cairo: install libfftw3-dev and libcairo2-dev, and rebuild)");
  if (!a.all && a.methods.empty()) return Fail(kExitUsage, "'analyze' needs -m METHOD or --all");
  if (a.all && !a.methods.empty()) return Fail(kExitUsage, "give either -m METHOD or --all, not both");
  std::vector<halftone_method_info> methods;
  if (int rc = ChooseMethods(a, methods); rc >= 0) return rc;
  Picture picture;
  if (int rc = LoadPicture(a, a.levels_given ? a.levels : kFourLevels, picture); rc >= 0) return rc;
  const std::string folder = a.output.empty() ? "analysis" : a.output;

  AnalyzeOptions options;
  options.run = a.options;
  options.levels = a.patch_levels.empty() ? DefaultAnalysisLevels() : a.patch_levels;
  options.patch = a.patch;
  options.settle = a.patch / 4;
  options.viewing.dpi = a.dpi;
  options.viewing.distance_mm = a.distance_mm;
  std::vector<MethodAnalysis> results;
  Progress progress("analysis", static_cast<long long>(methods.size()), a.quiet);
  for (std::size_t i = 0; i < methods.size(); ++i) {
    progress.Update(static_cast<long long>(i), methods[i].name);
    options.run.levels = LevelsFor(methods[i], a);
    std::string message;
    if (PrepareTables(methods[i].tables, a.moths, message) != 0) {
      MethodAnalysis failed;
      failed.method = methods[i];
      failed.error = message.empty() ? "its tables could not be loaded" : message;
      results.push_back(failed);
      continue;
    }
    results.push_back(AnalyzeMethod(methods[i], picture, options));
  }
  progress.Finish();
  char viewing[96];
  std::snprintf(viewing, sizeof viewing, "%.0f dpi at %.0f mm", a.dpi, a.distance_mm);
  const std::string title = "halftone " + std::string(halftone_version()) + ", mode " + std::to_string(a.options.mode) + ", " +
                            viewing + ", picture: " + (a.input.empty() ? std::string("the built-in chart") : a.input);
  if (std::string err = WriteAnalysis(folder, results, options, title); !err.empty()) return Fail(kExitFailure, err);
  int failures = 0;
  for (const auto& r : results)
    if (!r.error.empty()) {
      std::fprintf(stderr, "halftone: %s not measured: %s\n", r.method.name, r.error.c_str());
      ++failures;
    }
  return failures == 0 ? 0 : kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
  // Planes of a band may run side by side; the dots are the same on any number of threads.
  halftone_set_threads(static_cast<int>(std::thread::hardware_concurrency()));
  Args args;
  if (int rc = Parse(argc, argv, args); rc >= 0) return rc;
  switch (args.command) {
    case Command::kSheet: return Sheet(args);
    case Command::kTone: return Tone(args);
    case Command::kAnalyze: return Analyze(args);
    default: return Halftone(args);
  }
}
