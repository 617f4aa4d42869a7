#include "page_source.h"

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "image_io.h"
#include "picture.h"
#include "tiff_io.h"

#ifndef HALFTONE_HAVE_PNG
#define HALFTONE_HAVE_PNG 0
#endif
#ifndef HALFTONE_HAVE_TIFF
#define HALFTONE_HAVE_TIFF 0
#endif
#if HALFTONE_HAVE_PNG
#include <png.h>
#endif
#if HALFTONE_HAVE_TIFF
#include <tiffio.h>
#endif

namespace halftone_tool {
namespace {

constexpr int kFullInk = 255;
constexpr std::uint32_t kMaxSide = 65536;
constexpr const char* kPlaneNames[] = {"Cyan", "Magenta", "Yellow", "Black"};
constexpr unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

// A row of a band: plane p of band row y.
std::uint8_t* BandRow(std::uint8_t* band, int y, int P, int p, std::size_t stride) {
  return band + (static_cast<std::size_t>(y) * static_cast<std::size_t>(P) + static_cast<std::size_t>(p)) * stride;
}

// Splits one file row into the band's row y. Band rows of one pixel row are `stride` apart.
[[maybe_unused]] void SplitIntoBand(SampleKind kind, const std::uint8_t* pixels, int step, int width, std::uint8_t* band, int y,
                   int P, std::size_t stride) {
  SplitRow(kind, pixels, step, width, BandRow(band, y, P, 0, stride), stride);
}

class PgmSource : public PageSource {
 public:
  std::string Open(const std::string& path) {
    if (std::string err = rows_.Open(path); !err.empty()) return err;
    SetShape(rows_.width(), rows_.height(), SampleKind::kGrey);
    return {};
  }
  std::string Read(std::uint8_t* band, int count, std::size_t stride) override { return rows_.Read(band, count, stride); }

 private:
  PgmRows rows_;
};

class MemorySource : public PageSource {
 public:
  explicit MemorySource(const Picture& picture) : picture_(picture) {
    width_ = picture.planes.empty() ? 0 : picture.planes[0].width;
    height_ = picture.planes.empty() ? 0 : picture.planes[0].height;
    names_ = picture.names;
  }
  std::string Read(std::uint8_t* band, int count, std::size_t stride) override {
    if (next_ + count > height_) return "read past the picture's last row";
    const int P = planes();
    const auto w = static_cast<std::size_t>(width_);
    for (int y = 0; y < count; ++y, ++next_)
      for (int p = 0; p < P; ++p)
        std::memcpy(BandRow(band, y, P, p, stride), &picture_.planes[static_cast<std::size_t>(p)].pixels[static_cast<std::size_t>(next_) * w], w);
    return {};
  }

 private:
  const Picture& picture_;
  int next_ = 0;
};

#if HALFTONE_HAVE_PNG
// libpng reports errors by longjmp: every call that can fail runs in a guarded function whose
// frame holds nothing with a destructor, and the message is kept here.
class PngSource : public PageSource {
 public:
  ~PngSource() override {
    if (png_) png_destroy_read_struct(&png_, &info_, nullptr);
    if (file_) std::fclose(file_);
  }

  std::string Open(const std::string& path) {
    path_ = path;
    file_ = std::fopen(path.c_str(), "rb");
    if (!file_) return "cannot open '" + path + "': " + std::strerror(errno);
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning);
    info_ = png_ ? png_create_info_struct(png_) : nullptr;
    if (!info_) return "'" + path + "': out of memory";
    if (!Start()) return Why();
    if (width_ <= 0 || height_ <= 0 || static_cast<std::uint32_t>(width_) > kMaxSide ||
        static_cast<std::uint32_t>(height_) > kMaxSide)
      return "'" + path + "' has an unsupported size";
    row_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(channels_));
    paper_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(colour_ ? 3 : 1));
    if (passes_ > 1) {
      // Interlaced rows are complete only after the last pass: such a file is read whole.
      whole_.resize(row_.size() * static_cast<std::size_t>(height_));
      std::vector<png_bytep> rows(static_cast<std::size_t>(height_));
      for (int y = 0; y < height_; ++y) rows[static_cast<std::size_t>(y)] = &whole_[static_cast<std::size_t>(y) * row_.size()];
      if (!ReadImage(png_, rows.data())) return Why();
    }
    return {};
  }

  std::string Read(std::uint8_t* band, int count, std::size_t stride) override {
    const SampleKind kind = colour_ ? SampleKind::kRgb : SampleKind::kGrey;
    const int colours = colour_ ? 3 : 1;
    for (int y = 0; y < count; ++y, ++next_) {
      if (next_ >= height_) return "'" + path_ + "': read past the last row";
      const std::uint8_t* px = row_.data();
      if (passes_ > 1) {
        px = &whole_[static_cast<std::size_t>(next_) * row_.size()];
      } else if (!ReadRow(png_, row_.data())) {
        return Why();
      }
      if (channels_ > colours) px = OnPaper(px, colours);
      SplitIntoBand(kind, px, colours, width_, band, y, planes(), stride);
    }
    return {};
  }

 private:
  static void OnError(png_structp png, png_const_charp message) {
    static_cast<PngSource*>(png_get_error_ptr(png))->error_ = message;
    png_longjmp(png, 1);
  }
  static void OnWarning(png_structp, png_const_charp) {}

  bool Start() {
    if (setjmp(png_jmpbuf(png_))) return false;
    png_init_io(png_, file_);
    png_read_info(png_, info_);
    const int type = png_get_color_type(png_, info_);
    const int depth = png_get_bit_depth(png_, info_);
    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png_);
    if (type == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png_);
    if (png_get_valid(png_, info_, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png_);
    if (depth == 16) png_set_scale_16(png_);
    passes_ = png_set_interlace_handling(png_);
    png_read_update_info(png_, info_);
    width_ = static_cast<int>(std::min<png_uint_32>(png_get_image_width(png_, info_), kMaxSide + 1));
    height_ = static_cast<int>(std::min<png_uint_32>(png_get_image_height(png_, info_), kMaxSide + 1));
    channels_ = png_get_channels(png_, info_);
    colour_ = (type & PNG_COLOR_MASK_COLOR) != 0;
    SetShape(width_, height_, colour_ ? SampleKind::kRgb : SampleKind::kGrey);
    return true;
  }
  static bool ReadRow(png_structp png, png_bytep row) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_read_row(png, row, nullptr);
    return true;
  }
  static bool ReadImage(png_structp png, png_bytepp rows) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_read_image(png, rows);
    return true;
  }
  // A row with alpha laid onto white paper: what shows where the picture is transparent.
  const std::uint8_t* OnPaper(const std::uint8_t* px, int colours) {
    const int step = colours + 1;
    for (int x = 0; x < width_; ++x) {
      const unsigned a = px[x * step + colours];
      for (int c = 0; c < colours; ++c)
        paper_[static_cast<std::size_t>(x * colours + c)] =
            static_cast<std::uint8_t>((px[x * step + c] * a + kFullInk * (255u - a) + 127u) / 255u);
    }
    return paper_.data();
  }
  std::string Why() const { return "'" + path_ + "': " + (error_.empty() ? std::string("damaged PNG") : error_); }

  std::string path_, error_;
  std::FILE* file_ = nullptr;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  int channels_ = 1, passes_ = 1, next_ = 0;
  bool colour_ = false;
  std::vector<std::uint8_t> row_, paper_, whole_;
};
#endif

#if HALFTONE_HAVE_TIFF
struct TiffCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffFile = std::unique_ptr<TIFF, TiffCloser>;

// Strips are read a scanline at a time (a file with separate planes through one handle a
// plane, so each plane's strips are decoded in order); tiles a row of tiles at a time.
class TiffSource : public PageSource {
 public:
  std::string Open(const std::string& path) {
    path_ = path;
    ListenToTiff();
    TiffFile tif(TIFFOpen(path.c_str(), "rm"));
    if (!tif) return Why("cannot read as TIFF");
    std::uint32_t w = 0, h = 0;
    std::uint16_t bits = 0, spp = 0, photometric = 0, planar = PLANARCONFIG_CONTIG, inkset = INKSET_CMYK;
    TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &h);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_INKSET, &inkset);
    if (!TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &photometric)) return Why("has no photometric interpretation");
    if (w == 0 || h == 0 || w > kMaxSide || h > kMaxSide) return Why("has an unsupported size");
    if (bits != 8) return Why("has " + std::to_string(bits) + " bits a sample; only 8-bit TIFF files are read");
    if (photometric == PHOTOMETRIC_SEPARATED && inkset == INKSET_CMYK && spp >= 4) {
      kind_ = SampleKind::kCmyk;
    } else if (photometric == PHOTOMETRIC_RGB && spp >= 3) {
      kind_ = SampleKind::kRgb;
    } else if (photometric == PHOTOMETRIC_MINISBLACK && spp >= 1) {
      kind_ = SampleKind::kGrey;
    } else if (photometric == PHOTOMETRIC_MINISWHITE && spp >= 1) {
      kind_ = SampleKind::kGreyInverted;
    } else {
      return Why("is neither CMYK, RGB nor grey (photometric " + std::to_string(photometric) + ", " +
                 std::to_string(spp) + " samples a pixel)");
    }
    SetShape(static_cast<int>(w), static_cast<int>(h), kind_);
    used_ = kind_ == SampleKind::kCmyk ? 4 : kind_ == SampleKind::kRgb ? 3 : 1;
    spp_ = spp;
    separate_ = planar == PLANARCONFIG_SEPARATE && spp > 1;
    tiled_ = TIFFIsTiled(tif.get()) != 0;
    const std::size_t W = w, step = separate_ ? 1 : spp;
    if (tiled_) {
      std::uint32_t tw = 0, th = 0;
      TIFFGetField(tif.get(), TIFFTAG_TILEWIDTH, &tw);
      TIFFGetField(tif.get(), TIFFTAG_TILELENGTH, &th);
      if (tw == 0 || th == 0 || tw > kMaxSide || th > kMaxSide) return Why("has an unsupported tile size");
      tile_w_ = tw;
      tile_h_ = th;
      tile_.resize(static_cast<std::size_t>(TIFFTileSize64(tif.get())));
      if (tile_.size() < std::size_t{tw} * th * step) return Why("has tiles smaller than their size");
      for (int s = 0; s < (separate_ ? used_ : 1); ++s) tile_rows_.emplace_back(W * th * step);
    } else {
      for (int s = 0; s < (separate_ ? used_ : 1); ++s) {
        lines_.emplace_back(static_cast<std::size_t>(TIFFScanlineSize64(tif.get())));
        if (lines_.back().size() < W * step) return Why("has rows shorter than its width");
      }
    }
    files_.push_back(std::move(tif));
    if (separate_ && !tiled_)
      for (int s = 1; s < used_; ++s) {
        files_.emplace_back(TIFFOpen(path.c_str(), "rm"));
        if (!files_.back()) return Why("cannot read as TIFF");
      }
    if (separate_) pixel_row_.resize(W * static_cast<std::size_t>(used_));
    return {};
  }

  std::string Read(std::uint8_t* band, int count, std::size_t stride) override {
    const std::size_t W = static_cast<std::size_t>(width_);
    for (int y = 0; y < count; ++y, ++next_) {
      if (next_ >= height_) return Why("read past the last row");
      const std::uint8_t* samples[4] = {};
      if (tiled_) {
        if (next_ >= tile_top_ + static_cast<int>(tile_h_) || next_ < tile_top_ || !tile_loaded_)
          if (std::string err = LoadTileRow(next_ - next_ % static_cast<int>(tile_h_)); !err.empty()) return err;
        const std::size_t r = static_cast<std::size_t>(next_ - tile_top_);
        for (std::size_t s = 0; s < tile_rows_.size(); ++s) samples[s] = &tile_rows_[s][r * W * (separate_ ? 1 : spp_)];
      } else {
        for (std::size_t s = 0; s < lines_.size(); ++s) {
          if (TIFFReadScanline(files_[s].get(), lines_[s].data(), static_cast<std::uint32_t>(next_), static_cast<std::uint16_t>(s)) < 0)
            return Why("is damaged at row " + std::to_string(next_));
          samples[s] = lines_[s].data();
        }
      }
      if (!separate_) {
        SplitIntoBand(kind_, samples[0], spp_, width_, band, y, planes(), stride);
        continue;
      }
      for (std::size_t x = 0; x < W; ++x)
        for (int s = 0; s < used_; ++s) pixel_row_[x * static_cast<std::size_t>(used_) + static_cast<std::size_t>(s)] = samples[s][x];
      SplitIntoBand(kind_, pixel_row_.data(), used_, width_, band, y, planes(), stride);
    }
    return {};
  }

 private:
  std::string LoadTileRow(int top) {
    const std::size_t W = static_cast<std::size_t>(width_), step = separate_ ? 1 : spp_;
    const std::size_t rows = std::min<std::size_t>(tile_h_, static_cast<std::size_t>(height_ - top));
    for (std::size_t s = 0; s < tile_rows_.size(); ++s)
      for (std::uint32_t tx = 0; tx < W; tx += tile_w_) {
        if (TIFFReadTile(files_[0].get(), tile_.data(), tx, static_cast<std::uint32_t>(top), 0, static_cast<std::uint16_t>(s)) < 0)
          return Why("is damaged at row " + std::to_string(top));
        const std::size_t cols = std::min<std::size_t>(tile_w_, W - tx);
        for (std::size_t r = 0; r < rows; ++r)
          std::memcpy(&tile_rows_[s][(r * W + tx) * step], &tile_[r * tile_w_ * step], cols * step);
      }
    tile_top_ = top;
    tile_loaded_ = true;
    return {};
  }
  std::string Why(const std::string& what) const {
    return "'" + path_ + "': " + what + TiffErrorSuffix();
  }

  std::string path_;
  std::vector<TiffFile> files_;
  SampleKind kind_ = SampleKind::kGrey;
  int used_ = 1, spp_ = 1, next_ = 0, tile_top_ = 0;
  bool separate_ = false, tiled_ = false, tile_loaded_ = false;
  std::uint32_t tile_w_ = 0, tile_h_ = 0;
  std::vector<std::vector<std::uint8_t>> lines_, tile_rows_;
  std::vector<std::uint8_t> tile_, pixel_row_;
};
#endif


template <class Source>
std::string OpenAs(const std::string& path, std::unique_ptr<PageSource>& source) {
  auto s = std::make_unique<Source>();
  if (std::string err = s->Open(path); !err.empty()) return err;
  source = std::move(s);
  return {};
}

}  // namespace

int PlanesOf(SampleKind kind) { return kind == SampleKind::kGrey || kind == SampleKind::kGreyInverted ? 1 : 4; }

void SplitRow(SampleKind kind, const std::uint8_t* px, int step, int width, std::uint8_t* planes, std::size_t plane_stride) {
  const auto s = static_cast<std::size_t>(step);
  std::uint8_t* c = planes;
  std::uint8_t* m = planes + plane_stride;
  std::uint8_t* y = planes + 2 * plane_stride;
  std::uint8_t* k = planes + 3 * plane_stride;
  const auto w = static_cast<std::size_t>(width);
  switch (kind) {
    case SampleKind::kGrey:
      if (s == 1) {
        std::memcpy(c, px, w);
        break;
      }
      for (std::size_t x = 0; x < w; ++x) c[x] = px[x * s];
      break;
    case SampleKind::kGreyInverted:
      for (std::size_t x = 0; x < w; ++x) c[x] = static_cast<std::uint8_t>(kFullInk - px[x * s]);
      break;
    case SampleKind::kRgb:
      for (std::size_t x = 0; x < w; ++x) {
        const Ink ink = SeparateRgb(px[x * s], px[x * s + 1], px[x * s + 2]);
        c[x] = static_cast<std::uint8_t>(kFullInk - ink.c);
        m[x] = static_cast<std::uint8_t>(kFullInk - ink.m);
        y[x] = static_cast<std::uint8_t>(kFullInk - ink.y);
        k[x] = static_cast<std::uint8_t>(kFullInk - ink.k);
      }
      break;
    case SampleKind::kCmyk:
      for (std::size_t x = 0; x < w; ++x) {
        c[x] = static_cast<std::uint8_t>(kFullInk - px[x * s]);
        m[x] = static_cast<std::uint8_t>(kFullInk - px[x * s + 1]);
        y[x] = static_cast<std::uint8_t>(kFullInk - px[x * s + 2]);
        k[x] = static_cast<std::uint8_t>(kFullInk - px[x * s + 3]);
      }
      break;
    case SampleKind::kCmykInverted:
      for (std::size_t x = 0; x < w; ++x) {
        c[x] = px[x * s];
        m[x] = px[x * s + 1];
        y[x] = px[x * s + 2];
        k[x] = px[x * s + 3];
      }
      break;
  }
}

void PageSource::SetShape(int width, int height, SampleKind kind) {
  width_ = width;
  height_ = height;
  if (PlanesOf(kind) == 1) names_ = {"Grey"};
  else names_.assign(std::begin(kPlaneNames), std::end(kPlaneNames));
}

std::string OpenPage(const std::string& path, std::unique_ptr<PageSource>& source) {
  std::FILE* probe = std::fopen(path.c_str(), "rb");
  if (!probe) return "cannot open '" + path + "': " + std::strerror(errno);
  unsigned char sig[8] = {};
  const std::size_t got = std::fread(sig, 1, sizeof sig, probe);
  std::fclose(probe);
  const bool tiff = got >= 4 && ((sig[0] == 'I' && sig[1] == 'I' && sig[2] == 42 && sig[3] == 0) ||
                                 (sig[0] == 'M' && sig[1] == 'M' && sig[2] == 0 && sig[3] == 42));
  const bool png = got == 8 && std::memcmp(sig, kPngSignature, 8) == 0;
  const bool jpeg = got >= 3 && sig[0] == 0xFF && sig[1] == 0xD8 && sig[2] == 0xFF;
  if (got >= 2 && sig[0] == 'P' && sig[1] == '5') return OpenAs<PgmSource>(path, source);
#if HALFTONE_HAVE_TIFF
  if (tiff) return OpenAs<TiffSource>(path, source);
#else
  if (tiff) return "'" + path + "' is a TIFF, and this build has no TIFF support (libtiff was not found)";
#endif
#if HALFTONE_HAVE_PNG
  if (png) return OpenAs<PngSource>(path, source);
#else
  if (png) return "'" + path + "' is a PNG, and this build has no PNG support (libpng was not found)";
#endif
  if (jpeg) return OpenJpegPage(path, source);
  return "'" + path + "' is not a PNG, TIFF, JPEG or binary PGM file";
}

std::unique_ptr<PageSource> PictureSource(const Picture& picture) { return std::make_unique<MemorySource>(picture); }

std::string ReadAll(PageSource& source, Picture& picture) {
  constexpr int kRows = 64;
  const int P = source.planes(), w = source.width(), h = source.height();
  const auto W = static_cast<std::size_t>(w);
  picture = Picture{};
  picture.names = source.names();
  for (int p = 0; p < P; ++p) {
    GrayImage plane;
    plane.width = w;
    plane.height = h;
    plane.pixels.resize(W * static_cast<std::size_t>(h));
    picture.planes.push_back(std::move(plane));
  }
  std::vector<std::uint8_t> band(W * static_cast<std::size_t>(P) * kRows);
  for (int top = 0; top < h; top += kRows) {
    const int n = std::min(kRows, h - top);
    if (std::string err = source.Read(band.data(), n, W); !err.empty()) return err;
    for (int y = 0; y < n; ++y)
      for (int p = 0; p < P; ++p)
        std::memcpy(&picture.planes[static_cast<std::size_t>(p)].pixels[static_cast<std::size_t>(top + y) * W],
                    BandRow(band.data(), y, P, p, W), W);
  }
  return {};
}


}  // namespace halftone_tool
