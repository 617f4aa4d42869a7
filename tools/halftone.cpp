// halftone: halftones a grey picture (or the built-in test chart) with any method of the
// library, band by band through the same entry points a print host calls, and writes a
// preview where every dot is drawn as its ink.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "chart.h"
#include "halftone/halftone.h"
#include "image_io.h"
#include "runner.h"
#include "tables.h"

namespace {

using namespace halftone_tool;

constexpr int kExitUsage = 2;
constexpr int kExitFailure = 1;
constexpr const char* kDefaultMethod = "RoundFaxest";
constexpr const char* kFourLevels = "0,85,170,255,";
constexpr const char* kEightLevels = "0,36,73,109,146,182,219,255,";

void Usage(std::FILE* to) {
  std::fprintf(to,
               "Usage: halftone [INPUT] [-m METHOD] [--mode N] [--levels LIST] [--band-rows N]\n"
               "                [--time SECONDS] [--moths DIR] [-o OUT.png]\n"
               "       halftone --list | --help | --version\n"
               "\n"
               "Halftones INPUT (an 8-bit grey PNG or binary PGM; the built-in test chart when\n"
               "omitted) with one of the library's methods and writes a preview in which every\n"
               "dot is drawn as its ink.\n"
               "\n"
               "  -m, --method METHOD  method by export name (default %s); see --list\n"
               "      --mode N         print mode selecting the tone-curve pair (default 0)\n"
               "      --levels LIST    output levels, each followed by a comma\n"
               "                       (default %s, or %s for 4-bit methods)\n"
               "      --band-rows N    rows per band handed to the method (default 64)\n"
               "      --time SECONDS   seed the random sources from this time: same dots every run\n"
               "      --moths DIR      folder of matrix, pattern and table files for the screens\n"
               "                       (default: example files the command generates)\n"
               "  -o, --output FILE    .png, .pgm or .pbm (default halftone.png)\n"
               "      --list           list every method with its output depth and character\n"
               "  -h, --help           show this help\n"
               "      --version        show the library version\n",
               kDefaultMethod, kFourLevels, kEightLevels);
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

}  // namespace

int main(int argc, char** argv) {
  std::string input, output = "halftone.png", method_name = kDefaultMethod, levels, moths;
  RunOptions options;
  bool levels_given = false;

  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&](const char* what) -> const char* {
      if (i + 1 >= argc) return nullptr;
      (void)what;
      return argv[++i];
    };
    long long n = 0;
    if (arg == "-h" || arg == "--help") {
      Usage(stdout);
      return 0;
    } else if (arg == "--version") {
      std::printf("halftone %s\n", halftone_version());
      return 0;
    } else if (arg == "--list") {
      ListAll();
      return 0;
    } else if (arg == "-m" || arg == "--method") {
      const char* v = value("METHOD");
      if (!v) return Fail(kExitUsage, "option '" + arg + "' needs a method name");
      method_name = v;
    } else if (arg == "--mode") {
      if (!ParseInt(value("N"), -1000000, 1000000, n)) return Fail(kExitUsage, "--mode needs a whole number");
      options.mode = static_cast<int>(n);
    } else if (arg == "--levels") {
      const char* v = value("LIST");
      if (!v) return Fail(kExitUsage, "--levels needs a list such as 0,85,170,255,");
      levels = v;
      levels_given = true;
    } else if (arg == "--band-rows") {
      if (!ParseInt(value("N"), 1, 1 << 20, n)) return Fail(kExitUsage, "--band-rows needs a number of rows from 1 up");
      options.band_rows = static_cast<int>(n);
    } else if (arg == "--time") {
      if (!ParseInt(value("SECONDS"), 0, 0xFFFFFFFFLL, n)) return Fail(kExitUsage, "--time needs seconds from 0 to 4294967295");
      options.fixed_time = n;
    } else if (arg == "--moths") {
      const char* v = value("DIR");
      if (!v) return Fail(kExitUsage, "--moths needs a folder");
      moths = v;
    } else if (arg == "-o" || arg == "--output") {
      const char* v = value("FILE");
      if (!v) return Fail(kExitUsage, "option '" + arg + "' needs a file name");
      output = v;
    } else if (arg.size() > 1 && arg[0] == '-') {
      return Fail(kExitUsage, "unknown option '" + arg + "'");
    } else if (input.empty()) {
      input = arg;
    } else {
      return Fail(kExitUsage, "more than one input given ('" + input + "' and '" + arg + "')");
    }
  }

  halftone_method_info method{};
  if (!FindMethod(method_name, method))
    return Fail(kExitUsage, "unknown method '" + method_name + "' (see 'halftone --list')");
  if (!levels_given) levels = method.output_bits == 4 ? kEightLevels : kFourLevels;
  options.levels = levels;

  GrayImage image;
  if (input.empty()) {
    std::vector<int> patch_levels;
    for (const char* p = levels.c_str(); *p;) {
      patch_levels.push_back(std::atoi(p));
      const char* comma = std::strchr(p, ',');
      if (!comma) break;
      p = comma + 1;
    }
    image = BuiltInChart(patch_levels);
  } else if (std::string err = ReadGray(input, image); !err.empty()) {
    return Fail(kExitFailure, err);
  }

  std::string message;
  if (PrepareTables(method.tables, moths, message) != 0) return Fail(kExitFailure, message);

  DotPlanes dots;
  if (std::string err = RunMethod(method, {image}, options, dots); !err.empty()) return Fail(kExitFailure, err);
  if (std::string err = WriteGray(output, PreviewPlane(dots, 0)); !err.empty()) return Fail(kExitFailure, err);
  return 0;
}
