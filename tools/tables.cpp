// Screening tables for the halftone command. With --moths the files come from the given folder;
// without it the command writes its own example set to a temporary folder, loads it through the
// library's loaders and removes the folder again (the tables stay loaded in the library).
#include "tables.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>
#include <vector>

#include "example_tables.h"
#include "halftone/halftone.h"

namespace halftone_tool {

namespace {

namespace fs = std::filesystem;
namespace ex = halftone::examples;

// File names the command looks for in a Moths folder. The threshold bitmap is the first of
// kBitmapNames present, so a folder may hold both example bitmaps and a host's own.
const char* const kBitmapNames[] = {"threshold.bmp", "dispersed.bmp", "clustered.bmp"};
constexpr const char* kMonoName = "mono.pat";
constexpr const char* kDuoName = "duo.pat";
constexpr const char* kLayerName = "layers.txt";
constexpr int kPatternWidth = 256;  // the fixed-size pattern screens need full-width patterns

bool WriteFile(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

// Writes the example files the tables in `mask` are loaded from, and no others.
bool WriteExamples(unsigned mask, const fs::path& moths) {
  bool ok = true;
  if (mask & (HALFTONE_TABLE_BITMAP | HALFTONE_TABLE_BIAS))
    ok = ok && WriteFile(moths / "dispersed.bmp", ex::BitmapFile(ex::DispersedThresholds(), ex::kSide, ex::kSide)) &&
         WriteFile(moths / "clustered.bmp", ex::BitmapFile(ex::ClusteredThresholds(), ex::kSide, ex::kSide));
  if (mask & HALFTONE_TABLE_MONO) ok = ok && WriteFile(moths / kMonoName, ex::PatternStackFile(1, kPatternWidth, kPatternWidth));
  if (mask & HALFTONE_TABLE_DUO) ok = ok && WriteFile(moths / kDuoName, ex::PatternStackFile(2, kPatternWidth, kPatternWidth));
  if (mask & HALFTONE_TABLE_LAYER) {
    const std::string layers = ex::LayerTableText();
    ok = ok && WriteFile(moths / kLayerName, std::vector<std::uint8_t>(layers.begin(), layers.end()));
  }
  return ok;
}

// Rows of a pattern stack file of 256 full-width patterns, from its size.
int PatternRows(const fs::path& file, int bits) {
  std::error_code ec;
  const auto size = fs::file_size(file, ec);
  const auto per_row = static_cast<std::uintmax_t>(kPatternWidth * bits / 8) * 256;
  if (ec || size < per_row) return kPatternWidth;  // let the loader report the short file
  return static_cast<int>(std::min<std::uintmax_t>(size / per_row, kPatternWidth));
}

int Check(int rc, const std::string& what, std::string& message) {
  if (rc != 0) message = "cannot load " + what + " (code " + std::to_string(rc) + ")";
  return rc;
}

int LoadAll(unsigned mask, const fs::path& moths, std::string& message) {
  if (mask & (HALFTONE_TABLE_BITMAP | HALFTONE_TABLE_BIAS)) {
    std::string name = kBitmapNames[0];
    for (const char* candidate : kBitmapNames)
      if (fs::exists(moths / candidate)) {
        name = candidate;
        break;
      }
    PuaningFa13(name.c_str(), 0, 0);  // also derives the bias matrix
    if (Check(halftone_last_load_status(), (moths / name).string(), message)) return 1;
  }
  // Duo first: each pattern load also sets the edge masks, and the 1-bit screens need theirs.
  if (mask & HALFTONE_TABLE_DUO) {
    const int rows = PatternRows(moths / kDuoName, 2);
    if (Check(NingJing(kDuoName, kPatternWidth, rows), (moths / kDuoName).string(), message)) return 1;
  }
  if (mask & HALFTONE_TABLE_MONO) {
    const int rows = PatternRows(moths / kMonoName, 1);
    if (Check(KaiDuaning(kMonoName, kPatternWidth, rows), (moths / kMonoName).string(), message)) return 1;
  }
  if (mask & HALFTONE_TABLE_LAYER) {
    NiceMents(kLayerName, 0, 0);
    if (Check(halftone_last_load_status(), (moths / kLayerName).string(), message)) return 1;
  }
  if (mask & HALFTONE_TABLE_BAYER) {
    if (Check(SincesKai(), "the ordered-dither matrix", message)) return 1;
  }
  return 0;
}

}  // namespace

int PrepareTables(unsigned mask, const std::string& moths_dir, std::string& message) {
  if (mask == 0) return 0;
  std::error_code ec;
  if (!moths_dir.empty()) {
    // The library reads "<host>/Moths/<name>": accept the host folder or the Moths folder itself.
    fs::path dir = fs::absolute(moths_dir, ec);
    if (ec || !fs::is_directory(dir)) {
      message = "--moths: not a folder: " + moths_dir;
      return 1;
    }
    if (dir.filename().empty()) dir = dir.parent_path();
    fs::path host = dir;
    if (!fs::is_directory(dir / "Moths")) {
      if (dir.filename() != "Moths") {
        message = "--moths: " + moths_dir + " is neither a folder named Moths nor one that holds it";
        return 1;
      }
      host = dir.parent_path();
    }
    halftone_set_host_folder(host.string().c_str());
    const int rc = LoadAll(mask, host / "Moths", message);
    halftone_set_host_folder(nullptr);
    return rc;
  }

  const fs::path host = fs::temp_directory_path(ec) / ("halftone-tables-" + std::to_string(std::random_device{}()));
  if (ec || !fs::create_directories(host / "Moths", ec) || !WriteExamples(mask, host / "Moths")) {
    message = "cannot write the example tables to " + host.string();
    fs::remove_all(host, ec);
    return 1;
  }
  halftone_set_host_folder(host.string().c_str());
  const int rc = LoadAll(mask, host / "Moths", message);
  halftone_set_host_folder(nullptr);
  fs::remove_all(host, ec);
  return rc;
}

}  // namespace halftone_tool
