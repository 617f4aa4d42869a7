#include "tiff_io.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdint>
#include <memory>

#include "halftone/halftone.h"
#include "picture.h"

#ifndef HALFTONE_HAVE_TIFF
#define HALFTONE_HAVE_TIFF 0
#endif
#if HALFTONE_HAVE_TIFF
#include <tiffio.h>
#endif

namespace halftone_tool {

#if HALFTONE_HAVE_TIFF
namespace {

constexpr std::uint32_t kMaxSide = 65536;
constexpr int kFullInk = 255;

// libtiff reports through handlers: keep the last error for our own message, drop warnings
// (unknown private tags are common in files from prepress tools).
std::string& LastTiffError() {
  static std::string message;
  return message;
}

void KeepError(const char* module, const char* fmt, va_list ap) {
  char text[512];
  std::vsnprintf(text, sizeof text, fmt, ap);
  LastTiffError() = module ? std::string(module) + ": " + text : std::string(text);
}

void InstallHandlers() {
  TIFFSetErrorHandler(KeepError);
  TIFFSetWarningHandler(nullptr);
  LastTiffError().clear();
}

struct TiffCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffFile = std::unique_ptr<TIFF, TiffCloser>;

std::string Why(const std::string& path, const std::string& what) {
  std::string msg = "'" + path + "': " + what;
  if (!LastTiffError().empty()) msg += " (" + LastTiffError() + ")";
  return msg;
}

}  // namespace

bool HaveTiff() { return true; }

std::string ReadTiffPicture(const std::string& path, Picture& picture) {
  InstallHandlers();
  TiffFile tif(TIFFOpen(path.c_str(), "r"));
  if (!tif) return Why(path, "cannot read as TIFF");
  std::uint32_t w = 0, h = 0;
  std::uint16_t bits = 0, spp = 0, photometric = 0, planar = PLANARCONFIG_CONTIG, inkset = INKSET_CMYK;
  TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &h);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &spp);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_INKSET, &inkset);
  if (!TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &photometric)) return Why(path, "has no photometric interpretation");
  if (w == 0 || h == 0 || w > kMaxSide || h > kMaxSide) return Why(path, "has an unsupported size");
  if (TIFFIsTiled(tif.get())) return Why(path, "is tiled; only strip TIFF files are read");
  if (bits != 8) return Why(path, "has " + std::to_string(bits) + " bits a sample; only 8-bit TIFF files are read");

  enum class Kind { kCmyk, kRgb, kBlackIsZero, kWhiteIsZero } kind;
  int used = 1;
  if (photometric == PHOTOMETRIC_SEPARATED && inkset == INKSET_CMYK && spp >= 4) {
    kind = Kind::kCmyk;
    used = 4;
  } else if (photometric == PHOTOMETRIC_RGB && spp >= 3) {
    kind = Kind::kRgb;
    used = 3;
  } else if (photometric == PHOTOMETRIC_MINISBLACK && spp >= 1) {
    kind = Kind::kBlackIsZero;
  } else if (photometric == PHOTOMETRIC_MINISWHITE && spp >= 1) {
    kind = Kind::kWhiteIsZero;
  } else {
    return Why(path, "is neither CMYK, RGB nor grey (photometric " + std::to_string(photometric) + ", " +
                         std::to_string(spp) + " samples a pixel)");
  }

  // Gather the samples the picture uses, sample-interleaved, whatever the planar layout.
  const std::size_t W = w, H = h, S = static_cast<std::size_t>(used);
  std::vector<std::uint8_t> samples(W * H * S);
  std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize64(tif.get())));
  const bool contiguous = planar == PLANARCONFIG_CONTIG || spp == 1;
  for (std::size_t s = 0; s < (contiguous ? 1 : S); ++s)
    for (std::uint32_t y = 0; y < h; ++y) {
      if (TIFFReadScanline(tif.get(), line.data(), y, static_cast<std::uint16_t>(s)) < 0)
        return Why(path, "is damaged at row " + std::to_string(y));
      for (std::size_t x = 0; x < W; ++x) {
        if (contiguous) {
          if ((x + 1) * spp > line.size()) return Why(path, "has rows shorter than its width");
          for (std::size_t k = 0; k < S; ++k) samples[(y * W + x) * S + k] = line[x * spp + k];
        } else {
          samples[(y * W + x) * S + s] = line[x];
        }
      }
    }

  if (kind == Kind::kRgb) {
    RgbImage rgb(static_cast<int>(w), static_cast<int>(h), Rgb{});
    for (std::size_t i = 0; i < W * H; ++i) rgb.pixels[i] = Rgb{samples[i * 3], samples[i * 3 + 1], samples[i * 3 + 2]};
    picture = SeparatedPicture(rgb);
    return {};
  }
  GrayImage plane;
  plane.width = static_cast<int>(w);
  plane.height = static_cast<int>(h);
  plane.pixels.assign(W * H, 0);
  if (kind != Kind::kCmyk) {
    for (std::size_t i = 0; i < W * H; ++i)
      plane.pixels[i] = static_cast<std::uint8_t>(kind == Kind::kBlackIsZero ? samples[i] : kFullInk - samples[i]);
    picture = GreyPicture(std::move(plane));
    return {};
  }
  picture = Picture{};
  picture.names = {"Cyan", "Magenta", "Yellow", "Black"};
  for (std::size_t k = 0; k < 4; ++k) {
    for (std::size_t i = 0; i < W * H; ++i) plane.pixels[i] = static_cast<std::uint8_t>(kFullInk - samples[i * 4 + k]);
    picture.planes.push_back(plane);
  }
  return {};
}

std::string WriteDotTiff(const std::string& path, const DotPlanes& dots, const std::vector<std::string>& names,
                         const std::string& description) {
  InstallHandlers();
  TiffFile tif(TIFFOpen(path.c_str(), "w"));
  if (!tif) return Why(path, "cannot be written");
  const std::uint16_t pages = static_cast<std::uint16_t>(dots.planes.size());
  const std::size_t row_bytes = (static_cast<std::size_t>(dots.pixels) * static_cast<std::size_t>(dots.bits) + 7) / 8;
  const std::uint16_t compression = TIFFIsCODECConfigured(COMPRESSION_LZW) ? COMPRESSION_LZW : COMPRESSION_PACKBITS;
  const std::string software = std::string("halftone ") + halftone_version();
  std::vector<std::uint8_t> row(row_bytes);
  for (std::uint16_t p = 0; p < pages; ++p) {
    TIFF* t = tif.get();
    TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(dots.pixels));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(dots.rows));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(dots.bits));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, static_cast<std::uint16_t>(1));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    TIFFSetField(t, TIFFTAG_PAGENUMBER, p, pages);
    if (p < names.size()) TIFFSetField(t, TIFFTAG_PAGENAME, names[p].c_str());
    TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
    TIFFSetField(t, TIFFTAG_SOFTWARE, software.c_str());
    // The eight-level codes use 0..7 of the nibble: say so to readers that scale by it.
    if (dots.bits == 4) TIFFSetField(t, TIFFTAG_MAXSAMPLEVALUE, static_cast<std::uint16_t>(7));
    for (int y = 0; y < dots.rows; ++y) {
      // The library's rows already have TIFF's bit order (first pixel in the high bits); only
      // the padding to four bytes is left off.
      std::copy_n(dots.planes[p].begin() + static_cast<std::ptrdiff_t>(static_cast<std::size_t>(y) * dots.stride),
                  row_bytes, row.begin());
      if (TIFFWriteScanline(t, row.data(), static_cast<std::uint32_t>(y), 0) < 0)
        return Why(path, "could not be written (page " + std::to_string(p + 1) + ")");
    }
    if (!TIFFWriteDirectory(t)) return Why(path, "could not be written (page " + std::to_string(p + 1) + ")");
  }
  return {};
}

#else

bool HaveTiff() { return false; }

std::string ReadTiffPicture(const std::string& path, Picture&) {
  return "'" + path + "' is a TIFF, and this build has no TIFF support (libtiff was not found)";
}

std::string WriteDotTiff(const std::string&, const DotPlanes&, const std::vector<std::string>&, const std::string&) {
  return "this build has no TIFF support (libtiff was not found): install libtiff-dev and rebuild";
}

#endif

}  // namespace halftone_tool
