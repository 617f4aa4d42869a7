#include "image_io.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>

#ifndef HALFTONE_HAVE_PNG
#define HALFTONE_HAVE_PNG 0
#endif
#if HALFTONE_HAVE_PNG
#include <png.h>
#endif

namespace halftone_tool {
namespace {

// Largest picture the command takes on: 64 K pixels a side keeps every size in range.
constexpr int kMaxSide = 65536;

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}
bool EndsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && Lower(s.substr(s.size() - tail.size())) == tail;
}

// Reads the next header token of a PNM file, skipping white space and comments.
bool PnmToken(std::istream& in, long long& value) {
  int c = in.get();
  while (c != EOF) {
    if (c == '#') {
      while (c != EOF && c != '\n') c = in.get();
    } else if (!std::isspace(c)) {
      break;
    }
    c = in.get();
  }
  if (c == EOF || !std::isdigit(c)) return false;
  value = 0;
  while (c != EOF && std::isdigit(c)) {
    value = value * 10 + (c - '0');
    if (value > std::numeric_limits<int>::max()) return false;
    c = in.get();
  }
  return true;  // the single white-space byte after the token has been consumed
}

std::string ReadPgm(const std::string& path, GrayImage& image) {
  PgmRows rows;
  if (std::string err = rows.Open(path); !err.empty()) return err;
  image.width = rows.width();
  image.height = rows.height();
  image.pixels.resize(static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height));
  return rows.Read(image.pixels.data(), image.height, static_cast<std::size_t>(image.width));
}

std::string WritePnm(const std::string& path, const GrayImage& image, bool bilevel) {
  std::ofstream out(path, std::ios::binary);
  if (!out) return "cannot write '" + path + "'";
  out << (bilevel ? "P4\n" : "P5\n") << image.width << ' ' << image.height << '\n';
  if (!bilevel) {
    out << "255\n";
    out.write(reinterpret_cast<const char*>(image.pixels.data()), static_cast<std::streamsize>(image.pixels.size()));
  } else {
    std::vector<std::uint8_t> row(static_cast<std::size_t>((image.width + 7) / 8));
    for (int y = 0; y < image.height; ++y) {
      std::fill(row.begin(), row.end(), 0);
      for (int x = 0; x < image.width; ++x)
        if (image.at(x, y) < 128) row[static_cast<std::size_t>(x >> 3)] |= static_cast<std::uint8_t>(0x80u >> (x & 7));
      out.write(reinterpret_cast<const char*>(row.data()), static_cast<std::streamsize>(row.size()));
    }
  }
  return out ? std::string{} : "error writing '" + path + "'";
}

GrayImage Luminance(const RgbImage& image) {
  GrayImage grey;
  grey.width = image.width;
  grey.height = image.height;
  grey.pixels.resize(image.pixels.size());
  // Rec. 601 weights in thousandths, rounded.
  for (std::size_t i = 0; i < image.pixels.size(); ++i) {
    const Rgb c = image.pixels[i];
    grey.pixels[i] = static_cast<std::uint8_t>((299 * c.r + 587 * c.g + 114 * c.b + 500) / 1000);
  }
  return grey;
}

std::string WritePpm(const std::string& path, const RgbImage& image) {
  std::ofstream out(path, std::ios::binary);
  if (!out) return "cannot write '" + path + "'";
  out << "P6\n" << image.width << ' ' << image.height << "\n255\n";
  static_assert(sizeof(Rgb) == 3, "Rgb must be three packed bytes");
  out.write(reinterpret_cast<const char*>(image.pixels.data()), static_cast<std::streamsize>(image.pixels.size() * 3));
  return out ? std::string{} : "error writing '" + path + "'";
}

}  // namespace

std::string PgmRows::Open(const std::string& path) {
  path_ = path;
  in_.open(path, std::ios::binary);
  if (!in_) return "cannot open '" + path + "'";
  char magic[2] = {};
  in_.read(magic, 2);
  if (!in_ || magic[0] != 'P' || magic[1] != '5') return "'" + path + "' is not a binary PGM (P5) file";
  long long w = 0, h = 0, maxval = 0;
  if (!PnmToken(in_, w) || !PnmToken(in_, h) || !PnmToken(in_, maxval)) return "'" + path + "' has a broken PGM header";
  if (w <= 0 || h <= 0 || w > kMaxSide || h > kMaxSide) return "'" + path + "' has an unsupported size";
  if (maxval != 255) return "'" + path + "' is not an 8-bit PGM (maxval must be 255)";
  width_ = static_cast<int>(w);
  height_ = static_cast<int>(h);
  // A file that can be measured is measured now, so a short one fails before any work.
  const std::streampos pixels_at = in_.tellg();
  if (pixels_at != std::streampos(-1) && in_.seekg(0, std::ios::end)) {
    const std::streamoff size = in_.tellg() - pixels_at;
    in_.seekg(pixels_at);
    if (size < static_cast<std::streamoff>(w * h)) return "'" + path + "' is truncated";
  }
  in_.clear();
  return {};
}

std::string PgmRows::Read(std::uint8_t* rows, int count, std::size_t stride) {
  const auto w = static_cast<std::size_t>(width_);
  if (stride == w) {
    const auto n = static_cast<std::streamsize>(w * static_cast<std::size_t>(count));
    in_.read(reinterpret_cast<char*>(rows), n);
    return in_.gcount() == n ? std::string{} : "'" + path_ + "' is truncated";
  }
  for (int y = 0; y < count; ++y) {
    in_.read(reinterpret_cast<char*>(rows + static_cast<std::size_t>(y) * stride), static_cast<std::streamsize>(w));
    if (in_.gcount() != static_cast<std::streamsize>(w)) return "'" + path_ + "' is truncated";
  }
  return {};
}

bool IsBinaryPgm(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  unsigned char sig[2] = {};
  const std::size_t got = std::fread(sig, 1, sizeof sig, f);
  std::fclose(f);
  return got == 2 && sig[0] == 'P' && sig[1] == '5';
}

namespace {

// Writes 8-bit grey or RGB pixels as PNG; without libpng, says which format to use instead.
std::string WritePng(const std::string& path, int width, int height, bool rgb, const void* pixels,
                     const char* instead) {
#if HALFTONE_HAVE_PNG
  (void)instead;
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  png.width = static_cast<png_uint_32>(width);
  png.height = static_cast<png_uint_32>(height);
  png.format = rgb ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  if (!png_image_write_to_file(&png, path.c_str(), 0, pixels, 0, nullptr))
    return "cannot write '" + path + "': " + png.message;
  return {};
#else
  (void)path, (void)width, (void)height, (void)rgb, (void)pixels;
  return std::string("this build has no PNG support (libpng was not found); write ") + instead + " instead";
#endif
}

}  // namespace

bool HasExtension(const std::string& path, const std::string& tail) { return EndsWith(path, tail); }

bool HavePng() { return HALFTONE_HAVE_PNG != 0; }

std::string WriteRgb(const std::string& path, const RgbImage& image) {
  if (EndsWith(path, ".ppm")) return WritePpm(path, image);
  if (EndsWith(path, ".pgm") || EndsWith(path, ".pbm")) return WriteGray(path, Luminance(image));
  if (!EndsWith(path, ".png")) return "output '" + path + "' must end in .png, .ppm, .pgm or .pbm";
  return WritePng(path, image.width, image.height, true, image.pixels.data(), ".ppm");
}

std::string ReadRgbPng(const std::string& path, RgbImage& image, bool& is_colour) {
#if HALFTONE_HAVE_PNG
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&png, path.c_str())) return "'" + path + "': " + png.message;
  if (png.width == 0 || png.height == 0 || png.width > kMaxSide || png.height > kMaxSide) {
    png_image_free(&png);
    return "'" + path + "' has an unsupported size";
  }
  is_colour = (png.format & PNG_FORMAT_FLAG_COLOR) != 0;
  png.format = PNG_FORMAT_RGB;
  image = RgbImage(static_cast<int>(png.width), static_cast<int>(png.height), Rgb{});
  const png_color paper = {255, 255, 255};
  if (!png_image_finish_read(&png, &paper, image.pixels.data(), 0, nullptr)) {
    std::string msg = png.message;
    png_image_free(&png);
    return "'" + path + "': " + msg;
  }
  return {};
#else
  (void)image;
  is_colour = false;
  return "'" + path + "' is a PNG, and this build has no PNG support (libpng was not found)";
#endif
}

std::string ReadGray(const std::string& path, GrayImage& image) {
  std::FILE* probe = std::fopen(path.c_str(), "rb");
  if (!probe) return "cannot open '" + path + "'";
  unsigned char sig[8] = {};
  std::size_t got = std::fread(sig, 1, sizeof sig, probe);
  std::fclose(probe);
  if (got >= 2 && sig[0] == 'P' && sig[1] == '5') return ReadPgm(path, image);
  static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (got == 8 && std::memcmp(sig, kPngSignature, 8) == 0) {
#if HALFTONE_HAVE_PNG
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return "'" + path + "': " + png.message;
    if (png.width == 0 || png.height == 0 || png.width > kMaxSide || png.height > kMaxSide) {
      png_image_free(&png);
      return "'" + path + "' has an unsupported size";
    }
    png.format = PNG_FORMAT_GRAY;
    image.width = static_cast<int>(png.width);
    image.height = static_cast<int>(png.height);
    image.pixels.assign(PNG_IMAGE_SIZE(png), 0);
    if (!png_image_finish_read(&png, nullptr, image.pixels.data(), 0, nullptr)) {
      std::string msg = png.message;
      png_image_free(&png);
      return "'" + path + "': " + msg;
    }
    return {};
#else
    return "'" + path + "' is a PNG, and this build has no PNG support (libpng was not found)";
#endif
  }
  return "'" + path + "' is neither a PNG nor a binary PGM file";
}

std::string WriteGray(const std::string& path, const GrayImage& image) {
  if (EndsWith(path, ".pgm")) return WritePnm(path, image, false);
  if (EndsWith(path, ".pbm")) return WritePnm(path, image, true);
  if (!EndsWith(path, ".png")) return "output '" + path + "' must end in .png, .pgm or .pbm";
  return WritePng(path, image.width, image.height, false, image.pixels.data(), ".pgm");
}

}  // namespace halftone_tool
