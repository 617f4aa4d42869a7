#include "picture.h"

#include <algorithm>
#include <memory>

#include "page_sink.h"
#include "page_source.h"

namespace halftone_tool {
namespace {

constexpr int kFullInk = 255;

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
  std::unique_ptr<PageSource> source;
  if (std::string err = OpenPage(path, source); !err.empty()) return err;
  return ReadAll(*source, picture);
}

RgbImage CompositeInks(const DotPlanes& dots, const std::vector<std::string>& names) {
  RgbImage out(dots.pixels, dots.rows, Rgb{});
  std::vector<std::string> inks(dots.planes.size());
  for (std::size_t p = 0; p < inks.size() && p < names.size(); ++p) inks[p] = names[p];
  const InkMixer mixer(dots.bits, inks);
  std::vector<unsigned> codes(dots.planes.size());
  for (int y = 0; y < dots.rows; ++y)
    for (int x = 0; x < dots.pixels; ++x) {
      for (std::size_t p = 0; p < codes.size(); ++p) codes[p] = dots.Code(static_cast<int>(p), x, y);
      out.at(x, y) = mixer.Mix(codes.data());
    }
  return out;
}

}  // namespace halftone_tool
