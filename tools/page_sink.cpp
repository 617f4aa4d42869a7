#include "page_sink.h"

#include <algorithm>
#include <csetjmp>
#include <cstring>

#include "halftone/halftone.h"
#include "runner.h"
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

// A preview is for looking, not archiving: zlib's fastest level, rows unfiltered (dots leave
// little for a filter to predict).
constexpr int kPreviewZlibLevel = 1;
// Dot codes of every plane index a colour table up to this size (four planes of eight levels).
constexpr std::size_t kMaxMixTable = 4096;


// The colour an ink lets through when printed at full strength on white paper.
Rgb InkFilter(const std::string& name) {
  if (name == "Cyan") return {0, 255, 255};
  if (name == "Magenta") return {255, 0, 255};
  if (name == "Yellow") return {255, 255, 0};
  return {0, 0, 0};
}

std::uint8_t LumaOf(const std::uint8_t* rgb) {
  // Rec. 601 weights in thousandths, rounded.
  return static_cast<std::uint8_t>((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
}

// One picture file written a row at a time: PNG, PPM, PGM or PBM by the name's extension.
class RowFile {
 public:
  ~RowFile() { Abandon(); }

  // `channels` 3 (RGB rows) or 1 (grey rows).
  std::string Open(const std::string& path, int width, int height, int channels) {
    path_ = path;
    width_ = width;
    channels_ = channels;
    if (HasExtension(path, ".png")) format_ = Format::kPng;
    else if (HasExtension(path, ".ppm") && channels == 3) format_ = Format::kPpm;
    else if (HasExtension(path, ".pgm")) format_ = Format::kPgm;
    else if (HasExtension(path, ".pbm")) format_ = Format::kPbm;
    else return "output '" + path + "' must end in .png" + (channels == 3 ? ", .ppm" : "") + ", .pgm or .pbm";
#if !HALFTONE_HAVE_PNG
    if (format_ == Format::kPng)
      return std::string("this build has no PNG support (libpng was not found); write ") +
             (channels == 3 ? ".ppm" : ".pgm") + " instead";
#endif
    file_ = std::fopen(path.c_str(), "wb");
    if (!file_) return "cannot write '" + path + "'";
    const auto w = static_cast<std::size_t>(width);
    switch (format_) {
      case Format::kPng: return StartPng(height) ? std::string{} : Why();
      case Format::kPpm: std::fprintf(file_, "P6\n%d %d\n255\n", width, height); break;
      case Format::kPgm: std::fprintf(file_, "P5\n%d %d\n255\n", width, height); break;
      case Format::kPbm: std::fprintf(file_, "P4\n%d %d\n", width, height); break;
    }
    line_.resize(format_ == Format::kPbm ? (w + 7) / 8 : w);
    return std::ferror(file_) ? Why() : std::string{};
  }

  std::string Write(const std::uint8_t* px) {
    const auto w = static_cast<std::size_t>(width_);
    const std::uint8_t* out = px;
    std::size_t bytes = w * static_cast<std::size_t>(channels_);
    switch (format_) {
      case Format::kPng:
#if HALFTONE_HAVE_PNG
        return WritePngRow(png_, const_cast<std::uint8_t*>(px)) ? std::string{} : Why();
#else
        return Why();
#endif
      case Format::kPpm: break;
      case Format::kPgm:
        if (channels_ == 3) {
          for (std::size_t x = 0; x < w; ++x) line_[x] = LumaOf(px + 3 * x);
          out = line_.data();
          bytes = w;
        }
        break;
      case Format::kPbm:
        std::fill(line_.begin(), line_.end(), 0);
        for (std::size_t x = 0; x < w; ++x) {
          const std::uint8_t v = channels_ == 3 ? LumaOf(px + 3 * x) : px[x];
          if (v < 128) line_[x >> 3] = static_cast<std::uint8_t>(line_[x >> 3] | (0x80u >> (x & 7)));
        }
        out = line_.data();
        bytes = line_.size();
        break;
    }
    return std::fwrite(out, 1, bytes, file_) == bytes ? std::string{} : Why();
  }

  // Writes packed one-bit rows as they are (PBM only: 1 = ink); bits past the width are cleared.
  std::string WriteBits(const std::uint8_t* bits) {
    std::memcpy(line_.data(), bits, line_.size());
    if (width_ % 8) line_.back() = static_cast<std::uint8_t>(line_.back() & (0xFFu << (8 - width_ % 8)));
    return std::fwrite(line_.data(), 1, line_.size(), file_) == line_.size() ? std::string{} : Why();
  }
  std::string WriteRaw(const std::uint8_t* bytes, std::size_t n) {
    return std::fwrite(bytes, 1, n, file_) == n ? std::string{} : Why();
  }
  bool IsPbm() const { return format_ == Format::kPbm; }

  std::string Close() {
    if (!file_) return Why();
#if HALFTONE_HAVE_PNG
    if (png_ && !EndPng()) return Why();
#endif
    const bool ok = std::fclose(file_) == 0;
    file_ = nullptr;
    return ok ? std::string{} : Why();
  }

  // Leaves nothing behind: a half-written picture is removed.
  void Abandon() {
#if HALFTONE_HAVE_PNG
    if (png_) png_destroy_write_struct(&png_, &info_);
#endif
    if (file_) {
      std::fclose(file_);
      file_ = nullptr;
      std::remove(path_.c_str());
    }
  }

 private:
  enum class Format { kPng, kPpm, kPgm, kPbm };
  std::string Why() const { return "error writing '" + path_ + "'" + (error_.empty() ? "" : ": " + error_); }

#if HALFTONE_HAVE_PNG
  static void OnError(png_structp png, png_const_charp message) {
    static_cast<RowFile*>(png_get_error_ptr(png))->error_ = message;
    png_longjmp(png, 1);
  }
  static void OnWarning(png_structp, png_const_charp) {}
  bool StartPng(int height) {
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning);
    info_ = png_ ? png_create_info_struct(png_) : nullptr;
    if (!info_) return false;
    if (setjmp(png_jmpbuf(png_))) return false;
    png_init_io(png_, file_);
    png_set_IHDR(png_, info_, static_cast<png_uint_32>(width_), static_cast<png_uint_32>(height), 8,
                 channels_ == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png_, kPreviewZlibLevel);
    png_set_filter(png_, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
    png_write_info(png_, info_);
    return true;
  }
  static bool WritePngRow(png_structp png, png_bytep row) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_write_row(png, row);
    return true;
  }
  bool EndPng() {
    if (setjmp(png_jmpbuf(png_))) return false;
    png_write_end(png_, info_);
    png_destroy_write_struct(&png_, &info_);
    return true;
  }
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
#else
  bool StartPng(int) { return false; }
#endif

  std::string path_, error_;
  std::FILE* file_ = nullptr;
  Format format_ = Format::kPng;
  int width_ = 0, channels_ = 3;
  std::vector<std::uint8_t> line_;
};

}  // namespace

InkMixer::InkMixer(int bits, const std::vector<std::string>& names) : full_(FullCode(bits)) {
  for (const auto& name : names) filters_.push_back(InkFilter(name));
  std::size_t entries = 1;
  for (std::size_t p = 0; p < filters_.size() && entries <= kMaxMixTable; ++p) entries *= full_ + 1;
  if (entries > kMaxMixTable) return;
  const std::size_t P = filters_.size();
  std::vector<unsigned> codes(P, 0);
  table_.resize(entries);
  for (std::size_t i = 0; i < entries; ++i) {
    std::size_t rest = i;
    for (std::size_t p = 0; p < P; ++p, rest /= full_ + 1) codes[p] = static_cast<unsigned>(rest % (full_ + 1));
    std::vector<double> shares(P);
    for (std::size_t p = 0; p < P; ++p) shares[p] = static_cast<double>(codes[p]) / full_;
    table_[i] = Mix(shares.data());
  }
}

Rgb InkMixer::Mix(const double* shares) const {
  // Light left in each channel, 1 = paper; an ink at share s keeps 1 - s * (1 - filter).
  double light[3] = {1.0, 1.0, 1.0};
  for (std::size_t p = 0; p < filters_.size(); ++p) {
    const std::uint8_t f[3] = {filters_[p].r, filters_[p].g, filters_[p].b};
    for (int ch = 0; ch < 3; ++ch) light[ch] *= 1.0 - shares[p] * (1.0 - f[ch] / 255.0);
  }
  auto level = [](double v) { return static_cast<std::uint8_t>(std::clamp(v * 255.0 + 0.5, 0.0, 255.0)); };
  return Rgb{level(light[0]), level(light[1]), level(light[2])};
}

Rgb InkMixer::Mix(const unsigned* codes) const {
  if (!table_.empty()) {
    std::size_t i = 0;
    for (std::size_t p = filters_.size(); p-- > 0;) i = i * (full_ + 1) + codes[p];
    return table_[i];
  }
  std::vector<double> shares(filters_.size());
  for (std::size_t p = 0; p < shares.size(); ++p) shares[p] = static_cast<double>(codes[p]) / full_;
  return Mix(shares.data());
}

// ---------------------------------------------------------------------------------------------

struct PreviewStream::State {
  RowFile file;
  InkMixer mixer;
  int width = 0, height = 0, bits = 1, planes = 1, scale = 1, out_width = 0;
  int row = 0;             // dot rows taken so far
  int block_rows = 0;      // dot rows summed into the current block row
  bool grey = false;       // one grey plane, drawn as grey
  bool pbm_dots = false;   // one-bit grey into PBM: the dots are the picture
  std::vector<std::uint32_t> sums;  // scale > 1: codes summed, by output column and plane
  std::vector<std::uint8_t> line;   // one output row, 1 or 3 bytes a pixel
  std::vector<std::uint16_t> index; // scale 1: each pixel's entry in the mixer's table

  State(int b, const std::vector<std::string>& names) : mixer(b, names) {}
  std::string Emit(int rows_in_block);
  std::string Draw(const std::uint8_t* rows, std::size_t stride);
};

// One dot row of every plane drawn at full size: grey straight from the codes, colour through
// the mixer's table, its index built up a plane at a time.
std::string PreviewStream::State::Draw(const std::uint8_t* rows, std::size_t stride) {
  const unsigned full = mixer.full();
  if (grey) {
    for (int x = 0; x < width; ++x) line[static_cast<std::size_t>(x)] = static_cast<std::uint8_t>(255 - CodeAt(rows, bits, x) * 255 / full);
    return file.Write(line.data());
  }
  const Rgb* table = mixer.table();
  std::vector<unsigned> codes(static_cast<std::size_t>(planes));
  if (table) {
    std::fill(index.begin(), index.end(), 0);
    unsigned weight = 1;
    for (int p = 0; p < planes; ++p, weight *= full + 1) {
      const std::uint8_t* dots = rows + static_cast<std::size_t>(p) * stride;
      for (int x = 0; x < width; ++x)
        index[static_cast<std::size_t>(x)] = static_cast<std::uint16_t>(index[static_cast<std::size_t>(x)] + CodeAt(dots, bits, x) * weight);
    }
  }
  for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x) {
    Rgb c;
    if (table) {
      c = table[index[x]];
    } else {
      for (int p = 0; p < planes; ++p) codes[static_cast<std::size_t>(p)] = CodeAt(rows + static_cast<std::size_t>(p) * stride, bits, static_cast<int>(x));
      c = mixer.Mix(codes.data());
    }
    line[3 * x] = c.r, line[3 * x + 1] = c.g, line[3 * x + 2] = c.b;
  }
  return file.Write(line.data());
}

PreviewStream::PreviewStream() = default;
PreviewStream::~PreviewStream() = default;

std::string PreviewStream::Open(const std::string& path, int width, int height, int bits,
                                const std::vector<std::string>& names, int scale) {
  s_ = std::make_unique<State>(bits, names);
  State& s = *s_;
  s.width = width;
  s.height = height;
  s.bits = bits;
  s.planes = static_cast<int>(names.size());
  s.scale = std::max(1, scale);
  s.grey = s.planes == 1 && names[0] == "Grey";
  s.out_width = (width + s.scale - 1) / s.scale;
  const int out_height = (height + s.scale - 1) / s.scale;
  const int channels = s.grey ? 1 : 3;
  if (std::string err = s.file.Open(path, s.out_width, out_height, channels); !err.empty()) return err;
  s.pbm_dots = s.grey && bits == 1 && s.scale == 1 && s.file.IsPbm();
  s.line.resize(static_cast<std::size_t>(s.out_width) * static_cast<std::size_t>(channels));
  s.index.resize(static_cast<std::size_t>(width));
  if (s.scale > 1) s.sums.assign(static_cast<std::size_t>(s.out_width) * static_cast<std::size_t>(s.planes), 0);
  return {};
}

std::string PreviewStream::State::Emit(int rows_in_block) {
  const auto P = static_cast<std::size_t>(planes);
  std::vector<double> shares(P);
  for (int ox = 0; ox < out_width; ++ox) {
    const int cols = std::min(scale, width - ox * scale);
    const double whole = static_cast<double>(cols) * rows_in_block * mixer.full();
    for (std::size_t p = 0; p < P; ++p) shares[p] = sums[static_cast<std::size_t>(ox) * P + p] / whole;
    const auto o = static_cast<std::size_t>(ox);
    if (grey) {
      line[o] = static_cast<std::uint8_t>(255 - static_cast<int>(shares[0] * 255.0 + 0.5));
    } else {
      const Rgb c = mixer.Mix(shares.data());
      line[3 * o] = c.r, line[3 * o + 1] = c.g, line[3 * o + 2] = c.b;
    }
  }
  std::fill(sums.begin(), sums.end(), 0u);
  return file.Write(line.data());
}

std::string PreviewStream::Band(const std::uint8_t* band, int count, std::size_t stride) {
  State& s = *s_;
  const int P = s.planes;
  const auto Pz = static_cast<std::size_t>(P);
  if (s.pbm_dots && s.width % 8 == 0 && stride == static_cast<std::size_t>(s.width / 8)) {
    s.row += count;  // whole bytes a row and no padding: the band is the file's rows as they are
    return s.file.WriteRaw(band, static_cast<std::size_t>(count) * stride);
  }
  for (int y = 0; y < count; ++y, ++s.row) {
    const std::uint8_t* rows = band + static_cast<std::size_t>(y) * Pz * stride;
    if (s.pbm_dots) {
      if (std::string err = s.file.WriteBits(rows); !err.empty()) return err;
      continue;
    }
    if (s.scale == 1) {
      if (std::string err = s.Draw(rows, stride); !err.empty()) return err;
      continue;
    }
    for (int p = 0; p < P; ++p)
      for (int x = 0; x < s.width; ++x)
        s.sums[static_cast<std::size_t>(x / s.scale) * Pz + static_cast<std::size_t>(p)] +=
            CodeAt(rows + static_cast<std::size_t>(p) * stride, s.bits, x);
    if (++s.block_rows == s.scale || s.row + 1 == s.height) {
      if (std::string err = s.Emit(s.block_rows); !err.empty()) return err;
      s.block_rows = 0;
    }
  }
  return {};
}

std::string PreviewStream::Close() {
  std::string err = s_->file.Close();
  if (!err.empty()) s_->file.Abandon();
  return err;
}

// ---------------------------------------------------------------------------------------------

#if HALFTONE_HAVE_TIFF
struct DotTiffStream::State {
  std::string path, description, software;
  std::vector<std::string> names;
  std::vector<TIFF*> files;          // page one, then a file of its own for every further page
  std::vector<std::string> spools;   // those files' names
  std::vector<std::uint32_t> rows;   // rows written, by plane
  int width = 0, height = 0, bits = 1;
  std::uint32_t strip_rows = 0;
  std::vector<std::uint8_t> line;

  ~State() { Discard(true); }
  void Discard(bool remove_output) {
    for (TIFF*& t : files)
      if (t) TIFFClose(t), t = nullptr;
    for (const auto& s : spools) std::remove(s.c_str());
    spools.clear();
    if (remove_output && !path.empty()) std::remove(path.c_str());
  }
  std::string Why(const std::string& what) const {
    return "'" + path + "': " + what + TiffErrorSuffix();
  }
  void Describe(TIFF* t, std::size_t p) {
    const auto pages = static_cast<std::uint16_t>(names.size());
    TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(bits));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, static_cast<std::uint16_t>(1));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_COMPRESSION, TIFFIsCODECConfigured(COMPRESSION_LZW) ? COMPRESSION_LZW : COMPRESSION_PACKBITS);
    if (strip_rows == 0) strip_rows = TIFFDefaultStripSize(t, 0);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, strip_rows);
    TIFFSetField(t, TIFFTAG_PAGENUMBER, static_cast<std::uint16_t>(p), pages);
    TIFFSetField(t, TIFFTAG_PAGENAME, names[p].c_str());
    TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
    TIFFSetField(t, TIFFTAG_SOFTWARE, software.c_str());
    // The eight-level codes use 0..7 of the nibble: say so to readers that scale by it.
    if (bits == 4) TIFFSetField(t, TIFFTAG_MAXSAMPLEVALUE, static_cast<std::uint16_t>(7));
  }
};

DotTiffStream::DotTiffStream() = default;
DotTiffStream::~DotTiffStream() = default;

std::string DotTiffStream::Open(const std::string& path, int width, int height, int bits,
                                const std::vector<std::string>& names, const std::string& description) {
  ListenToTiff();
  s_ = std::make_unique<State>();
  State& s = *s_;
  s.width = width, s.height = height, s.bits = bits, s.names = names, s.description = description;
  s.software = std::string("halftone ") + halftone_version();
  s.line.resize((static_cast<std::size_t>(width) * static_cast<std::size_t>(bits) + 7) / 8);
  s.rows.assign(names.size(), 0);
  for (std::size_t p = 0; p < names.size(); ++p) {
    const std::string name = p == 0 ? path : path + ".page" + std::to_string(p + 1) + ".tmp";
    if (p == 0) s.path = path;
    else s.spools.push_back(name);
    TIFF* t = TIFFOpen(name.c_str(), "w");
    s.files.push_back(t);
    if (!t) return s.Why("cannot be written");
    s.Describe(t, p);
  }
  return {};
}

std::string DotTiffStream::Row(int plane, const std::uint8_t* row) {
  State& s = *s_;
  const auto p = static_cast<std::size_t>(plane);
  // The library's rows already have TIFF's bit order; only the padding to four bytes is left off.
  std::memcpy(s.line.data(), row, s.line.size());
  if (TIFFWriteScanline(s.files[p], s.line.data(), s.rows[p]++, 0) < 0)
    return s.Why("could not be written (page " + std::to_string(p + 1) + ")");
  return {};
}

std::string DotTiffStream::Band(const std::uint8_t* band, int count, std::size_t stride) {
  const std::size_t P = s_->names.size();
  for (std::size_t y = 0; y < static_cast<std::size_t>(count); ++y)
    for (std::size_t p = 0; p < P; ++p)
      if (std::string err = Row(static_cast<int>(p), band + (y * P + p) * stride); !err.empty()) return err;
  return {};
}

std::string DotTiffStream::Close() {
  State& s = *s_;
  for (std::size_t p = 0; p < s.files.size(); ++p)
    if (s.rows[p] != static_cast<std::uint32_t>(s.height)) return s.Why("closed before every row was written");
  TIFF* out = s.files[0];
  if (!TIFFWriteDirectory(out)) return s.Why("could not be written (page 1)");
  std::vector<std::uint8_t> strip;
  for (std::size_t p = 1; p < s.files.size(); ++p) {
    TIFFClose(s.files[p]);
    s.files[p] = TIFFOpen(s.spools[p - 1].c_str(), "r");
    TIFF* in = s.files[p];
    if (!in) return s.Why("could not be written (page " + std::to_string(p + 1) + ")");
    s.Describe(out, p);
    for (tstrip_t i = 0, n = TIFFNumberOfStrips(in); i < n; ++i) {
      strip.resize(static_cast<std::size_t>(TIFFRawStripSize64(in, i)));
      const tmsize_t got = TIFFReadRawStrip(in, i, strip.data(), static_cast<tmsize_t>(strip.size()));
      if (got < 0 || TIFFWriteRawStrip(out, i, strip.data(), got) < 0)
        return s.Why("could not be written (page " + std::to_string(p + 1) + ")");
    }
    if (!TIFFWriteDirectory(out)) return s.Why("could not be written (page " + std::to_string(p + 1) + ")");
  }
  TIFFClose(out);
  s.files[0] = nullptr;
  s.Discard(false);
  s.path.clear();
  return {};
}

#else

struct DotTiffStream::State {};
DotTiffStream::DotTiffStream() = default;
DotTiffStream::~DotTiffStream() = default;
std::string DotTiffStream::Open(const std::string&, int, int, int, const std::vector<std::string>&, const std::string&) {
  return "this build has no TIFF support (libtiff was not found): install libtiff-dev and rebuild";
}
std::string DotTiffStream::Row(int, const std::uint8_t*) { return "no TIFF support"; }
std::string DotTiffStream::Band(const std::uint8_t*, int, std::size_t) { return "no TIFF support"; }
std::string DotTiffStream::Close() { return "no TIFF support"; }

#endif

}  // namespace halftone_tool
