// Fixed halftoning jobs over every registry method, reduced to one 64-bit digest each: the
// golden-digest test compares them with a recorded table, the benchmarks use the same set-up.
// Everything here is deterministic: the chart is built in code, the tables are generated, the
// clock is pinned.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "../tools/example_tables.h"
#include "halftone/halftone.h"

namespace golden {

inline constexpr long long kFixedTime = 1234567;

// 64-bit FNV-1a.
class Fnv1a {
 public:
  void Add(const std::uint8_t* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      hash_ ^= p[i];
      hash_ *= 0x100000001b3ull;
    }
  }
  void Add(const std::vector<std::uint8_t>& bytes) { Add(bytes.data(), bytes.size()); }
  void AddInt(int v) {
    const auto u = static_cast<std::uint32_t>(v);
    const std::uint8_t b[4] = {static_cast<std::uint8_t>(u), static_cast<std::uint8_t>(u >> 8),
                               static_cast<std::uint8_t>(u >> 16), static_cast<std::uint8_t>(u >> 24)};
    Add(b, 4);
  }
  std::uint64_t value() const { return hash_; }

 private:
  std::uint64_t hash_ = 0xcbf29ce484222325ull;
};

inline std::size_t SrcStride(std::size_t w) { return ((w * 8 + 31) >> 5) * 4; }
inline std::size_t DstStride(std::size_t w, unsigned bits) { return ((w * bits + 31) >> 5) * 4; }

// The test chart: sample of plane p at pixel x of job row y in a row of width w. Rows cycle
// through ramps, flats at the extremes and around the middle, hairlines, seeded noise and
// runs of flats, shifted per plane so planes differ.
inline std::uint8_t ChartSample(std::size_t x, std::size_t y, unsigned p, std::size_t w) {
  static constexpr std::uint8_t kFlats[] = {0, 1, 127, 128, 254, 255};
  const std::size_t section = (y + p) % 6;
  const std::size_t step = y / 6 + p;
  switch (section) {
    case 0: return static_cast<std::uint8_t>(w > 1 ? x * 255 / (w - 1) : 128);
    case 1: return kFlats[step % 6];
    case 2: return (x % 8 == step % 8) ? 0 : 255;  // hairline
    case 3: {
      std::uint64_t z = (x * 0x9E3779B97F4A7C15ull) ^ (y * 0xC2B2AE3D27D4EB4Full) ^ (p * 0x165667B19E3779F9ull);
      z ^= z >> 31;
      z *= 0xBF58476D1CE4E5B9ull;
      z ^= z >> 29;
      return static_cast<std::uint8_t>(z >> 24);
    }
    case 4: return static_cast<std::uint8_t>(255 - (x * 7 + y * 3 + p * 50) % 256);
    default: return kFlats[(x / 13 + step) % 6];
  }
}

// Band rows [y0, y0 + h) of a P-plane chart of width w, in the interleaved band layout.
inline std::vector<std::uint8_t> ChartBand(std::size_t w, std::size_t y0, std::size_t h, unsigned planes) {
  const std::size_t stride = SrcStride(w);
  std::vector<std::uint8_t> band(stride * planes * h, 0);
  for (std::size_t y = 0; y < h; ++y)
    for (unsigned p = 0; p < planes; ++p)
      for (std::size_t x = 0; x < w; ++x) band[(y * planes + p) * stride + x] = ChartSample(x, y0 + y, p, w);
  return band;
}

// The benchmarks' picture: a long horizontal ramp (shifted per plane) with a strip of the
// chart every 64 rows, so the screens see long runs and the diffusions every level.
inline std::vector<std::uint8_t> BenchPicture(std::size_t w, std::size_t h, unsigned planes) {
  const std::size_t stride = SrcStride(w);
  std::vector<std::uint8_t> band(stride * planes * h);
  for (std::size_t y = 0; y < h; ++y)
    for (unsigned p = 0; p < planes; ++p)
      for (std::size_t x = 0; x < w; ++x)
        band[(y * planes + p) * stride + x] =
            (y % 64 < 8) ? ChartSample(x, y, p, w) : static_cast<std::uint8_t>((x * 255 / (w - 1) + 40 * p) % 256);
  return band;
}

// Writes a tone-curve file and a full set of screening tables into `host` and `host`/Moths.
inline void WriteFixedTables(const std::filesystem::path& host) {
  namespace ex = halftone::examples;
  std::filesystem::create_directories(host / "Moths");
  auto write = [&](const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  };
  // Fifteen curves, each a gentle rise and fall with its own height.
  std::vector<std::uint8_t> tone(15 * 256);
  for (std::size_t k = 0; k < 15; ++k)
    for (std::size_t i = 0; i < 256; ++i) tone[k * 256 + i] = static_cast<std::uint8_t>(i * (255 - i) * (k + 2) / (64 * 255));
  write(host / "ToneAry.ham", tone);
  write(host / "Moths" / "bitmap.bmp", ex::BitmapFile(ex::DispersedThresholds(), ex::kSide, ex::kSide));
  write(host / "Moths" / "mono.pat", ex::PatternStackFile(1, 256, 256));
  write(host / "Moths" / "duo.pat", ex::PatternStackFile(2, 256, 256));
  const std::string layers = ex::LayerTableText();
  write(host / "Moths" / "layers.txt", std::vector<std::uint8_t>(layers.begin(), layers.end()));
}

// Writes the tables (WriteFixedTables) and loads them all, in a fixed order, so every method
// sees the same tables whatever ran before. Returns the first failing load's code, else 0.
inline int LoadFixedTables(const std::filesystem::path& host) {
  WriteFixedTables(host);
  halftone_set_host_folder(host.string().c_str());
  int rc = 0;
  auto note = [&](int code) {
    if (rc == 0) rc = code;
  };
  PuaningFa13("bitmap.bmp", 0, 0);
  note(halftone_last_load_status());
  note(NingJing("duo.pat", 256, 256));
  note(KaiDuaning("mono.pat", 256, 256));
  NiceMents("layers.txt", 0, 0);
  note(halftone_last_load_status());
  note(SincesKai());
  return rc;
}

// Tone curves and levels of the two set-ups every method runs under.
inline constexpr struct {
  int mode;
  const char* levels;
} kSetups[] = {{4, "0,85,170,255,"}, {12, "0,36,72,109,145,182,218,255,240,"}};

using BandFn = int (*)(unsigned char*, unsigned char*, int, int, unsigned);
using BandUFn = int (*)(unsigned char*, unsigned char*, unsigned, unsigned, unsigned);
using PlaneFn = int (*)(unsigned char*, unsigned char*, unsigned, unsigned);
using LookupRefFn = int (*)(unsigned char*, unsigned char*&, int, int, int*, unsigned char*);
using LookupFn = int (*)(unsigned char*, unsigned char*, int, int, int*, unsigned char*);

inline int CallBand(const halftone_method_info& m, unsigned char* src, unsigned char* dst, std::size_t w,
                    std::size_t h, unsigned flags) {
  if (m.entry_kind == HALFTONE_ENTRY_BAND)
    return reinterpret_cast<BandFn>(m.entry)(src, dst, static_cast<int>(w), static_cast<int>(h), flags);
  return reinterpret_cast<BandUFn>(m.entry)(src, dst, static_cast<unsigned>(w), static_cast<unsigned>(h), flags);
}

// Calls a whole-job method (one plane, every row in one call) on a w x h picture.
inline int CallWhole(const halftone_method_info& m, unsigned char* src, unsigned char* dst, std::size_t w,
                     std::size_t h, int* lookup) {
  const int iw = static_cast<int>(w), ih = static_cast<int>(h);
  switch (m.entry_kind) {
    case HALFTONE_ENTRY_PLANE:
      return reinterpret_cast<PlaneFn>(m.entry)(src, dst, static_cast<unsigned>(w), static_cast<unsigned>(h));
    case HALFTONE_ENTRY_LOOKUP_REF: {
      unsigned char* out = dst;
      return reinterpret_cast<LookupRefFn>(m.entry)(src, out, iw, ih, lookup, nullptr);
    }
    default: return reinterpret_cast<LookupFn>(m.entry)(src, dst, iw, ih, lookup, nullptr);
  }
}

// The registry, in order.
inline std::vector<halftone_method_info> Methods() {
  std::vector<halftone_method_info> all;
  for (int i = 0, n = halftone_method_count(); i < n; ++i) {
    halftone_method_info info{};
    if (halftone_method_get(i, &info) == 0) all.push_back(info);
  }
  return all;
}
// Test names for tests over the registry (a testing::TestParamInfo).
inline constexpr auto MethodName = [](const auto& row) { return std::string(row.param.name); };
inline bool IsBandMethod(const halftone_method_info& m) {
  return m.entry_kind == HALFTONE_ENTRY_BAND || m.entry_kind == HALFTONE_ENTRY_BAND_UNSIGNED;
}

inline const std::size_t kWidths[] = {1, 7, 37, 640};
inline const unsigned kPlaneCounts[] = {1, 2, 4};
// One job: bands of these heights and phases; the second band is narrower when it can be.
inline constexpr struct {
  std::size_t h;
  unsigned phase;
} kJobBands[] = {{5, 1}, {1, 0}, {16, 0}, {2, 0}, {1, 3}};

// Runs every golden job of method `m` (tables already loaded) and returns its digest: every
// output byte and return code of every call, in order.
inline std::uint64_t MethodDigest(const halftone_method_info& m) {
  Fnv1a digest;
  for (const auto& setup : kSetups) {
    halftone_set_fixed_time(kFixedTime);
    Itsdiufiavs(setup.mode, setup.levels);
    if (IsBandMethod(m)) {
      for (std::size_t w : kWidths)
        for (unsigned planes : kPlaneCounts) {
          std::size_t y0 = 0;
          for (std::size_t b = 0; b < std::size(kJobBands); ++b) {
            const std::size_t h = kJobBands[b].h;
            const std::size_t bw = (b == 1 && w > 1) ? w / 2 + 1 : w;
            auto src = ChartBand(bw, y0, h, planes);
            std::vector<std::uint8_t> dst(DstStride(bw, static_cast<unsigned>(m.output_bits)) * planes * h, 0xA5);
            digest.AddInt(CallBand(m, src.data(), dst.data(), bw, h, HALFTONE_FLAGS(planes, kJobBands[b].phase)));
            digest.Add(dst);
            y0 += h;
          }
        }
    } else {
      // One plane, a whole job a call.
      std::vector<int> lookup(256);
      for (int v = 0; v < 256; ++v) lookup[static_cast<std::size_t>(v)] = setup.mode == 4 ? v : (v * v) / 255 - 8;
      for (std::size_t w : kWidths)
        for (std::size_t h : {std::size_t{1}, std::size_t{2}, std::size_t{5}, std::size_t{16}, std::size_t{33}}) {
          auto src = ChartBand(w, 0, h, 1);
          const std::size_t rows_bytes = h * DstStride(w, 1), turned_bytes = w * DstStride(h, 1);
          std::vector<std::uint8_t> dst(std::max(rows_bytes, turned_bytes), 0);
          const int rc = CallWhole(m, src.data(), dst.data(), w, h, lookup.data());
          digest.AddInt(rc);
          digest.Add(dst);
        }
    }
  }
  halftone_set_fixed_time(-1);
  return digest.value();
}

}  // namespace golden

// The parameter of tests over the registry is a plain C struct; test listings show its name.
inline void PrintTo(const halftone_method_info& m, std::ostream* os) { *os << m.name; }
