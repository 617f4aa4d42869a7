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

#include "chart.h"
#include "halftone/halftone.h"
#include "image_io.h"
#include "picture.h"
#include "progress.h"
#include "runner.h"
#include "sheet.h"
#include "tables.h"
#include "tiff_io.h"
#include "tone.h"

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

void Usage(std::FILE* to) {
  std::fprintf(to,
               "Usage: halftone [INPUT] [-m METHOD] [OPTIONS] [-o OUT.png|OUT.tif] [--tiff DOTS.tif]\n"
               "       halftone sheet [INPUT] [-m METHOD]... [OPTIONS] [--columns N] [-o SHEET.png]\n"
               "       halftone tone (-m METHOD)... | --all [OPTIONS] [--patch N] [-o PLOT.png] [--csv FILE]\n"
               "       halftone --list | --help | --version\n"
               "\n"
               "Halftones INPUT (PNG, TIFF or binary PGM; the built-in test chart when omitted) with\n"
               "one of the library's methods. A colour picture becomes four planes C, M, Y, K that\n"
               "the method halftones as one job; a grey one a single plane. The preview draws every\n"
               "dot as its ink on white paper; the TIFF holds the dot planes, one page a plane.\n"
               "'sheet' puts every method side by side; 'tone' measures ink coverage at every level.\n"
               "\n"
               "  -m, --method METHOD  method by export name (default %s); see --list.\n"
               "                       sheet: only these methods; tone: the methods to measure\n"
               "      --all            tone: measure every method\n"
               "      --mode N         print mode selecting the tone-curve pair (default 0)\n"
               "      --levels LIST    output levels, each followed by a comma\n"
               "                       (default %s, or %s for 4-bit methods)\n"
               "      --band-rows N    rows per band handed to the method (default 64)\n"
               "      --time SECONDS   seed the random sources from this time: same dots every run\n"
               "      --moths DIR      folder of matrix, pattern and table files for the screens\n"
               "                       (default: example files the command generates)\n"
               "  -o, --output FILE    preview .png, .ppm, .pgm or .pbm (default halftone.png); a\n"
               "                       .tif name writes the dot planes there and the preview as .png\n"
               "      --tiff FILE      also write the dot planes as a multi-page TIFF\n"
               "      --columns N      sheet: tiles a row (default %d)\n"
               "      --patch N        tone: side of each flat patch in pixels (default 256)\n"
               "      --csv FILE       tone: where the table goes (default: the plot's name, .csv)\n"
               "  -q, --quiet          no progress bar\n"
               "      --list           list every method with its output depth and character\n"
               "  -h, --help           show this help\n"
               "      --version        show the library version\n"
               "\n"
               "Exit status: 0 done, 1 a file could not be read or written or a method failed,\n"
               "2 bad usage. See halftone(1).\n",
               kDefaultMethod, kFourLevels, kEightLevels, kDefaultColumns);
}

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

enum class Command { kHalftone, kSheet, kTone };

struct Args {
  Command command = Command::kHalftone;
  std::string input, output, tiff, csv, levels, moths;
  std::vector<std::string> methods;
  bool all = false, levels_given = false, quiet = false;
  int columns = kDefaultColumns;
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
  }
  for (; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
    long long n = 0;
    if (arg == "-h" || arg == "--help") {
      Usage(stdout);
      return 0;
    } else if (arg == "--version") {
      std::printf("halftone %s (PNG %s, TIFF %s; %s tier)\n", halftone_version(), HavePng() ? "yes" : "no",
                  HaveTiff() ? "yes" : "no", halftone_path());
      return 0;
    } else if (arg == "--list") {
      ListAll();
      return 0;
    } else if (arg == "-m" || arg == "--method") {
      const char* v = value();
      if (!v) return Fail(kExitUsage, "option '" + arg + "' needs a method name");
      a.methods.push_back(v);
    } else if (arg == "--all" && a.command == Command::kTone) {
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
    } else if (arg == "--columns" && a.command == Command::kSheet) {
      if (!ParseInt(value(), 1, 64, n)) return Fail(kExitUsage, "--columns needs a number from 1 to 64");
      a.columns = static_cast<int>(n);
    } else if (arg == "--patch" && a.command == Command::kTone) {
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

// A one-plane bilevel PBM written a band of dot rows at a time (a dot is ink, PBM's 1); bits
// past the last pixel of a row are cleared.
class PbmWriter {
 public:
  ~PbmWriter() { Close(); }
  bool Open(const std::string& path, int width, int height) {
    f_ = std::fopen(path.c_str(), "wb");
    row_bytes_ = static_cast<std::size_t>((width + 7) / 8);
    tail_ = static_cast<std::uint8_t>(width % 8 ? 0xFFu << (8 - width % 8) : 0xFFu);
    row_.resize(row_bytes_);
    return f_ && std::fprintf(f_, "P4\n%d %d\n", width, height) > 0;
  }
  // `count` dot rows, `stride` bytes apart.
  bool Rows(const std::uint8_t* rows, int count, std::size_t stride) {
    if (!f_) return false;
    const auto n = static_cast<std::size_t>(count);
    if (stride == row_bytes_ && tail_ == 0xFFu) return std::fwrite(rows, 1, n * stride, f_) == n * stride;
    for (std::size_t y = 0; y < n; ++y) {
      std::memcpy(row_.data(), rows + y * stride, row_bytes_);
      if (row_bytes_) row_.back() &= tail_;
      if (std::fwrite(row_.data(), 1, row_bytes_, f_) != row_bytes_) return false;
    }
    return true;
  }
  bool Close() {
    if (!f_) return false;
    const bool ok = std::fclose(f_) == 0;
    f_ = nullptr;
    return ok;
  }

 private:
  std::FILE* f_ = nullptr;
  std::size_t row_bytes_ = 0;
  std::uint8_t tail_ = 0xFF;
  std::vector<std::uint8_t> row_;
};

bool WriteDotsPbm(const std::string& path, const DotPlanes& dots) {
  PbmWriter pbm;
  const bool ok = pbm.Open(path, dots.pixels, dots.rows) && pbm.Rows(dots.planes[0].data(), dots.rows, dots.stride);
  return pbm.Close() && ok;
}

// A grey PGM to a PBM with a banded bilevel method, band by band: neither the picture nor its
// dots are ever held whole.
int HalftoneStreamed(const Args& a, const halftone_method_info& method, const std::string& output) {
  PgmRows in;
  if (std::string err = in.Open(a.input); !err.empty()) return Fail(kExitFailure, err);
  std::string message;
  if (PrepareTables(method.tables, a.moths, message) != 0) return Fail(kExitFailure, message);
  const std::string write_error = "error writing '" + output + "'";
  PbmWriter out;
  if (!out.Open(output, in.width(), in.height())) return Fail(kExitFailure, write_error);

  Progress progress("halftoning", 1000, a.quiet);
  RunOptions options = a.options;
  options.on_progress = [&](long long done, long long total) { progress.Update(done * 1000 / total); };
  const std::string err = RunMethodStreamed(
      method, in.width(), in.height(), options,
      [&](std::uint8_t* rows, int count, std::size_t stride) { return in.Read(rows, count, stride); },
      [&](std::uint8_t* rows, int count, std::size_t stride) {
        return out.Rows(rows, count, stride) ? std::string{} : write_error;
      });
  progress.Finish();
  const bool closed = out.Close();
  if (!err.empty()) {
    std::remove(output.c_str());  // no half-written picture is left behind
    return Fail(kExitFailure, err);
  }
  return closed ? 0 : Fail(kExitFailure, write_error);
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
  a.options.levels = LevelsFor(method, a);
  if (!a.input.empty() && a.tiff.empty() && HasExtension(preview, ".pbm") && method.output_bits == 1 &&
      Banded(method) && IsBinaryPgm(a.input))
    return HalftoneStreamed(a, method, preview);

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

  if (!a.tiff.empty())
    if (std::string e = WriteDotTiff(a.tiff, dots, picture.names, Describe(method, a.options)); !e.empty())
      return Fail(kExitFailure, e);
  // The picture is no longer needed: give its memory back before the preview is drawn.
  const bool colour = picture.IsColour();
  std::vector<GrayImage>().swap(picture.planes);
  if (!colour && HasExtension(preview, ".pbm") && dots.bits == 1 && dots.planes.size() == 1)
    return WriteDotsPbm(preview, dots) ? 0 : Fail(kExitFailure, "error writing '" + preview + "'");
  err = colour ? WriteRgb(preview, CompositeInks(dots, picture.names)) : WriteGray(preview, PreviewPlane(dots, 0));
  return err.empty() ? 0 : Fail(kExitFailure, err);
}

int Sheet(Args& a) {
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

}  // namespace

int main(int argc, char** argv) {
  // Planes of a band may run side by side; the dots are the same on any number of threads.
  halftone_set_threads(static_cast<int>(std::thread::hardware_concurrency()));
  Args args;
  if (int rc = Parse(argc, argv, args); rc >= 0) return rc;
  switch (args.command) {
    case Command::kSheet: return Sheet(args);
    case Command::kTone: return Tone(args);
    default: return Halftone(args);
  }
}
