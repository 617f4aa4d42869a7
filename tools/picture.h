// Pictures as the command halftones them: one or four ink planes, each in the library's
// lightness sense (0 = full ink, 255 = bare paper), read from grey or colour files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image_io.h"
#include "runner.h"

namespace halftone_tool {

// Ink amounts of one colour, 0 = no ink, 255 = full ink.
struct Ink {
  int c = 0, m = 0, y = 0, k = 0;
  bool operator==(const Ink&) const = default;
};

// Separates an RGB colour into cyan, magenta, yellow and black by grey component replacement:
//   K = 255 - max(R, G, B)      the grey the three colours share goes to black ink;
//   C = max - R, M = max - G, Y = max - B   what is left of each colour's complement.
// White gets no ink, black only K, a saturated primary or secondary only its one or two inks,
// and C + K = 255 - R (likewise M, Y), so no channel ever asks for more than full ink.
Ink SeparateRgb(std::uint8_t r, std::uint8_t g, std::uint8_t b);

// The ink planes of a picture, all the same size, in lightness sense: sample = 255 - ink.
struct Picture {
  std::vector<GrayImage> planes;
  std::vector<std::string> names;  // "Cyan", "Magenta", "Yellow", "Black" or "Grey"
  bool IsColour() const { return planes.size() == 4; }
};

// One grey plane named "Grey", taken as it is.
Picture GreyPicture(GrayImage image);
// Four planes C, M, Y, K from an RGB picture through SeparateRgb.
Picture SeparatedPicture(const RgbImage& image);

// Reads a picture by its content: PNG (grey, or colour separated into C, M, Y, K), binary PGM,
// or TIFF (CMYK, RGB or grey at 8 bits; needs libtiff). Returns an empty string on success or a
// message naming the file and what is wrong with it.
std::string ReadPicture(const std::string& path, Picture& picture);

// The preview of dot planes: each plane's dots drawn as its ink on white paper, each code at its
// share of full ink, the inks multiplied together as transparent inks do. `names` says which
// ink each plane is (as in Picture::names; anything unknown prints black).
RgbImage CompositeInks(const DotPlanes& dots, const std::vector<std::string>& names);

}  // namespace halftone_tool
