// The halftone command's own code, outside the library: the colour separation and the
// preview's inks, dot-plane TIFF and PNG outputs read back through libtiff and libpng, CMYK, RGB
// and grey inputs in every TIFF layout, JPEG and PNG; pages streamed band by band against the
// whole page held in memory for every banded method; the command's exit status, messages and
// files; the tone measurement and the analysis against answers known beforehand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "analyze.h"
#include "image_io.h"
#include "page_sink.h"
#include "page_source.h"
#include "picture.h"
#include "runner.h"
#include "tables.h"
#include "test_support.h"
#include "tiff_io.h"
#include "tone.h"

#include <jpeglib.h>
#include <png.h>
#include <sys/wait.h>
#include <tiffio.h>

namespace {

using namespace halftone_tool;

// Dot planes of the given depth whose codes follow a pattern that touches every code value,
// every bit position of a byte and, at the odd widths used here, a last byte only partly used.
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

// Dot planes of `rows` rows of 4 bytes, each plane's first byte as listed, the rest clear.
DotPlanes Dots(int bits, int pixels, const std::vector<std::uint8_t>& first_bytes, int rows = 1) {
  DotPlanes d{bits, pixels, rows, 4, {}};
  for (std::uint8_t b : first_bytes) {
    d.planes.emplace_back(4 * static_cast<std::size_t>(rows), std::uint8_t{0});
    d.planes.back()[0] = b;
  }
  return d;
}

TEST(ToolPreview, InksCompositeOnWhitePaperAsTheirShareOfInk) {
  // Four 1-bit planes C, M, Y, K over five pixels: none, C, C+M, C+M+Y, K (pixel x at bit 7 - x).
  RgbImage out = CompositeInks(Dots(1, 5, {0x70, 0x30, 0x10, 0x08}), {"Cyan", "Magenta", "Yellow", "Black"});
  const Rgb inks[] = {{255, 255, 255}, {0, 255, 255}, {0, 0, 255}, {0, 0, 0}, {0, 0, 0}};
  for (int x = 0; x < 5; ++x) EXPECT_EQ(out.at(x, 0), inks[x]) << x;
  // 2-bit codes 0..3 of black: light left 1, 2/3, 1/3, 0.
  out = CompositeInks(Dots(2, 4, {0x1B}), {"Black"});
  const Rgb greys[] = {{255, 255, 255}, {170, 170, 170}, {85, 85, 85}, {0, 0, 0}};
  for (int x = 0; x < 4; ++x) EXPECT_EQ(out.at(x, 0), greys[x]) << x;
  // Magenta at code 3 of 3 over cyan at code 1 of 3 at the same pixel: R keeps 2/3, G none.
  EXPECT_EQ(CompositeInks(Dots(2, 1, {0x40, 0xC0}), {"Cyan", "Magenta"}).at(0, 0), (Rgb{170, 0, 255}));
}

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

constexpr int kWidth = 37;   // odd, and no whole number of bytes a dot row at any depth
constexpr int kHeight = 29;  // no whole number of bands
constexpr int kBandRows = 8;

// Ink amounts (0 = none) of a CMYK test page, pixel-interleaved.
std::vector<std::uint8_t> PageInks() {
  std::vector<std::uint8_t> inks;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      for (int k = 0; k < 4; ++k) inks.push_back(static_cast<std::uint8_t>((x * 7 + y * 13 + k * 61 + x * y) % 256));
  return inks;
}

Picture PagePicture() {
  const auto inks = PageInks();
  Picture p;
  p.names = {"Cyan", "Magenta", "Yellow", "Black"};
  for (std::size_t k = 0; k < 4; ++k) {
    GrayImage plane;
    plane.width = kWidth;
    plane.height = kHeight;
    for (std::size_t i = 0; i < static_cast<std::size_t>(kWidth * kHeight); ++i)
      plane.pixels.push_back(static_cast<std::uint8_t>(255 - inks[i * 4 + k]));
    p.planes.push_back(std::move(plane));
  }
  return p;
}

TEST(ToolStream, EveryBandedMethodStreamsTheDotsOfTheWholePage) {
  const Picture page = PagePicture();
  int streamed = 0;
  for (const auto& m : ListMethods()) {
    if (!Banded(m)) continue;
    std::string message;
    ASSERT_EQ(PrepareTables(m.tables, "", message), 0) << m.name << ": " << message;
    RunOptions options;
    options.levels = m.output_bits == 4 ? "0,36,73,109,146,182,219,255," : "0,85,170,255,";
    options.band_rows = kBandRows;
    options.fixed_time = 11;
    DotPlanes whole;
    ASSERT_EQ(RunMethod(m, page.planes, options, whole), "") << m.name;

    options.overlap = true;
    auto source = PictureSource(page);
    std::vector<std::vector<std::uint8_t>> rows(4);  // each plane's dot rows, stride bytes each
    const std::string err = RunMethodStreamed(
        m, kWidth, kHeight, 4, options, [&](std::uint8_t* b, int n, std::size_t s) { return source->Read(b, n, s); },
        {[&](const std::uint8_t* b, int n, std::size_t s) {
          for (std::size_t y = 0; y < static_cast<std::size_t>(n); ++y)
            for (std::size_t p = 0; p < 4; ++p) rows[p].insert(rows[p].end(), b + (y * 4 + p) * s, b + (y * 4 + p + 1) * s);
          return std::string{};
        }});
    ASSERT_EQ(err, "") << m.name;
    for (std::size_t p = 0; p < 4; ++p) EXPECT_EQ(rows[p], whole.planes[p]) << m.name << ", plane " << p;
    ++streamed;
  }
  EXPECT_GT(streamed, 30);
}

TEST(ToolStream, AFailingSinkStopsTheRunWithItsMessage) {
  const Picture page = PagePicture();
  halftone_method_info m{};
  ASSERT_TRUE(FindMethod("orangecagn", m));
  RunOptions options;
  options.levels = "0,85,170,255,";
  options.band_rows = 4;
  options.overlap = true;
  auto source = PictureSource(page);
  int calls = 0;
  const std::string err = RunMethodStreamed(
      m, kWidth, kHeight, 4, options, [&](std::uint8_t* b, int n, std::size_t s) { return source->Read(b, n, s); },
      {[&](const std::uint8_t*, int, std::size_t) { return ++calls == 2 ? std::string("disk full") : std::string{}; }});
  EXPECT_EQ(err, "disk full");
  EXPECT_EQ(calls, 2) << "no band is written after the failure";
}

// The test page as a CMYK TIFF: strips of `strip_rows` rows or tiles of 16 x 16, samples
// contiguous or in separate planes, LZW-compressed.
void WriteCmykTiff(const std::string& path, bool tiled, bool separate, std::uint32_t strip_rows) {
  const auto inks = PageInks();
  TIFF* t = TIFFOpen(path.c_str(), "w");
  ASSERT_NE(t, nullptr);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(kWidth));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(kHeight));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 4);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
  TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, separate ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
  const int step = separate ? 1 : 4;
  auto sample = [&](int x, int y, int k) { return x < kWidth && y < kHeight ? inks[static_cast<std::size_t>((y * kWidth + x) * 4 + k)] : 0; };
  if (!tiled) {
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, strip_rows);
    std::vector<std::uint8_t> line(static_cast<std::size_t>(kWidth * step));
    for (int s = 0; s < (separate ? 4 : 1); ++s)
      for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
          for (int k = 0; k < step; ++k) line[static_cast<std::size_t>(x * step + k)] = sample(x, y, separate ? s : k);
        ASSERT_GE(TIFFWriteScanline(t, line.data(), static_cast<std::uint32_t>(y), static_cast<std::uint16_t>(s)), 0);
      }
  } else {
    constexpr int kTile = 16;
    TIFFSetField(t, TIFFTAG_TILEWIDTH, kTile);
    TIFFSetField(t, TIFFTAG_TILELENGTH, kTile);
    std::vector<std::uint8_t> tile(static_cast<std::size_t>(kTile * kTile * step));
    for (int s = 0; s < (separate ? 4 : 1); ++s)
      for (int ty = 0; ty < kHeight; ty += kTile)
        for (int tx = 0; tx < kWidth; tx += kTile) {
          for (int y = 0; y < kTile; ++y)
            for (int x = 0; x < kTile; ++x)
              for (int k = 0; k < step; ++k)
                tile[static_cast<std::size_t>((y * kTile + x) * step + k)] = sample(tx + x, ty + y, separate ? s : k);
          ASSERT_GE(TIFFWriteTile(t, tile.data(), static_cast<std::uint32_t>(tx), static_cast<std::uint32_t>(ty), 0,
                                  static_cast<std::uint16_t>(s)),
                    0);
        }
  }
  TIFFClose(t);
}

TEST(ToolStream, StripsTilesAndSeparatePlanesReadAlike) {
  halftone_test::TempFolder dir;
  const Picture expected = PagePicture();
  struct Layout {
    const char* name;
    bool tiled, separate;
    std::uint32_t strip_rows;
  };
  for (const Layout& l : {Layout{"strips", false, false, 5}, Layout{"whole", false, false, kHeight},
                          Layout{"separate strips", false, true, 3}, Layout{"tiles", true, false, 0},
                          Layout{"separate tiles", true, true, 0}}) {
    const std::string path = (dir.path() / "page.tif").string();
    WriteCmykTiff(path, l.tiled, l.separate, l.strip_rows);
    std::unique_ptr<PageSource> source;
    ASSERT_EQ(OpenPage(path, source), "") << l.name;
    Picture read;
    // Bands of uneven height cross strip and tile edges.
    ASSERT_EQ(ReadAll(*source, read), "") << l.name;
    ASSERT_EQ(read.planes.size(), 4u) << l.name;
    for (std::size_t p = 0; p < 4; ++p) EXPECT_EQ(read.planes[p].pixels, expected.planes[p].pixels) << l.name << ", plane " << p;
  }
}

// A flat JPEG at quality 100 of one colour: `components` 1, 3 or 4 (CMYK, with libjpeg's Adobe
// marker, stored as Adobe's software stores it: 255 - ink).
std::string WriteFlatJpeg(const std::string& path, int components, const std::vector<std::uint8_t>& pixel, int width = 16) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return "cannot write";
  jpeg_compress_struct c{};
  jpeg_error_mgr err{};
  c.err = jpeg_std_error(&err);
  jpeg_create_compress(&c);
  jpeg_stdio_dest(&c, f);
  c.image_width = static_cast<JDIMENSION>(width);
  c.image_height = 16;
  c.input_components = components;
  c.in_color_space = components == 1 ? JCS_GRAYSCALE : components == 3 ? JCS_RGB : JCS_CMYK;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 100, TRUE);
  jpeg_start_compress(&c, TRUE);
  std::vector<std::uint8_t> row;
  for (int x = 0; x < width; ++x) row.insert(row.end(), pixel.begin(), pixel.end());
  while (c.next_scanline < c.image_height) {
    JSAMPROW r = row.data();
    jpeg_write_scanlines(&c, &r, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  std::fclose(f);
  return {};
}

TEST(ToolStream, JpegInksComeOutTheRightWayRound) {
  halftone_test::TempFolder dir;
  const std::string path = (dir.path() / "page.jpg").string();
  auto read = [&](Picture& p) {
    std::unique_ptr<PageSource> source;
    if (std::string err = OpenPage(path, source); !err.empty()) return err;
    return ReadAll(*source, p);
  };
  auto near = [](int got, int want) { return got >= want - 2 && got <= want + 2; };
  Picture p;
  // Adobe CMYK: full cyan is stored as 0, no ink as 255.
  ASSERT_EQ(WriteFlatJpeg(path, 4, {0, 255, 255, 255}), "");
  ASSERT_EQ(read(p), "");
  ASSERT_EQ(p.planes.size(), 4u);
  EXPECT_TRUE(near(p.planes[0].at(3, 3), 0)) << "cyan at full ink: " << int{p.planes[0].at(3, 3)};
  for (std::size_t k = 1; k < 4; ++k) EXPECT_TRUE(near(p.planes[k].at(3, 3), 255)) << "plane " << k;
  // Red separates into magenta and yellow.
  ASSERT_EQ(WriteFlatJpeg(path, 3, {255, 0, 0}), "");
  ASSERT_EQ(read(p), "");
  ASSERT_EQ(p.planes.size(), 4u);
  EXPECT_TRUE(near(p.planes[0].at(3, 3), 255) && near(p.planes[1].at(3, 3), 0) && near(p.planes[2].at(3, 3), 0) &&
              near(p.planes[3].at(3, 3), 255));
  ASSERT_EQ(WriteFlatJpeg(path, 1, {90}), "");
  ASSERT_EQ(read(p), "");
  ASSERT_EQ(p.names, std::vector<std::string>{"Grey"});
  EXPECT_TRUE(near(p.planes[0].at(3, 3), 90));

  // A file cut short is an error, not a page painted grey.
  ASSERT_EQ(WriteFlatJpeg(path, 3, {10, 200, 30}, 640), "");
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes.substr(0, bytes.size() / 2);
  EXPECT_NE(read(p).find(path), std::string::npos);
}

TEST(ToolStream, PngAlphaLiesOnWhitePaper) {
  halftone_test::TempFolder dir;
  const std::string path = (dir.path() / "alpha.png").string();
  // Grey and alpha: black transparent, black opaque, black half covering.
  const std::uint8_t ga[] = {0, 0, 0, 255, 0, 128, 200, 255};
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  png.width = 4;
  png.height = 1;
  png.format = PNG_FORMAT_GA;
  ASSERT_TRUE(png_image_write_to_file(&png, path.c_str(), 0, ga, 0, nullptr));
  Picture p;
  ASSERT_EQ(ReadPicture(path, p), "");
  ASSERT_EQ(p.planes.size(), 1u);
  EXPECT_EQ(p.planes[0].pixels, (std::vector<std::uint8_t>{255, 0, 127, 200}));
}

TEST(ToolStream, PreviewRowsEqualTheWholePlaneComposite) {
  halftone_test::TempFolder dir;
  const DotPlanes dots = PatternDots(2, 4, kWidth, 5);
  const std::vector<std::string> inks = {"Cyan", "Magenta", "Yellow", "Black"};
  const std::string path = (dir.path() / "preview.ppm").string();
  PreviewStream preview;
  ASSERT_EQ(preview.Open(path, kWidth, 5, 2, inks), "");
  std::vector<std::uint8_t> band(4 * dots.stride);
  for (int y = 0; y < 5; ++y) {
    for (std::size_t p = 0; p < 4; ++p) std::memcpy(&band[p * dots.stride], &dots.planes[p][static_cast<std::size_t>(y) * dots.stride], dots.stride);
    ASSERT_EQ(preview.Band(band.data(), 1, dots.stride), "");
  }
  ASSERT_EQ(preview.Close(), "");
  const RgbImage whole = CompositeInks(dots, inks);
  std::ifstream in(path, std::ios::binary);
  std::string header;
  for (int i = 0; i < 3; ++i) std::getline(in, header);
  std::vector<char> px(static_cast<std::size_t>(kWidth) * 5 * 3);
  in.read(px.data(), static_cast<std::streamsize>(px.size()));
  ASSERT_TRUE(in);
  for (std::size_t i = 0; i < whole.pixels.size(); ++i) {
    const Rgb got{static_cast<std::uint8_t>(px[3 * i]), static_cast<std::uint8_t>(px[3 * i + 1]), static_cast<std::uint8_t>(px[3 * i + 2])};
    ASSERT_EQ(got, whole.pixels[i]) << "pixel " << i;
  }
}

TEST(ToolStream, ScaledPreviewAveragesEachBlockAndItsPartialEdges) {
  halftone_test::TempFolder dir;
  // One-bit grey: dots in columns 0, 1 and 4 of every row; five columns, three rows. The last
  // block row and column are one pixel deep: averaged over what they hold, they stay black.
  const std::string path = (dir.path() / "small.pgm").string();
  PreviewStream preview;
  ASSERT_EQ(preview.Open(path, 5, 3, 1, {"Grey"}, 2), "");
  const std::uint8_t row[4] = {0xC8, 0, 0, 0};
  for (int y = 0; y < 3; ++y) ASSERT_EQ(preview.Band(row, 1, 4), "");
  ASSERT_EQ(preview.Close(), "");
  std::ifstream in(path, std::ios::binary);
  std::string magic, size, maxval;
  std::getline(in, magic);
  std::getline(in, size);
  std::getline(in, maxval);
  EXPECT_EQ(size, "3 2") << "five by three at 1/2 is three by two";
  std::vector<char> px(6);
  in.read(px.data(), 6);
  ASSERT_TRUE(in);
  for (int y = 0; y < 2; ++y) {
    EXPECT_EQ(static_cast<std::uint8_t>(px[static_cast<std::size_t>(y * 3)]), 0) << "a block full of dots is black";
    EXPECT_EQ(static_cast<std::uint8_t>(px[static_cast<std::size_t>(y * 3 + 1)]), 255);
    EXPECT_EQ(static_cast<std::uint8_t>(px[static_cast<std::size_t>(y * 3 + 2)]), 0) << "the one-column edge block";
  }
}

// The halftone command as a user meets it: exit status and message on bad usage and bad files,
// and the files it writes on success.
struct Result {
  int status = -1;
  std::string err;
};

class ToolCommand : public ::testing::Test {
 protected:
  // Runs the command with `args` (already quoted as the shell needs) inside the temp folder.
  Result Run(const std::string& args) {
    const std::string err_file = (dir_.path() / "stderr.txt").string();
    const std::string cmd = "cd '" + dir_.path().string() + "' && '" HALFTONE_TOOL_FILE "' " + args + " >/dev/null 2>'" + err_file + "'";
    const int raw = std::system(cmd.c_str());
    Result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    std::ifstream in(err_file);
    std::stringstream ss;
    ss << in.rdbuf();
    r.err = ss.str();
    return r;
  }
  std::string Path(const std::string& name) const { return (dir_.path() / name).string(); }
  halftone_test::TempFolder dir_;
};

TEST_F(ToolCommand, BadUsageExitsTwoWithAHint) {
  for (const char* args : {"--frobnicate", "-m NoSuchMethod", "--mode", "--band-rows 0", "a.png b.png",
                           "tone", "tone -m RoundFaxest --all", "tone --patch 3 -m RoundFaxest", "tone input.png -m RoundFaxest",
                           "sheet --columns x", "-m RoundFaxest -m RoundFaxest__"}) {
    const Result r = Run(args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(r.err.rfind("halftone: ", 0), 0u) << args << ": " << r.err;
    EXPECT_NE(r.err.find("Try 'halftone --help'"), std::string::npos) << args;
  }
  EXPECT_NE(Run("-m NoSuchMethod").err.find("unknown method 'NoSuchMethod'"), std::string::npos);
}

TEST_F(ToolCommand, UnreadableInputAndUnwritableOutputExitOne) {
  std::ofstream(Path("notes.png")) << "not a picture at all";
  for (const auto& [args, message] : {std::pair{"missing.png", "cannot open 'missing.png'"}, std::pair{"notes.png", "notes.png"},
                                      std::pair{"--quiet -o no/such/folder/out.png", "no/such/folder/out.png"},
                                      std::pair{"-o out.gif", "must end in"}}) {
    const Result r = Run(args);
    EXPECT_EQ(r.status, 1) << args;
    EXPECT_NE(r.err.find(message), std::string::npos) << args << ": " << r.err;
  }
}

// A CMYK page goes from file to files band by band, its dots those of the whole page held in
// memory; --no-preview and --preview-scale shape what is written, and a damaged page leaves
// no file behind.
TEST_F(ToolCommand, PageStreamsToTheDotsOfTheWholePage) {
  WriteCmykTiff(Path("page.tif"), false, false, 4);
  for (const char* name : {"sdiufiavs2", "CrisixOut", "Kaocosyx10"}) {
    SCOPED_TRACE(name);
    Result r = Run(std::string("page.tif -m ") + name + " --time 5 --band-rows 7 -o dots.tif --preview-scale 4");
    ASSERT_EQ(r.status, 0) << r.err;
    halftone_method_info m{};
    ASSERT_TRUE(halftone_tool::FindMethod(name, m));
    std::string message;
    ASSERT_EQ(halftone_tool::PrepareTables(m.tables, "", message), 0) << message;
    halftone_tool::RunOptions options;
    options.levels = "0,85,170,255,";
    options.band_rows = 7;
    options.fixed_time = 5;
    halftone_tool::DotPlanes whole;
    ASSERT_EQ(halftone_tool::RunMethod(m, PagePicture().planes, options, whole), "");
    std::vector<std::string> names;
    const auto streamed = ReadTiffCodes(Path("dots.tif"), whole.bits, kWidth, kHeight, names);
    ASSERT_EQ(streamed.size(), 4u);
    for (int p = 0; p < 4; ++p)
      for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
          ASSERT_EQ(streamed[static_cast<std::size_t>(p)][static_cast<std::size_t>(y * kWidth + x)], whole.Code(p, x, y))
              << "plane " << p << " at " << x << "," << y;
    std::ifstream preview(Path("dots.png"), std::ios::binary);
    ASSERT_TRUE(preview.good());
    unsigned char ihdr[24] = {};
    preview.read(reinterpret_cast<char*>(ihdr), 24);
    EXPECT_EQ(ihdr[19], 10) << "37 wide at 1/4 is 10";
    EXPECT_EQ(ihdr[23], 8) << "29 high at 1/4 is 8";
  }

  std::remove(Path("dots.png").c_str());
  Result r = Run("page.tif -o only.tif --no-preview");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_FALSE(std::ifstream(Path("only.png")).good());
  EXPECT_EQ(Run("page.tif -o only.png --no-preview").status, 2) << "nothing left to write";

  std::ifstream in(Path("page.tif"), std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::ofstream(Path("cut.tif"), std::ios::binary) << bytes.substr(0, bytes.size() * 2 / 3);
  r = Run("cut.tif -o cut-dots.tif");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cut.tif"), std::string::npos) << r.err;
  EXPECT_FALSE(std::ifstream(Path("cut-dots.tif")).good());
  EXPECT_FALSE(std::ifstream(Path("cut-dots.png")).good());
  EXPECT_FALSE(std::ifstream(Path("cut-dots.tif.page2.tmp")).good());
}

// A grey PGM to a PBM goes band by band from file to file; its dots must be those of the preview
// drawn from the whole picture (a dot is 1 in the PBM, 0 in the grey preview).
TEST_F(ToolCommand, StreamedPbmMatchesThePreview) {
  halftone_tool::GrayImage img;
  img.width = 45;  // not a whole number of bytes a row
  img.height = 23;
  for (int y = 0; y < img.height; ++y)
    for (int x = 0; x < img.width; ++x) img.pixels.push_back(static_cast<std::uint8_t>((x * 5 + y * 11) % 256));
  ASSERT_EQ(halftone_tool::WriteGray(Path("in.pgm"), img), "");
  for (const char* method : {"orangecagn", "Kaocosyx", "MutexWindow"}) {
    const std::string common = std::string("in.pgm -m ") + method + " --time 3 --band-rows 7 ";
    Result r = Run(common + "-o dots.pbm");
    ASSERT_EQ(r.status, 0) << method << ": " << r.err;
    r = Run(common + "-o preview.pgm");
    ASSERT_EQ(r.status, 0) << method << ": " << r.err;
    std::ifstream pbm(Path("dots.pbm"), std::ios::binary), pgm(Path("preview.pgm"), std::ios::binary);
    std::string line;
    std::getline(pbm, line);
    EXPECT_EQ(line, "P4");
    std::getline(pbm, line);
    EXPECT_EQ(line, "45 23");
    for (int i = 0; i < 3; ++i) std::getline(pgm, line);
    const std::size_t row_bytes = 6;
    std::vector<char> bits(row_bytes * 23), grey(45 * 23);
    pbm.read(bits.data(), static_cast<std::streamsize>(bits.size()));
    pgm.read(grey.data(), static_cast<std::streamsize>(grey.size()));
    ASSERT_TRUE(pbm && pgm) << method;
    EXPECT_EQ(pbm.peek(), EOF) << method << ": nothing after the last row";
    for (std::size_t y = 0; y < 23; ++y)
      for (std::size_t x = 0; x < 48; ++x) {
        const bool dot = (static_cast<unsigned char>(bits[y * row_bytes + x / 8]) >> (7 - x % 8)) & 1;
        if (x >= 45)
          ASSERT_FALSE(dot) << method << ": padding bit set at row " << y;
        else
          ASSERT_EQ(dot, static_cast<unsigned char>(grey[y * 45 + x]) == 0) << method << " at " << x << ", " << y;
      }
  }
  // A short file fails before anything is written.
  std::ofstream(Path("short.pgm"), std::ios::binary) << "P5\n45 23\n255\n" << std::string(100, 'x');
  const Result r = Run("short.pgm -m orangecagn -o short.pbm");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("is truncated"), std::string::npos) << r.err;
  EXPECT_FALSE(std::ifstream(Path("short.pbm")).good());
}

TEST_F(ToolCommand, ToneWritesATableForEveryLevel) {
  const Result r = Run("tone -m RoundFaxest --patch 16 --time 1 -o plot.png --csv table.csv");
  ASSERT_EQ(r.status, 0) << r.err;
  std::ifstream in(Path("table.csv"));
  std::string header;
  std::getline(in, header);
  EXPECT_EQ(header, "level,RoundFaxest");
  int rows = 0;
  for (std::string line; std::getline(in, line);) ++rows;
  EXPECT_EQ(rows, 256);
}

// Tone response measurement: ink coverage counted as each code's share of full ink, and the
// whole measurement driven the way a host drives a method, checked against a threshold screen
// whose coverage at every level is known exactly.
// A 4 x 4 ordered-dither screen: a dot where the sample is below 16 * M + 8. M holds 0..15 once
// each, so a flat level v prints on exactly the cells with 16 * M + 8 > v.
constexpr int kBayer4[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};

// What the screen saw, to check the calls a host would make.
std::vector<unsigned> g_phases;
std::vector<int> g_heights;

int ThresholdScreen(unsigned char* src, unsigned char* dst, int w, int h, unsigned flags) {
  const unsigned planes = (flags >> 8) & 0xFF;
  g_phases.push_back((flags >> 16) & 0xFF);
  g_heights.push_back(h);
  const std::size_t in_stride = halftone_test::RasterStride(static_cast<std::size_t>(w));
  const std::size_t out_stride = halftone_test::DotStride(static_cast<std::size_t>(w), 1);
  std::memset(dst, 0, out_stride * planes * static_cast<std::size_t>(h));
  for (int y = 0; y < h; ++y)
    for (unsigned p = 0; p < planes; ++p)
      for (int x = 0; x < w; ++x) {
        const std::size_t row = static_cast<std::size_t>(y) * planes + p;
        if (src[row * in_stride + static_cast<std::size_t>(x)] < 16 * kBayer4[y % 4][x % 4] + 8)
          dst[row * out_stride + static_cast<std::size_t>(x >> 3)] |= static_cast<std::uint8_t>(0x80 >> (x & 7));
      }
  return 0;
}

halftone_method_info ScreenInfo() {
  return {"TestBayer4", "test screens", "4 x 4 ordered dither", 1, HALFTONE_ENTRY_BAND, HALFTONE_LAYOUT_BAND, 0u,
          reinterpret_cast<void (*)(void)>(&ThresholdScreen)};
}

TEST(ToolTone, ThresholdScreenCoverageIsExact) {
  ToneOptions options;
  options.patch = 64;
  options.run.band_rows = 16;
  options.run.levels = "0,85,170,255,";
  g_phases.clear();
  g_heights.clear();
  ToneCurve curve;
  std::vector<int> seen;
  ASSERT_EQ(MeasureTone(ScreenInfo(), options, curve, [&](int level) { seen.push_back(level); }), "");
  EXPECT_EQ(curve.method, "TestBayer4");
  ASSERT_EQ(curve.coverage.size(), 256u);
  // Level 0: every threshold (8 .. 248) is above it: full coverage.
  EXPECT_DOUBLE_EQ(curve.coverage[0], 1.0);
  // Level 8: 16 * 0 + 8 = 8 is not above 8, the other 15 are.
  EXPECT_DOUBLE_EQ(curve.coverage[8], 15.0 / 16.0);
  // Level 100: thresholds 104 .. 248 (M = 6 .. 15) are above it: 10 of 16.
  EXPECT_DOUBLE_EQ(curve.coverage[100], 10.0 / 16.0);
  // Level 247: only 248 (M = 15) is above it.
  EXPECT_DOUBLE_EQ(curve.coverage[247], 1.0 / 16.0);
  EXPECT_DOUBLE_EQ(curve.coverage[248], 0.0);
  EXPECT_DOUBLE_EQ(curve.coverage[255], 0.0);
  for (int v = 1; v < 256; ++v) EXPECT_LE(curve.coverage[static_cast<std::size_t>(v)], curve.coverage[static_cast<std::size_t>(v - 1)]);
  ASSERT_EQ(seen.size(), 256u);
  EXPECT_EQ(seen.front(), 0);
  EXPECT_EQ(seen.back(), 255);

  // Each level is its own job of four 16-row bands: start, two further bands, end.
  ASSERT_EQ(g_phases.size(), 256u * 4u);
  for (std::size_t level = 0; level < 256; ++level) {
    EXPECT_EQ(g_phases[level * 4], HALFTONE_PHASE_START);
    EXPECT_EQ(g_phases[level * 4 + 1], HALFTONE_PHASE_MIDDLE);
    EXPECT_EQ(g_phases[level * 4 + 2], HALFTONE_PHASE_MIDDLE);
    EXPECT_EQ(g_phases[level * 4 + 3], HALFTONE_PHASE_END);
  }
  for (int h : g_heights) EXPECT_EQ(h, 16);
}

TEST(ToolTone, CoverageCountsEachCodeAsItsShareOfFullInkPastTheSettlingRows) {
  EXPECT_DOUBLE_EQ(InkCoverage(Dots(1, 8, {0xE0}), 0, 0), 3.0 / 8.0);
  // 2 bits: codes 0, 1, 2, 3 -> (0 + 1 + 2 + 3) / (4 * 3); code 1 alone is a third of full ink.
  EXPECT_DOUBLE_EQ(InkCoverage(Dots(2, 4, {0x1B}), 0, 0), 0.5);
  EXPECT_DOUBLE_EQ(InkCoverage(Dots(2, 4, {0x55}), 0, 0), 1.0 / 3.0);
  // 4 bits: codes 5 and 3 -> 8 / (2 * 7); the largest drop is code 7, not 15.
  EXPECT_DOUBLE_EQ(InkCoverage(Dots(4, 2, {0x53}), 0, 0), 8.0 / 14.0);
  EXPECT_DOUBLE_EQ(InkCoverage(Dots(4, 2, {0x77}), 0, 0), 1.0);
  // Only row 0 of four has ink: leaving it out as a settling row leaves none.
  EXPECT_DOUBLE_EQ(InkCoverage(Dots(1, 8, {0xFF}, 4), 0, 0), 0.25);
  EXPECT_DOUBLE_EQ(InkCoverage(Dots(1, 8, {0xFF}, 4), 0, 1), 0.0);
}

TEST(ToolTone, CsvHasOneRowPerLevelAndOneColumnPerMethod) {
  halftone_test::TempFolder dir;
  const std::string path = (dir.path() / "tone.csv").string();
  ToneCurve a{"A", std::vector<double>(256, 0.25), ""}, b{"B", std::vector<double>(256, 1.0), ""};
  a.coverage[255] = 0.125;
  ASSERT_EQ(WriteToneCsv(path, {a, b}), "");
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 257u);
  EXPECT_EQ(lines[0], "level,A,B");
  EXPECT_EQ(lines[1], "0,0.250000,1.000000");
  EXPECT_EQ(lines[256], "255,0.125000,1.000000");
}

// The analysis measures against answers known beforehand: white noise is flat and isotropic, an
// ordered dither's energy sits at the frequencies of its matrix, an error diffusion's hole ends
// near the blue-noise principal frequency, and the visual error orders patterns as a viewer does.
constexpr int kSide = 256;

InkField Flat(int width, int height, double ink) {
  InkField f;
  f.width = width, f.height = height;
  f.ink.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), ink);
  return f;
}

// Each pixel inked with probability g: white noise.
InkField WhiteNoise(double g, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  InkField f = Flat(kSide, kSide, 0.0);
  for (double& v : f.ink) v = u(rng) < g ? 1.0 : 0.0;
  return f;
}

// Floyd and Steinberg's error diffusion of a field of asked-for ink, left to right.
InkField FloydSteinberg(const InkField& asked) {
  InkField out = asked;
  std::vector<double> e(asked.ink);
  const int w = asked.width;
  for (int y = 0; y < asked.height; ++y)
    for (int x = 0; x < w; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * static_cast<std::size_t>(w) + static_cast<std::size_t>(x);
      const double dot = e[i] >= 0.5 ? 1.0 : 0.0, err = e[i] - dot;
      out.ink[i] = dot;
      if (x + 1 < w) e[i + 1] += err * 7 / 16;
      if (y + 1 < asked.height) {
        if (x > 0) e[i + static_cast<std::size_t>(w) - 1] += err * 3 / 16;
        e[i + static_cast<std::size_t>(w)] += err * 5 / 16;
        if (x + 1 < w) e[i + static_cast<std::size_t>(w) + 1] += err * 1 / 16;
      }
    }
  return out;
}

InkField LastRows(const InkField& f, int rows) {
  InkField t;
  t.width = f.width, t.height = rows;
  t.ink.assign(f.ink.end() - static_cast<std::ptrdiff_t>(rows) * f.width, f.ink.end());
  return t;
}

TEST(ToolAnalyze, WhiteNoiseIsFlatAndIsotropic) {
  for (double g : {0.25, 0.5}) {
    const PatchMeasure m = MeasurePatch(WhiteNoise(g, 7), 128);
    ASSERT_TRUE(m.patterned);
    // Whole annuli from the tenth bin on hold at least 60 samples: their means stay within 3 dB
    // of white noise's level; overall the spectrum is flat within 5 %.
    double sum = 0, aniso = 0;
    int n = 0;
    for (std::size_t k = 10; k < m.spectrum.power.size() && m.spectrum.frequency[k] <= 0.5; ++k, ++n) {
      EXPECT_NEAR(10 * std::log10(m.spectrum.power[k]), 0.0, 3.0) << "g " << g << " at " << m.spectrum.frequency[k];
      sum += m.spectrum.power[k];
      aniso += m.spectrum.anisotropy[k];
    }
    EXPECT_NEAR(sum / n, 1.0, 0.05) << "g " << g;
    EXPECT_NEAR(10 * std::log10(aniso / n), 0.0, 0.5) << "a periodogram's spread equals its mean: 0 dB";
    EXPECT_NEAR(m.graininess_db, 0.0, 2.0) << "white noise is as grainy as white noise";
  }
}

TEST(ToolAnalyze, OrderedDitherEnergySitsAtItsMatrixFrequencies) {
  halftone_method_info m{};
  ASSERT_TRUE(FindMethod("Kaocosyx", m));
  std::string message;
  ASSERT_EQ(PrepareTables(m.tables, "", message), 0) << message;
  GrayImage patch;
  patch.width = kSide;
  patch.height = kSide + 64;
  RunOptions run;
  run.levels = "0,85,170,255,";
  for (int level : {64, 128, 200}) {
    patch.pixels.assign(static_cast<std::size_t>(patch.width) * static_cast<std::size_t>(patch.height), static_cast<std::uint8_t>(level));
    DotPlanes dots;
    ASSERT_EQ(RunMethod(m, {patch}, run, dots), "");
    const InkField field = DotInk(dots, 0, 64);
    const std::vector<double> p = Periodogram(field);
    const int half = kSide / 2 + 1, period = 16, step = kSide / period;
    double on = 0, off = 0, low = 0;
    for (int v = 0; v < kSide; ++v)
      for (int u = 0; u < half; ++u) {
        const double e = p[static_cast<std::size_t>(v) * half + static_cast<std::size_t>(u)];
        (u % step == 0 && v % step == 0 ? on : off) += e;
        const int fv = v <= kSide / 2 ? v : kSide - v;
        if ((u > 0 || v > 0) && u < step && fv < step) low += e;
      }
    EXPECT_GT(on, 0) << "level " << level;
    EXPECT_LT(off, 1e-9 * on) << "level " << level << ": a 16 x 16 matrix repeats every 16 pixels";
    EXPECT_LT(low, 1e-9 * on) << "level " << level << ": nothing below 1/16 cycle a pixel";
  }
}

TEST(ToolAnalyze, ErrorDiffusionHoleEndsNearTheBlueNoiseFrequency) {
  for (double g : {0.125, 0.25, 0.5, 0.75}) {
    const InkField dots = LastRows(FloydSteinberg(Flat(kSide, kSide + 64, g)), kSide);
    const PatchMeasure m = MeasurePatch(dots, 128);
    ASSERT_TRUE(m.patterned);
    EXPECT_NEAR(m.coverage, g, 0.01);
    EXPECT_LT(m.principal_error, 0.25) << "g " << g << ": smoothed " << m.spectrum.power.size() << ": principal " << m.principal << " against " << m.ideal;
    EXPECT_LT(m.graininess_db, -6.0) << "g " << g << ": blue noise has little low-frequency energy";
  }
  EXPECT_DOUBLE_EQ(IdealPrincipalFrequency(0.25), 0.5);
  EXPECT_DOUBLE_EQ(IdealPrincipalFrequency(0.75), 0.5);
}

TEST(ToolAnalyze, VisualErrorOrdersPatternsAsTheEyeDoes) {
  // A grey ramp of asked-for ink, and three renderings of it.
  InkField ramp = Flat(512, 128, 0.0);
  for (int y = 0; y < ramp.height; ++y)
    for (int x = 0; x < ramp.width; ++x) ramp.ink[static_cast<std::size_t>(y * ramp.width + x)] = x / 511.0;
  static const int kBayer8[8][8] = {{0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26}, {12, 44, 4, 36, 14, 46, 6, 38},
                                    {60, 28, 52, 20, 62, 30, 54, 22}, {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
                                    {15, 47, 7, 39, 13, 45, 5, 37},  {63, 31, 55, 23, 61, 29, 53, 21}};
  InkField ordered = ramp, random = ramp;
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int y = 0; y < ramp.height; ++y)
    for (int x = 0; x < ramp.width; ++x) {
      const std::size_t i = static_cast<std::size_t>(y * ramp.width + x);
      ordered.ink[i] = ramp.ink[i] > (kBayer8[y % 8][x % 8] + 0.5) / 64.0 ? 1.0 : 0.0;
      random.ink[i] = ramp.ink[i] > u(rng) ? 1.0 : 0.0;
    }
  const InkField diffused = FloydSteinberg(ramp);
  const Viewing viewing;
  EXPECT_DOUBLE_EQ(VisualError(ramp, ramp, viewing), 0.0);
  const double e_fs = VisualError(ramp, diffused, viewing), e_ordered = VisualError(ramp, ordered, viewing),
               e_random = VisualError(ramp, random, viewing);
  EXPECT_LT(e_ordered, e_random);
  EXPECT_LT(e_fs, e_random);
  // Farther away the eye blurs more: every error shrinks.
  Viewing far = viewing;
  far.distance_mm = 1000;
  EXPECT_LT(VisualError(ramp, random, far), e_random);
  // The eye's sensitivity: full below its peak, falling above.
  EXPECT_DOUBLE_EQ(ContrastSensitivity(0.0), 1.0);
  EXPECT_DOUBLE_EQ(ContrastSensitivity(4.0), 1.0);
  EXPECT_LT(ContrastSensitivity(30.0), 0.3);
  EXPECT_GT(ContrastSensitivity(15.0), ContrastSensitivity(30.0));
}

TEST(ToolAnalyze, CommandWritesTablesAndPictures) {
  halftone_test::TempFolder dir;
  const std::string out = (dir.path() / "an").string();
  const std::string cmd = "'" HALFTONE_TOOL_FILE "' analyze -m RoundFaxest -m nchsuw56xd --patch 64 --patch-levels 64,128,192 "
                          "--time 1 -q -o '" + out + "' 2>/dev/null";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  for (const char* name : {"ranking.csv", "ranking.png", "patches.csv", "spectra.csv", "spectra-RoundFaxest.png", "spectra-nchsuw56xd.png"})
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(out) / name)) << name;
  std::ifstream ranking(std::filesystem::path(out) / "ranking.csv");
  std::string line;
  int rows = 0;
  while (std::getline(ranking, line)) ++rows;
  EXPECT_EQ(rows, 3) << "a header and a row a method";
  std::ifstream patches(std::filesystem::path(out) / "patches.csv");
  rows = 0;
  while (std::getline(patches, line)) ++rows;
  EXPECT_EQ(rows, 1 + 2 * 3) << "a row a method and level";
}

}  // namespace
