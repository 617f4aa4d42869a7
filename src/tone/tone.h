// Tone curves and level values: the per-print-mode set-up the diffusion routines read.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace halftone {

inline constexpr int kCurveSlots = 15;
inline constexpr std::size_t kCurveLength = 256;
using ToneCurve = std::array<std::uint8_t, kCurveLength>;

// A tone curve maps a raw input sample to a non-negative term the diffusion adds to its error,
// which darkens or lightens the print around the levels where a curve rises. Slot 0 is the
// file's own curve (zero until loaded); slots 1-14 start as built-in curves and are replaced,
// for good, by whatever the tone-curve file holds for them.
struct ToneCurveSet {
  std::array<ToneCurve, kCurveSlots> slots;
  int curve_a = 0;  // slot of the current curve A
  int curve_b = 0;  // slot of the current curve B

  ToneCurveSet();
  const ToneCurve& a() const { return slots[static_cast<std::size_t>(curve_a)]; }
  const ToneCurve& b() const { return slots[static_cast<std::size_t>(curve_b)]; }
};

// The built-in curve of slot `slot` (1..14); slot 0 is all zeros.
ToneCurve BuiltInCurve(int slot);

// Output levels L0..L8 of the multi-level routines, as the host lists them.
inline constexpr int kLevelCount = 9;
struct LevelValues {
  std::array<std::uint8_t, kLevelCount> L{};
};

// The file name of the tone-curve file inside the host folder.
inline constexpr const char* kToneCurveFileName = "ToneAry.ham";

// Overwrites slot k with bytes 256k..256k+255 of the file for every curve the file holds in
// full. Returns 0, or the loader code (20101 cannot open, 20302 no memory, 20103 short read);
// on failure the slots are left as they were.
int LoadToneCurveFile(ToneCurveSet& curves, const std::string& host_folder);

// Makes two slots the current curve A and curve B by print mode.
void SelectMode(ToneCurveSet& curves, int mode);

// Parses "v0,v1,...," into L0..L8: every value must be followed by a comma; each is read like
// atoi and kept modulo 256. Always 0.
int ParseLevelValues(LevelValues& levels, const char* text);

}  // namespace halftone
