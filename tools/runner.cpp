#include "runner.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace halftone_tool {
namespace {

using BandEntry = int (*)(unsigned char*, unsigned char*, int, int, unsigned int);
using BandEntryU = int (*)(unsigned char*, unsigned char*, unsigned int, unsigned int, unsigned int);
using PlaneEntry = int (*)(unsigned char*, unsigned char*, unsigned int, unsigned int);
using LookupRefEntry = int (*)(unsigned char*, unsigned char*&, int, int, int*, unsigned char*);
using LookupEntry = int (*)(unsigned char*, unsigned char*, int, int, int*, unsigned char*);

std::size_t RasterStride(std::size_t w) { return ((w * 8 + 31) >> 5) * 4; }
std::size_t DotStride(std::size_t w, int bits) { return ((w * static_cast<std::size_t>(bits) + 31) >> 5) * 4; }

std::string Failed(const halftone_method_info& m, int rc) {
  return std::string(m.name) + " refused the band (code " + std::to_string(rc) + ")";
}

// The band loop every banded run shares: `fill(top, bh, src, in_stride)` puts picture rows
// [top, top + bh) of every plane into the interleaved band, `take(top, bh, dst, out_stride)`
// takes its dot rows away. Either returns an error message or an empty string.
template <class Fill, class Take>
std::string BandLoop(const halftone_method_info& m, std::size_t w, int h, unsigned P, const RunOptions& options,
                     Fill&& fill, Take&& take) {
  const int band_rows = options.band_rows;
  const std::size_t in_stride = RasterStride(w), out_stride = DotStride(w, m.output_bits);
  const int rows_per_band = std::max(1, std::min(band_rows, h));
  std::vector<std::uint8_t> src(in_stride * P * static_cast<std::size_t>(rows_per_band));
  std::vector<std::uint8_t> dst(out_stride * P * static_cast<std::size_t>(rows_per_band));

  for (int top = 0; top < h; top += rows_per_band) {
    const int bh = std::min(rows_per_band, h - top);
    const bool first = top == 0, last = top + bh >= h;
    // A one-band job starts the job and leaves its rows for the next start to release.
    const unsigned phase = first ? HALFTONE_PHASE_START : last ? HALFTONE_PHASE_END : HALFTONE_PHASE_MIDDLE;
    if (std::string err = fill(top, bh, src.data(), in_stride); !err.empty()) return err;
    const unsigned flags = HALFTONE_FLAGS(P, phase);
    int rc = m.entry_kind == HALFTONE_ENTRY_BAND
                 ? reinterpret_cast<BandEntry>(m.entry)(src.data(), dst.data(), static_cast<int>(w), bh, flags)
                 : reinterpret_cast<BandEntryU>(m.entry)(src.data(), dst.data(), static_cast<unsigned>(w),
                                                        static_cast<unsigned>(bh), flags);
    if (rc != 0) return Failed(m, rc);
    if (std::string err = take(top, bh, dst.data(), out_stride); !err.empty()) return err;
    if (options.on_progress) options.on_progress(static_cast<long long>(top + bh) * P, static_cast<long long>(h) * P);
  }
  return {};
}

std::string RunBands(const halftone_method_info& m, const std::vector<GrayImage>& planes, const RunOptions& options,
                     DotPlanes& out) {
  const std::size_t w = static_cast<std::size_t>(planes[0].width);
  const int h = planes[0].height;
  const unsigned P = static_cast<unsigned>(planes.size());
  const std::size_t out_stride = DotStride(w, m.output_bits);
  out.stride = out_stride;
  for (auto& plane : out.planes) plane.assign(out_stride * static_cast<std::size_t>(h), 0);
  auto fill = [&](int top, int bh, std::uint8_t* src, std::size_t in_stride) {
    for (int y = 0; y < bh; ++y)
      for (unsigned p = 0; p < P; ++p)
        std::memcpy(&src[(static_cast<std::size_t>(y) * P + p) * in_stride],
                    &planes[p].pixels[static_cast<std::size_t>(top + y) * w], w);
    return std::string{};
  };
  auto take = [&](int top, int bh, const std::uint8_t* dst, std::size_t stride) {
    for (int y = 0; y < bh; ++y)
      for (unsigned p = 0; p < P; ++p)
        std::memcpy(&out.planes[p][static_cast<std::size_t>(top + y) * stride],
                    &dst[(static_cast<std::size_t>(y) * P + p) * stride], stride);
    return std::string{};
  };
  return BandLoop(m, w, h, P, options, fill, take);
}

// The one-plane methods take no flags word: each call is a whole job over the whole plane.
std::string RunWholePlanes(const halftone_method_info& m, const std::vector<GrayImage>& planes, const RunOptions& options,
                           DotPlanes& out) {
  const int w = planes[0].width, h = planes[0].height;
  const std::size_t in_stride = RasterStride(static_cast<std::size_t>(w));
  const std::size_t row_bytes = DotStride(static_cast<std::size_t>(w), 1);
  const std::size_t col_bytes = DotStride(static_cast<std::size_t>(h), 1);
  const bool turned = m.layout == HALFTONE_LAYOUT_TURNED;
  out.stride = turned ? col_bytes : row_bytes;
  // Some methods write an unturned last row past the turned picture: give them room for both.
  const std::size_t capacity = std::max(row_bytes * static_cast<std::size_t>(h), col_bytes * static_cast<std::size_t>(w));
  std::vector<int> identity(256);
  std::iota(identity.begin(), identity.end(), 0);
  std::vector<std::uint8_t> src(in_stride * static_cast<std::size_t>(h));
  for (std::size_t p = 0; p < planes.size(); ++p) {
    for (int y = 0; y < h; ++y)
      std::memcpy(&src[static_cast<std::size_t>(y) * in_stride], &planes[p].pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(w)],
                  static_cast<std::size_t>(w));
    std::vector<std::uint8_t> dst(capacity, 0);
    unsigned char* dst_ptr = dst.data();
    int rc = 0;
    switch (m.entry_kind) {
      case HALFTONE_ENTRY_PLANE:
        rc = reinterpret_cast<PlaneEntry>(m.entry)(src.data(), dst_ptr, static_cast<unsigned>(w), static_cast<unsigned>(h));
        break;
      case HALFTONE_ENTRY_LOOKUP_REF:
        rc = reinterpret_cast<LookupRefEntry>(m.entry)(src.data(), dst_ptr, w, h, identity.data(), nullptr);
        break;
      default:
        rc = reinterpret_cast<LookupEntry>(m.entry)(src.data(), dst_ptr, w, h, identity.data(), nullptr);
        break;
    }
    if (rc != 0) return Failed(m, rc);
    dst.resize(out.stride * static_cast<std::size_t>(out.rows));
    out.planes[p] = std::move(dst);
    if (options.on_progress)
      options.on_progress(static_cast<long long>(p + 1) * h, static_cast<long long>(planes.size()) * h);
  }
  return {};
}

}  // namespace

std::vector<halftone_method_info> ListMethods() {
  std::vector<halftone_method_info> all;
  for (int i = 0, n = halftone_method_count(); i < n; ++i) {
    halftone_method_info info{};
    if (halftone_method_get(i, &info) == 0) all.push_back(info);
  }
  return all;
}

bool FindMethod(const std::string& name, halftone_method_info& info) {
  for (const auto& m : ListMethods())
    if (name == m.name) {
      info = m;
      return true;
    }
  return false;
}

unsigned DotPlanes::Code(int plane, int x, int y) const {
  const std::uint8_t* row = planes[static_cast<std::size_t>(plane)].data() + static_cast<std::size_t>(y) * stride;
  switch (bits) {
    case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1u;
    case 2: return (row[x >> 2] >> (6 - 2 * (x & 3))) & 3u;
    default: return (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 7u;
  }
}

std::string RunMethod(const halftone_method_info& method, const std::vector<GrayImage>& planes,
                      const RunOptions& options, DotPlanes& out) {
  if (planes.empty() || planes[0].width <= 0 || planes[0].height <= 0) return "nothing to halftone";
  halftone_set_fixed_time(options.fixed_time);
  Itsdiufiavs(options.mode, options.levels.c_str());
  out = DotPlanes{};
  out.bits = method.output_bits;
  out.planes.resize(planes.size());
  const bool turned = method.layout == HALFTONE_LAYOUT_TURNED;
  out.pixels = turned ? planes[0].height : planes[0].width;
  out.rows = turned ? planes[0].width : planes[0].height;
  if (Banded(method))
    return RunBands(method, planes, options, out);
  return RunWholePlanes(method, planes, options, out);
}

bool Banded(const halftone_method_info& method) {
  return method.entry_kind == HALFTONE_ENTRY_BAND || method.entry_kind == HALFTONE_ENTRY_BAND_UNSIGNED;
}

std::string RunMethodStreamed(const halftone_method_info& method, int width, int height, const RunOptions& options,
                              const RowSource& read, const RowSink& write) {
  if (width <= 0 || height <= 0) return "nothing to halftone";
  if (!Banded(method)) return std::string(method.name) + " does not take bands";
  halftone_set_fixed_time(options.fixed_time);
  Itsdiufiavs(options.mode, options.levels.c_str());
  auto fill = [&](int, int bh, std::uint8_t* src, std::size_t stride) { return read(src, bh, stride); };
  auto take = [&](int, int bh, std::uint8_t* dst, std::size_t stride) { return write(dst, bh, stride); };
  return BandLoop(method, static_cast<std::size_t>(width), height, 1, options, fill, take);
}

GrayImage PreviewPlane(const DotPlanes& dots, int plane) {
  GrayImage img;
  img.width = dots.pixels;
  img.height = dots.rows;
  img.pixels.assign(static_cast<std::size_t>(img.width) * static_cast<std::size_t>(img.height), 255);
  // Largest code of each depth: a 1-bit dot, the 2-bit largest drop, the eighth drop size.
  const unsigned full = dots.bits == 1 ? 1u : dots.bits == 2 ? 3u : 7u;
  for (int y = 0; y < img.height; ++y)
    for (int x = 0; x < img.width; ++x)
      img.at(x, y) = static_cast<std::uint8_t>(255 - dots.Code(plane, x, y) * 255 / full);
  return img;
}

}  // namespace halftone_tool
