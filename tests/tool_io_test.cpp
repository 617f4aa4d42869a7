// The halftone command's picture handling: the colour separation, the dot-plane TIFF and PNG
// outputs read back through libtiff and libpng, and the CMYK, RGB and grey inputs.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "image_io.h"
#include "picture.h"
#include "runner.h"
#include "test_support.h"
#include "tiff_io.h"

#if HALFTONE_HAVE_PNG
#include <png.h>
#endif
#if HALFTONE_HAVE_TIFF
#include <tiffio.h>
#endif

namespace {

using namespace halftone_tool;

// Dot planes of the given depth whose codes follow a pattern that touches every code value,
// every bit position of a byte and a last byte only partly used (13 pixels a row).
DotPlanes PatternDots(int bits, int planes, int pixels, int rows) {
  DotPlanes d;
  d.bits = bits;
  d.pixels = pixels;
  d.rows = rows;
  d.stride = ((static_cast<std::size_t>(pixels) * static_cast<std::size_t>(bits) + 31) >> 5) * 4;
  const unsigned codes = bits == 1 ? 2u : bits == 2 ? 4u : 8u;
  for (int p = 0; p < planes; ++p) {
    std::vector<std::uint8_t> plane(d.stride * static_cast<std::size_t>(rows), 0);
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < pixels; ++x) {
        const unsigned code = static_cast<unsigned>(x * 3 + y * 5 + p) % codes;
        const std::size_t at = static_cast<std::size_t>(y) * d.stride;
        if (bits == 1) plane[at + static_cast<std::size_t>(x >> 3)] |= static_cast<std::uint8_t>(code << (7 - (x & 7)));
        if (bits == 2) plane[at + static_cast<std::size_t>(x >> 2)] |= static_cast<std::uint8_t>(code << (6 - 2 * (x & 3)));
        if (bits == 4) plane[at + static_cast<std::size_t>(x >> 1)] |= static_cast<std::uint8_t>(code << ((x & 1) ? 0 : 4));
      }
    d.planes.push_back(std::move(plane));
  }
  return d;
}

TEST(ToolSeparation, InksAndTheirPlanes) {
  // K = 255 - max; C, M, Y = max - R, G, B: paper takes no ink, any grey black ink only.
  const std::pair<Rgb, Ink> known[] = {{{255, 255, 255}, {0, 0, 0, 0}},   {{0, 0, 0}, {0, 0, 0, 255}},
                                       {{128, 128, 128}, {0, 0, 0, 127}}, {{255, 0, 0}, {0, 255, 255, 0}},
                                       {{0, 255, 255}, {255, 0, 0, 0}},   {{0, 0, 255}, {255, 255, 0, 0}},
                                       {{200, 100, 50}, {0, 100, 150, 55}}};
  for (const auto& [rgb, ink] : known) EXPECT_EQ(SeparateRgb(rgb.r, rgb.g, rgb.b), ink) << int{rgb.r} << "," << int{rgb.g} << "," << int{rgb.b};
  // The planes hold ink in lightness sense: 255 - ink, white paper 255.
  RgbImage rgb(2, 1, Rgb{});
  rgb.at(0, 0) = Rgb{200, 100, 50};
  const Picture p = SeparatedPicture(rgb);
  ASSERT_EQ(p.planes.size(), 4u);
  EXPECT_EQ(p.names, (std::vector<std::string>{"Cyan", "Magenta", "Yellow", "Black"}));
  const int want[4] = {255, 155, 105, 200};
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(p.planes[k].at(0, 0), want[k]) << "plane " << k;
    EXPECT_EQ(p.planes[k].at(1, 0), 255) << "white pixel, plane " << k;
  }
}

// Dot planes of one row drawn as ink on white paper.
DotPlanes OneRowOfDots(int bits, int pixels, const std::vector<std::uint8_t>& first_bytes) {
  DotPlanes d;
  d.bits = bits;
  d.pixels = pixels;
  d.rows = 1;
  d.stride = 4;
  for (std::uint8_t b : first_bytes) d.planes.push_back({b, 0, 0, 0});
  return d;
}

TEST(ToolPreview, InksCompositeOnWhitePaperAsTheirShareOfInk) {
  // Four 1-bit planes C, M, Y, K over five pixels: none, C, C+M, C+M+Y, K (pixel x at bit 7 - x).
  RgbImage out = CompositeInks(OneRowOfDots(1, 5, {0x70, 0x30, 0x10, 0x08}), {"Cyan", "Magenta", "Yellow", "Black"});
  const Rgb inks[] = {{255, 255, 255}, {0, 255, 255}, {0, 0, 255}, {0, 0, 0}, {0, 0, 0}};
  for (int x = 0; x < 5; ++x) EXPECT_EQ(out.at(x, 0), inks[x]) << x;
  // 2-bit codes 0..3 of black: light left 1, 2/3, 1/3, 0.
  out = CompositeInks(OneRowOfDots(2, 4, {0x1B}), {"Black"});
  const Rgb greys[] = {{255, 255, 255}, {170, 170, 170}, {85, 85, 85}, {0, 0, 0}};
  for (int x = 0; x < 4; ++x) EXPECT_EQ(out.at(x, 0), greys[x]) << x;
  // Magenta at code 3 of 3 over cyan at code 1 of 3 at the same pixel: R keeps 2/3, G none.
  EXPECT_EQ(CompositeInks(OneRowOfDots(2, 1, {0x40, 0xC0}), {"Cyan", "Magenta"}).at(0, 0), (Rgb{170, 0, 255}));
}

#if HALFTONE_HAVE_TIFF
// Reads every page of a TIFF back through libtiff as codes; checks the page header as it goes.
std::vector<std::vector<unsigned>> ReadTiffCodes(const std::string& path, int bits, int w, int h,
                                                 std::vector<std::string>& names) {
  std::vector<std::vector<unsigned>> pages;
  TIFF* t = TIFFOpen(path.c_str(), "r");
  if (!t) return pages;
  do {
    std::uint32_t tw = 0, th = 0;
    std::uint16_t bps = 0, photometric = 0, spp = 0;
    char* name = nullptr;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &tw);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &th);
    TIFFGetField(t, TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric);
    EXPECT_EQ(tw, static_cast<std::uint32_t>(w));
    EXPECT_EQ(th, static_cast<std::uint32_t>(h));
    EXPECT_EQ(bps, bits);
    EXPECT_EQ(spp, 1);
    EXPECT_EQ(photometric, PHOTOMETRIC_MINISWHITE) << "dots must read as ink on paper";
    names.push_back(TIFFGetField(t, TIFFTAG_PAGENAME, &name) ? name : "");
    std::vector<unsigned> codes;
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize64(t)));
    for (int y = 0; y < h; ++y) {
      EXPECT_GE(TIFFReadScanline(t, line.data(), static_cast<std::uint32_t>(y), 0), 0);
      for (int x = 0; x < w; ++x) {
        const int bit = x * bits;
        codes.push_back((line[static_cast<std::size_t>(bit / 8)] >> (8 - bits - bit % 8)) & ((1u << bits) - 1));
      }
    }
    pages.push_back(std::move(codes));
  } while (TIFFReadDirectory(t));
  TIFFClose(t);
  return pages;
}

class ToolDotTiff : public ::testing::TestWithParam<int> {};

TEST_P(ToolDotTiff, PagesReadBackAsTheExactCodes) {
  const int bits = GetParam();
  halftone_test::TempFolder dir;
  const std::string path = (dir.path() / "dots.tif").string();
  const DotPlanes dots = PatternDots(bits, 3, 13, 5);
  ASSERT_EQ(WriteDotTiff(path, dots, {"Cyan", "Magenta", "Yellow"}, "test"), "");
  std::vector<std::string> names;
  const auto pages = ReadTiffCodes(path, bits, 13, 5, names);
  ASSERT_EQ(pages.size(), 3u);
  EXPECT_EQ(names, (std::vector<std::string>{"Cyan", "Magenta", "Yellow"}));
  for (int p = 0; p < 3; ++p)
    for (int y = 0; y < 5; ++y)
      for (int x = 0; x < 13; ++x)
        ASSERT_EQ(pages[static_cast<std::size_t>(p)][static_cast<std::size_t>(y * 13 + x)], dots.Code(p, x, y))
            << "plane " << p << " at " << x << "," << y;
}

INSTANTIATE_TEST_SUITE_P(Depths, ToolDotTiff, ::testing::Values(1, 2, 4));

// Writes a TIFF of `spp` contiguous samples a pixel (each sample's first byte from `samples`).
void WriteTestTiff(const std::string& path, int w, int h, std::uint16_t photometric, std::uint16_t spp,
                   const std::vector<std::uint8_t>& samples, std::uint16_t bits = 8) {
  TIFF* t = TIFFOpen(path.c_str(), "w");
  ASSERT_NE(t, nullptr);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(w));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(h));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 1u);
  const std::size_t row = static_cast<std::size_t>(w) * spp, bytes = bits / 8u;
  std::vector<std::uint8_t> line(row * bytes);
  for (int y = 0; y < h; ++y) {
    for (std::size_t i = 0; i < row; ++i) line[i * bytes] = samples[static_cast<std::size_t>(y) * row + i];
    ASSERT_GE(TIFFWriteScanline(t, line.data(), static_cast<std::uint32_t>(y), 0), 0);
  }
  TIFFClose(t);
}

TEST(ToolTiffInput, GreyKeepsItsSenseAndRgbIsSeparated) {
  halftone_test::TempFolder dir;
  const std::string black_zero = (dir.path() / "b.tif").string(), white_zero = (dir.path() / "w.tif").string();
  WriteTestTiff(black_zero, 2, 1, PHOTOMETRIC_MINISBLACK, 1, {0, 200});
  WriteTestTiff(white_zero, 2, 1, PHOTOMETRIC_MINISWHITE, 1, {0, 200});
  Picture p;
  ASSERT_EQ(ReadPicture(black_zero, p), "");
  ASSERT_EQ(p.planes.size(), 1u);
  EXPECT_EQ(p.planes[0].at(0, 0), 0);  // black = full ink = 0
  EXPECT_EQ(p.planes[0].at(1, 0), 200);
  ASSERT_EQ(ReadPicture(white_zero, p), "");
  EXPECT_EQ(p.planes[0].at(0, 0), 255);  // 0 is white here
  EXPECT_EQ(p.planes[0].at(1, 0), 55);
  const std::string rgb = (dir.path() / "rgb.tif").string();
  WriteTestTiff(rgb, 1, 1, PHOTOMETRIC_RGB, 3, {255, 0, 0});
  ASSERT_EQ(ReadPicture(rgb, p), "");
  ASSERT_EQ(p.planes.size(), 4u);
  EXPECT_EQ(p.planes[0].at(0, 0), 255);  // red: no cyan,
  EXPECT_EQ(p.planes[1].at(0, 0), 0);    // full magenta,
  EXPECT_EQ(p.planes[2].at(0, 0), 0);    // full yellow,
  EXPECT_EQ(p.planes[3].at(0, 0), 255);  // no black
}

TEST(ToolTiffInput, RefusesWhatItCannotRead) {
  halftone_test::TempFolder dir;
  const std::string deep = (dir.path() / "deep.tif").string();
  WriteTestTiff(deep, 2, 1, PHOTOMETRIC_MINISBLACK, 1, {0, 0, 0, 0}, 16);
  Picture p;
  EXPECT_NE(ReadPicture(deep, p).find("only 8-bit"), std::string::npos);
  const std::string two = (dir.path() / "two.tif").string();
  WriteTestTiff(two, 1, 1, PHOTOMETRIC_SEPARATED, 2, {0, 0});
  EXPECT_NE(ReadPicture(two, p).find("neither CMYK, RGB nor grey"), std::string::npos);
}
#endif

#if HALFTONE_HAVE_PNG
TEST(ToolPng, GreyPreviewReadsBackAsInkShares) {
  halftone_test::TempFolder dir;
  const std::string path = (dir.path() / "preview.png").string();
  const DotPlanes dots = PatternDots(2, 1, 13, 5);
  ASSERT_EQ(WriteGray(path, PreviewPlane(dots, 0)), "");
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&png, path.c_str()));
  png.format = PNG_FORMAT_GRAY;
  ASSERT_EQ(png.width, 13u);
  ASSERT_EQ(png.height, 5u);
  std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(png));
  ASSERT_TRUE(png_image_finish_read(&png, nullptr, pixels.data(), 0, nullptr));
  const std::uint8_t by_code[4] = {255, 170, 85, 0};
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 13; ++x)
      EXPECT_EQ(pixels[static_cast<std::size_t>(y * 13 + x)], by_code[dots.Code(0, x, y)]) << x << "," << y;
}

TEST(ToolPng, ColourPreviewAndColourInputRoundTrip) {
  halftone_test::TempFolder dir;
  const std::string path = (dir.path() / "colour.png").string();
  RgbImage img(3, 1, Rgb{});
  img.at(0, 0) = Rgb{0, 0, 255};
  img.at(1, 0) = Rgb{200, 100, 50};
  ASSERT_EQ(WriteRgb(path, img), "");
  // Read back as the command reads input: separated into four ink planes.
  Picture p;
  ASSERT_EQ(ReadPicture(path, p), "");
  ASSERT_EQ(p.planes.size(), 4u);
  EXPECT_EQ(p.planes[0].at(0, 0), 0);    // blue: full cyan,
  EXPECT_EQ(p.planes[1].at(0, 0), 0);    // full magenta,
  EXPECT_EQ(p.planes[2].at(0, 0), 255);  // no yellow
  EXPECT_EQ(p.planes[3].at(0, 0), 255);  // no black
  EXPECT_EQ(p.planes[3].at(1, 0), 200);  // K 55
  EXPECT_EQ(p.planes[2].at(2, 0), 255);  // paper
  // A grey PNG stays one plane.
  const std::string grey = (dir.path() / "grey.png").string();
  GrayImage g;
  g.width = 2;
  g.height = 1;
  g.pixels = {7, 250};
  ASSERT_EQ(WriteGray(grey, g), "");
  ASSERT_EQ(ReadPicture(grey, p), "");
  ASSERT_EQ(p.planes.size(), 1u);
  EXPECT_EQ(p.planes[0].pixels, g.pixels);
}
#endif

}  // namespace
