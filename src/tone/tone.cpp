#include "tone/tone.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "frame/band.h"
#include "frame/platform.h"

namespace halftone {

namespace {

// Curve pair (A, B) per print mode; modes not listed use the file slot for both.
struct ModeCurves {
  int mode, curve_a, curve_b;
};
constexpr ModeCurves kModeTable[] = {
    {0, 0, 0},    {1, 1, 1},    {2, 1, 4},    {3, 1, 4},    {4, 6, 5},    {5, 7, 5},    {11, 8, 8},
    {12, 8, 9},   {13, 8, 10},  {14, 11, 10}, {15, 12, 10}, {16, 13, 10}, {17, 14, 10},
};

// A tone-curve file larger than this is not a tone-curve file; refuse it rather than read it.
constexpr std::size_t kToneFileMaxBytes = std::size_t{64} << 20;

// A level token holds at most three characters: the longest byte value.
constexpr std::size_t kLevelTokenChars = 3;

}  // namespace

ToneCurveSet::ToneCurveSet() {
  for (int k = 0; k < kCurveSlots; ++k) slots[static_cast<std::size_t>(k)] = BuiltInCurve(k);
}

int LoadToneCurveFile(ToneCurveSet& curves, const std::string& host_folder) {
  const platform::FileBytes file = platform::ReadWholeFile(host_folder + kToneCurveFileName, kToneFileMaxBytes);
  if (file.status != kOk) return file.status;
  // Only whole curves count; anything past the fifteenth is ignored.
  const std::size_t whole = std::min<std::size_t>(file.bytes.size() / kCurveLength, kCurveSlots);
  for (std::size_t k = 0; k < whole; ++k)
    std::memcpy(curves.slots[k].data(), file.bytes.data() + k * kCurveLength, kCurveLength);
  return kOk;
}

void SelectMode(ToneCurveSet& curves, int mode) {
  curves.curve_a = 0;
  curves.curve_b = 0;
  for (const ModeCurves& m : kModeTable) {
    if (m.mode == mode) {
      curves.curve_a = m.curve_a;
      curves.curve_b = m.curve_b;
    }
  }
}

int ParseLevelValues(LevelValues& levels, const char* text) {
  levels.L.fill(0);
  if (text == nullptr) return kOk;
  // Tokens longer than a byte value's three digits and values past the ninth are beyond the
  // list's format; they are cut off here rather than allowed to spill.
  char token[kLevelTokenChars + 1] = {};
  std::size_t pos = 0;
  std::size_t count = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c == ',') {
      if (count < levels.L.size()) levels.L[count] = static_cast<std::uint8_t>(std::atoi(token));
      ++count;
      std::memset(token, 0, sizeof token);
      pos = 0;
    } else if (pos < kLevelTokenChars) {
      token[pos++] = *c;
    }
  }
  return kOk;
}

}  // namespace halftone
