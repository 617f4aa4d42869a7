#include "runner.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <numeric>
#include <thread>

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

// One band through the method's entry point; 0 or the method's refusal code.
int CallBand(const halftone_method_info& m, std::uint8_t* src, std::uint8_t* dst, std::size_t w, int bh, unsigned flags) {
  return m.entry_kind == HALFTONE_ENTRY_BAND
             ? reinterpret_cast<BandEntry>(m.entry)(src, dst, static_cast<int>(w), bh, flags)
             : reinterpret_cast<BandEntryU>(m.entry)(src, dst, static_cast<unsigned>(w), static_cast<unsigned>(bh), flags);
}

unsigned PhaseOf(bool first, bool last) {
  // A one-band job starts the job and leaves its rows for the next start to release.
  return first ? HALFTONE_PHASE_START : last ? HALFTONE_PHASE_END : HALFTONE_PHASE_MIDDLE;
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
    if (std::string err = fill(top, bh, src.data(), in_stride); !err.empty()) return err;
    const unsigned flags = HALFTONE_FLAGS(P, PhaseOf(top == 0, top + bh >= h));
    if (int rc = CallBand(m, src.data(), dst.data(), w, bh, flags); rc != 0) return Failed(m, rc);
    if (std::string err = take(top, bh, dst.data(), out_stride); !err.empty()) return err;
    if (options.on_progress) options.on_progress(static_cast<long long>(top + bh) * P, static_cast<long long>(h) * P);
  }
  return {};
}

// Band buffers handed from one stage of a pipeline to the next, in band order. Closing the queue
// (on an error anywhere) stops every stage waiting on it.
class SlotQueue {
 public:
  void Push(int slot) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      slots_.push_back(slot);
    }
    ready_.notify_one();
  }
  bool Pop(int& slot) {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [&] { return closed_ || !slots_.empty(); });
    if (closed_) return false;
    slot = slots_.front();
    slots_.pop_front();
    return true;
  }
  void Close() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      closed_ = true;
    }
    ready_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<int> slots_;
  bool closed_ = false;
};

// The band loop with reading and writing on threads of their own: a reader fills picture bands
// ahead, the calling thread runs the method on them in order, and every sink takes the dot bands
// behind on a thread of its own (a dot band is reused once all have taken it). Only the calling
// thread enters the library.
std::string OverlappedBands(const halftone_method_info& m, std::size_t w, int h, unsigned P, const RunOptions& options,
                            const BandSource& read, const std::vector<BandSink>& sinks) {
  constexpr int kSlots = 3;  // a band being read (or written), one waiting, one in the method
  const std::size_t in_stride = RasterStride(w), out_stride = DotStride(w, m.output_bits);
  const int rows_per_band = std::max(1, std::min(options.band_rows, h));
  const int bands = (h + rows_per_band - 1) / rows_per_band;
  struct Band {
    std::vector<std::uint8_t> data;
    int rows = 0;
    std::atomic<int> pending{0};  // sinks yet to take a dot band
  };
  std::vector<Band> src(kSlots), dst(kSlots);
  std::vector<SlotQueue> full(sinks.size());
  SlotQueue src_free, src_full, dst_free;
  for (int i = 0; i < kSlots; ++i) {
    src[i].data.resize(in_stride * P * static_cast<std::size_t>(rows_per_band));
    dst[i].data.resize(out_stride * P * static_cast<std::size_t>(rows_per_band));
    src_free.Push(i);
    dst_free.Push(i);
  }
  std::mutex error_mutex;
  std::string error;
  auto fail = [&](const std::string& why) {
    {
      std::lock_guard<std::mutex> lock(error_mutex);
      if (error.empty()) error = why;
    }
    for (SlotQueue* q : {&src_free, &src_full, &dst_free}) q->Close();
    for (SlotQueue& q : full) q.Close();
  };

  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    for (int b = 0, s = 0; b < bands; ++b) {
      if (!src_free.Pop(s)) return;
      src[s].rows = std::min(rows_per_band, h - b * rows_per_band);
      if (std::string err = read(src[s].data.data(), src[s].rows, in_stride); !err.empty()) return fail(err);
      src_full.Push(s);
    }
  });
  for (std::size_t k = 0; k < sinks.size(); ++k)
    threads.emplace_back([&, k] {
      for (int b = 0, d = 0; b < bands; ++b) {
        if (!full[k].Pop(d)) return;
        if (std::string err = sinks[k](dst[d].data.data(), dst[d].rows, out_stride); !err.empty()) return fail(err);
        if (dst[d].pending.fetch_sub(1) == 1) dst_free.Push(d);
      }
    });
  for (int b = 0, s = 0, d = 0, top = 0; b < bands; ++b, top += rows_per_band) {
    if (!src_full.Pop(s) || !dst_free.Pop(d)) break;
    const int bh = src[s].rows;
    const unsigned flags = HALFTONE_FLAGS(P, PhaseOf(b == 0, b + 1 == bands));
    const int rc = CallBand(m, src[s].data.data(), dst[d].data.data(), w, bh, flags);
    dst[d].rows = bh;
    src_free.Push(s);
    if (rc != 0) {
      fail(Failed(m, rc));
      break;
    }
    dst[d].pending.store(static_cast<int>(sinks.size()));
    for (SlotQueue& q : full) q.Push(d);
    if (sinks.empty()) dst_free.Push(d);
    if (options.on_progress) options.on_progress(static_cast<long long>(top + bh) * P, static_cast<long long>(h) * P);
  }
  for (std::thread& t : threads) t.join();
  return error;
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
  return CodeAt(planes[static_cast<std::size_t>(plane)].data() + static_cast<std::size_t>(y) * stride, bits, x);
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

std::string RunMethodStreamed(const halftone_method_info& method, int width, int height, int planes,
                              const RunOptions& options, const BandSource& read, const std::vector<BandSink>& sinks) {
  if (width <= 0 || height <= 0 || planes <= 0) return "nothing to halftone";
  if (!Banded(method)) return std::string(method.name) + " does not take bands";
  halftone_set_fixed_time(options.fixed_time);
  Itsdiufiavs(options.mode, options.levels.c_str());
  const auto w = static_cast<std::size_t>(width);
  const auto P = static_cast<unsigned>(planes);
  if (options.overlap) return OverlappedBands(method, w, height, P, options, read, sinks);
  auto fill = [&](int, int bh, std::uint8_t* src, std::size_t stride) { return read(src, bh, stride); };
  auto take = [&](int, int bh, const std::uint8_t* dst, std::size_t stride) {
    for (const BandSink& sink : sinks)
      if (std::string err = sink(dst, bh, stride); !err.empty()) return err;
    return std::string{};
  };
  return BandLoop(method, w, height, P, options, fill, take);
}

GrayImage PreviewPlane(const DotPlanes& dots, int plane) {
  GrayImage img;
  img.width = dots.pixels;
  img.height = dots.rows;
  img.pixels.assign(static_cast<std::size_t>(img.width) * static_cast<std::size_t>(img.height), 255);
  const unsigned full = FullCode(dots.bits);
  for (int y = 0; y < img.height; ++y)
    for (int x = 0; x < img.width; ++x)
      img.at(x, y) = static_cast<std::uint8_t>(255 - dots.Code(plane, x, y) * 255 / full);
  return img;
}

}  // namespace halftone_tool
