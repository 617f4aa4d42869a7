#include "picture.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tiff_io.h"

namespace halftone_tool {
namespace {

constexpr int kFullInk = 255;

// The colour an ink lets through when printed at full strength on white paper.
Rgb InkFilter(const std::string& name) {
  if (name == "Cyan") return {0, 255, 255};
  if (name == "Magenta") return {255, 0, 255};
  if (name == "Yellow") return {255, 255, 0};
  return {0, 0, 0};
}

GrayImage Blank(int w, int h) {
  GrayImage g;
  g.width = w;
  g.height = h;
  g.pixels.assign(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), 0);
  return g;
}

}  // namespace

Ink SeparateRgb(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  const int top = std::max({int{r}, int{g}, int{b}});
  return Ink{top - r, top - g, top - b, kFullInk - top};
}

Picture GreyPicture(GrayImage image) {
  Picture p;
  p.planes.push_back(std::move(image));
  p.names.push_back("Grey");
  return p;
}

Picture SeparatedPicture(const RgbImage& image) {
  Picture p;
  p.names = {"Cyan", "Magenta", "Yellow", "Black"};
  for (int i = 0; i < 4; ++i) p.planes.push_back(Blank(image.width, image.height));
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const Rgb c = image.at(x, y);
      const Ink ink = SeparateRgb(c.r, c.g, c.b);
      p.planes[0].at(x, y) = static_cast<std::uint8_t>(kFullInk - ink.c);
      p.planes[1].at(x, y) = static_cast<std::uint8_t>(kFullInk - ink.m);
      p.planes[2].at(x, y) = static_cast<std::uint8_t>(kFullInk - ink.y);
      p.planes[3].at(x, y) = static_cast<std::uint8_t>(kFullInk - ink.k);
    }
  return p;
}

std::string ReadPicture(const std::string& path, Picture& picture) {
  std::FILE* probe = std::fopen(path.c_str(), "rb");
  if (!probe) return "cannot open '" + path + "': " + std::strerror(errno);
  unsigned char sig[8] = {};
  const std::size_t got = std::fread(sig, 1, sizeof sig, probe);
  std::fclose(probe);
  const bool tiff = got >= 4 && ((sig[0] == 'I' && sig[1] == 'I' && sig[2] == 42 && sig[3] == 0) ||
                                 (sig[0] == 'M' && sig[1] == 'M' && sig[2] == 0 && sig[3] == 42));
  if (tiff) return ReadTiffPicture(path, picture);
  static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (got == 8 && std::memcmp(sig, kPngSignature, 8) == 0 && HavePng()) {
    RgbImage rgb;
    bool colour = false;
    if (std::string err = ReadRgbPng(path, rgb, colour); !err.empty()) return err;
    if (colour) {
      picture = SeparatedPicture(rgb);
      return {};
    }
  }
  GrayImage grey;
  if (std::string err = ReadGray(path, grey); !err.empty()) {
    if (got >= 2 && sig[0] == 'P' && sig[1] == '5') return err;
    if (got == 8 && std::memcmp(sig, kPngSignature, 8) == 0) return err;
    return "'" + path + "' is not a PNG, TIFF or binary PGM file";
  }
  picture = GreyPicture(std::move(grey));
  return {};
}

RgbImage CompositeInks(const DotPlanes& dots, const std::vector<std::string>& names) {
  RgbImage out(dots.pixels, dots.rows, Rgb{});
  const unsigned full = dots.bits == 1 ? 1u : dots.bits == 2 ? 3u : 7u;
  std::vector<Rgb> filters;
  for (std::size_t p = 0; p < dots.planes.size(); ++p) filters.push_back(InkFilter(p < names.size() ? names[p] : ""));
  for (int y = 0; y < dots.rows; ++y)
    for (int x = 0; x < dots.pixels; ++x) {
      // Light left in each channel, 1 = paper; an ink at share s keeps 1 - s * (1 - filter).
      double light[3] = {1.0, 1.0, 1.0};
      for (std::size_t p = 0; p < dots.planes.size(); ++p) {
        const double share = static_cast<double>(dots.Code(static_cast<int>(p), x, y)) / full;
        const std::uint8_t f[3] = {filters[p].r, filters[p].g, filters[p].b};
        for (int ch = 0; ch < 3; ++ch) light[ch] *= 1.0 - share * (1.0 - f[ch] / 255.0);
      }
      auto level = [](double v) { return static_cast<std::uint8_t>(std::clamp(v * 255.0 + 0.5, 0.0, 255.0)); };
      out.at(x, y) = Rgb{level(light[0]), level(light[1]), level(light[2])};
    }
  return out;
}

}  // namespace halftone_tool
