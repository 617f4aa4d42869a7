#include "filter_options.h"

#include <cups/cups.h>
#include <cups/ppd.h>

#include <cstdlib>
#include <filesystem>

#include "runner.h"

namespace halftone_cups {
namespace {

constexpr const char* kFourLevels = "0,85,170,255,";
constexpr const char* kEightLevels = "0,36,73,109,146,182,219,255,";
constexpr long long kLargestTime = 0xFFFFFFFFLL;
constexpr int kLargestMode = 1000000;

bool ParseInt(const char* text, long long lo, long long hi, long long& value) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  const long long v = std::strtoll(text, &end, 10);
  if (*end != '\0' || v < lo || v > hi) return false;
  value = v;
  return true;
}

// "0,85,170,255" or "0,85,170,255,": two or more values from 0 to 255, rising. Gives the
// library's form, every value followed by a comma.
bool ParseLevels(const std::string& text, std::string& levels) {
  levels.clear();
  int count = 0, last = -1;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t comma = text.find(',', at);
    const std::string item = text.substr(at, comma == std::string::npos ? std::string::npos : comma - at);
    long long v = 0;
    if (!ParseInt(item.c_str(), 0, 255, v) || v <= last) return false;
    last = static_cast<int>(v);
    levels += item + ",";
    ++count;
    if (comma == std::string::npos) break;
    at = comma + 1;
  }
  return count >= 2;
}

// The queue's defaults for the choices the PPD offers, as the administrator set them. libcups
// marks its PPD functions deprecated in favour of IPP destinations, but a filter of a PPD queue
// is handed a PPD, and these are still how libcups reads one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
void PpdDefaults(const char* path, std::string& method, std::string& mode) {
  if (path == nullptr || *path == '\0') return;
  ppd_file_t* ppd = ppdOpenFile(path);
  if (!ppd) return;
  ppdMarkDefaults(ppd);
  if (ppd_choice_t* c = ppdFindMarkedChoice(ppd, "HalftoneMethod")) method = c->choice;
  if (ppd_choice_t* c = ppdFindMarkedChoice(ppd, "HalftoneMode")) mode = c->choice;
  ppdClose(ppd);
}
#pragma GCC diagnostic pop

}  // namespace

std::string DefaultLevels(const halftone_method_info& method) {
  return method.output_bits == 4 ? kEightLevels : kFourLevels;
}

std::string ParseFilterOptions(const char* text, const char* ppd, FilterOptions& out) {
  std::string method = kDefaultMethod, mode = "0", levels, error;
  PpdDefaults(ppd, method, mode);
  cups_option_t* options = nullptr;
  int count = cupsParseOptions(text ? text : "", 0, &options);
  if (!cupsGetOption("HalftoneMode", count, options)) count = cupsAddOption("HalftoneMode", mode.c_str(), count, &options);
  bool levels_given = false;
  for (int i = 0; i < count && error.empty(); ++i) {
    const std::string name = options[i].name;
    const char* value = options[i].value;
    long long n = 0;
    if (name.rfind("Halftone", 0) != 0) continue;
    if (name == "HalftoneMethod") {
      method = value;
    } else if (name == "HalftoneMode") {
      if (!ParseInt(value, -kLargestMode, kLargestMode, n)) error = name + ": '" + value + "' is not a whole number";
      out.mode = static_cast<int>(n);
    } else if (name == "HalftoneLevels") {
      if (!ParseLevels(value, levels)) error = name + ": '" + value + "' is not a rising list of levels such as 0,85,170,255";
      levels_given = true;
    } else if (name == "HalftoneBandRows") {
      if (!ParseInt(value, 1, kMaxBandRows, n)) error = name + ": '" + value + "' is not a number of rows from 1 to " + std::to_string(kMaxBandRows);
      out.band_rows = static_cast<int>(n);
    } else if (name == "HalftoneThreads") {
      if (!ParseInt(value, 0, kMaxThreads, n)) error = name + ": '" + value + "' is not a number of threads from 0 (one a core) to " + std::to_string(kMaxThreads);
      out.threads = static_cast<int>(n);
    } else if (name == "HalftoneTables") {
      std::error_code ec;
      if (!std::filesystem::is_directory(value, ec)) error = name + ": '" + value + "' is not a folder";
      out.tables = value;
    } else if (name == "HalftoneTime") {
      if (!ParseInt(value, 0, kLargestTime, n)) error = name + ": '" + value + "' is not a time in seconds from 0 to 4294967295";
      out.fixed_time = n;
    } else {
      error = name + ": no such option (the options are HalftoneMethod, HalftoneMode, HalftoneLevels, "
                     "HalftoneBandRows, HalftoneThreads, HalftoneTables and HalftoneTime)";
    }
  }
  cupsFreeOptions(count, options);
  if (!error.empty()) return error;
  if (!halftone_tool::FindMethod(method, out.method)) return "HalftoneMethod: no method named '" + method + "'";
  out.levels = levels_given ? levels : DefaultLevels(out.method);
  return {};
}

}  // namespace halftone_cups
