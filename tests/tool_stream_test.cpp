// Pages streamed band by band: the dots equal those of the whole page held in memory for every
// banded method, every TIFF layout reads alike, JPEG inks come out the right way round, and
// the preview drawn a row at a time equals the one drawn from whole planes.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "page_sink.h"
#include "page_source.h"
#include "picture.h"
#include "runner.h"
#include "tables.h"
#include "test_support.h"

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

namespace {

using namespace halftone_tool;

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
  // Two-bit codes of four planes following every combination the table has.
  DotPlanes dots;
  dots.bits = 2;
  dots.pixels = kWidth;
  dots.rows = 5;
  dots.stride = 12;
  const std::vector<std::string> inks = {"Cyan", "Magenta", "Yellow", "Black"};
  for (std::size_t p = 0; p < 4; ++p) {
    std::vector<std::uint8_t> plane(dots.stride * 5, 0);
    for (int y = 0; y < 5; ++y)
      for (int x = 0; x < kWidth; ++x) {
        const unsigned code = (static_cast<unsigned>(x + y * kWidth) >> (2 * p)) & 3u;
        plane[static_cast<std::size_t>(y) * dots.stride + static_cast<std::size_t>(x / 4)] |= static_cast<std::uint8_t>(code << (6 - 2 * (x % 4)));
      }
    dots.planes.push_back(std::move(plane));
  }
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

}  // namespace
