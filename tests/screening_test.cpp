// The screening tables and the screens over them: loaders (formats, partial loads, hostile
// files), then the pattern-stack and threshold screens (hand-worked rows, tiling, counters).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "frame/engine.h"
#include "halftone/halftone.h"
#include "../tools/example_tables.h"
#include "screening/loaders.h"
#include "screening/screens.h"
#include "test_support.h"

namespace halftone {
namespace {

using halftone_test::TempFolder;

constexpr std::size_t kPixelOffset = 14 + 40 + 1024;

std::vector<std::uint8_t> FlatBitmap(std::uint8_t value, int width = 256, int height = 256) {
  return examples::BitmapFile(std::vector<std::uint8_t>(static_cast<std::size_t>(width * height), value), width,
                              height);
}

void SetLe32(std::vector<std::uint8_t>& f, std::size_t at, std::int32_t v) {
  for (int i = 0; i < 4; ++i) f[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(v) >> (8 * i));
}

class LoaderTest : public ::testing::Test {
 protected:
  void SetUp() override { e->host_folder_override = folder.with_separator(); }
  TempFolder folder;
  std::unique_ptr<Engine> e = std::make_unique<Engine>();
};

TEST_F(LoaderTest, BitmapRowsAreStoredBottomUp) {
  auto file = FlatBitmap(0);
  std::fill_n(file.begin() + kPixelOffset, 256, std::uint8_t{10});  // first stored row
  folder.Write("Moths/m.bmp", file);
  EXPECT_EQ(LoadBitmapFile(*e, "m.bmp", false), kOk);
  EXPECT_EQ(e->tables.bitmap[255][0], 10);
  EXPECT_EQ(e->tables.bitmap[255][255], 10);
  EXPECT_EQ(e->tables.bitmap[254][0], 0);
  EXPECT_EQ(e->tables.bitmap[0][0], 0);
}

TEST_F(LoaderTest, SmallBitmapOverwritesOnlyItsCorner) {
  e->tables.bitmap[0][4] = 99;
  e->tables.bitmap[2][0] = 98;
  folder.Write("Moths/s.bmp", FlatBitmap(7, 4, 2));
  EXPECT_EQ(LoadBitmapFile(*e, "s.bmp", false), kOk);
  EXPECT_EQ(e->tables.bitmap[0][3], 7);
  EXPECT_EQ(e->tables.bitmap[1][0], 7);
  EXPECT_EQ(e->tables.bitmap[0][4], 99);
  EXPECT_EQ(e->tables.bitmap[2][0], 98);
}

TEST_F(LoaderTest, BiasTruncatesTowardZero) {
  std::vector<std::uint8_t> ramp(256 * 256);
  for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<std::uint8_t>(i % 256);  // column c holds c
  folder.Write("Moths/r.bmp", examples::BitmapFile(ramp, 256, 256));
  ASSERT_EQ(LoadBitmapFile(*e, "r.bmp", true), kOk);
  const auto& bias = e->tables.bias[17];
  EXPECT_EQ(bias[0], -50);   // -127 * 0.4 = -50.8
  EXPECT_EQ(bias[124], -1);  // -3 * 0.4 = -1.2
  EXPECT_EQ(bias[125], 0);   // -2 * 0.4 = -0.8, not -1
  EXPECT_EQ(bias[127], 0);
  EXPECT_EQ(bias[130], 1);   // 3 * 0.4 = 1.2
  EXPECT_EQ(bias[255], 51);  // 128 * 0.4 = 51.2
}

TEST_F(LoaderTest, ShortBitmapKeepsRowsReadAndBias) {
  e->tables.bias[0][0] = 77;
  e->tables.bitmap[252][5] = 33;
  auto file = FlatBitmap(9);
  file.resize(kPixelOffset + 3 * 256 + 5);  // three rows and five pixels of the fourth
  folder.Write("Moths/t.bmp", file);
  EXPECT_EQ(LoadBitmapFile(*e, "t.bmp", true), kErrShortRead);
  EXPECT_EQ(e->tables.bitmap[255][0], 9);
  EXPECT_EQ(e->tables.bitmap[253][255], 9);
  EXPECT_EQ(e->tables.bitmap[252][4], 9);   // the part of the short row that arrived
  EXPECT_EQ(e->tables.bitmap[252][5], 33);
  EXPECT_EQ(e->tables.bias[0][0], 77);      // no bias from an incomplete bitmap
}

TEST_F(LoaderTest, MalformedBitmapsLeaveTheTable) {
  struct Case {
    const char* what;
    std::vector<std::uint8_t> bytes;
    int code;
  };
  auto with = [](std::size_t at, std::int32_t v) {
    auto f = FlatBitmap(1);
    SetLe32(f, at, v);
    return f;
  };
  auto prefix = [](std::size_t n) {
    auto f = FlatBitmap(1);
    f.resize(n);
    return f;
  };
  const Case cases[] = {
      {"width 257", with(18, 257), kErrMalformedFile},
      {"height 257", with(22, 257), kErrMalformedFile},
      {"negative width", with(18, -4), kErrMalformedFile},
      {"negative height", with(22, -1), kErrMalformedFile},
      {"absurd width", with(18, INT32_MAX), kErrMalformedFile},
      {"pixel offset past the end", with(10, 0x7FFFFFF0), kErrShortRead},
      {"offset beyond 2 GiB", with(10, static_cast<std::int32_t>(0xFFFFFFF0u)), kErrShortRead},
      {"header cut in the file header", prefix(10), kErrShortRead},
      {"header cut in the info header", prefix(53), kErrShortRead},
      {"empty file", {}, kErrShortRead},
  };
  for (const Case& c : cases) {
    e->tables.bitmap[255][0] = 42;
    folder.Write("Moths/bad.bmp", c.bytes);
    EXPECT_EQ(LoadBitmapFile(*e, "bad.bmp", true), c.code) << c.what;
    EXPECT_EQ(e->tables.bitmap[255][0], 42) << c.what;
    EXPECT_EQ(e->tables.bias[255][0], 0) << c.what;
  }
  std::filesystem::create_directories(folder.path() / "Moths/dir.bmp");
  EXPECT_EQ(LoadBitmapFile(*e, "dir.bmp", false), kErrOpen);
  EXPECT_EQ(LoadBitmapFile(*e, "missing.bmp", false), kErrOpen);
  EXPECT_EQ(LoadBitmapFile(*e, nullptr, false), kErrOpen);
}

std::vector<std::uint8_t> StackOfPatternIndex(int row_bytes, int rows) {
  std::vector<std::uint8_t> f;
  for (int k = 0; k < 256; ++k) f.insert(f.end(), static_cast<std::size_t>(row_bytes * rows), static_cast<std::uint8_t>(k));
  return f;
}

TEST_F(LoaderTest, PatternFileRunsFromLightestToDarkest) {
  const auto file = StackOfPatternIndex(2, 3);  // 16 x 3 pixels at 1 bit
  MemorySource source(file);
  ASSERT_EQ(DescribePatternStack(e->tables, PatternDepth::kMono, 16, 3), kOk);
  ASSERT_EQ(ReadPatternStack(e->tables, PatternDepth::kMono, 16, 3, source), kOk);
  EXPECT_EQ(e->tables.mono[255][0][0], 0);  // file pattern 0 is the level-255 slot
  EXPECT_EQ(e->tables.mono[0][2][1], 255);
  EXPECT_EQ(e->tables.mono[100][1][0], 155);
  EXPECT_EQ(e->tables.mono[100][1][2], 0);  // beyond the file's 2-byte rows
  EXPECT_EQ(e->tables.mono[100][3][0], 0);  // beyond its 3 rows
  EXPECT_EQ(e->tables.geometry.bytes_per_row, 2);
  EXPECT_EQ(e->tables.masks.head[3], 0xE0);
  EXPECT_EQ(e->tables.masks.tail[3], 0x1F);
}

TEST_F(LoaderTest, MissingPatternFileStillSetsGeometry) {
  EXPECT_EQ(LoadPatternFile(*e, PatternDepth::kMono, "none.pat", 128, 64), kErrOpen);
  EXPECT_EQ(e->tables.geometry.width, 128);
  EXPECT_EQ(e->tables.geometry.height, 64);
  EXPECT_EQ(e->tables.geometry.bytes_per_row, 16);
  EXPECT_EQ(LoadPatternFile(*e, PatternDepth::kDuo, "none.pat", 12, 5), kErrOpen);
  EXPECT_EQ(e->tables.geometry.bytes_per_row, 3);
  EXPECT_EQ(e->tables.masks.head[1], 0xC0);
  EXPECT_EQ(e->tables.masks.tail[2], 0x0F);
}

TEST_F(LoaderTest, DuoStackClearsLevel255) {
  const std::vector<std::uint8_t> file(256 * 256 * 64, 0xFF);
  MemorySource source(file);
  ASSERT_EQ(ReadPatternStack(e->tables, PatternDepth::kDuo, 256, 256, source), kOk);
  for (const auto& row : e->tables.duo[255])
    for (std::uint8_t byte : row) ASSERT_EQ(byte, 0);
  EXPECT_EQ(e->tables.duo[254][255][63], 0xFF);
  EXPECT_EQ(e->tables.duo[0][0][0], 0xFF);
}

TEST_F(LoaderTest, NarrowDuoStackClearsLeadingBytesOfTheSlot) {
  // 16 x 8 pixels: 4 bytes a row, so the clear covers 4 * 8 = 32 bytes from the slot start,
  // which is half of stored row 0; row 1 keeps its pattern.
  const std::vector<std::uint8_t> file(256 * 8 * 4, 0xFF);
  MemorySource source(file);
  ASSERT_EQ(ReadPatternStack(e->tables, PatternDepth::kDuo, 16, 8, source), kOk);
  EXPECT_EQ(e->tables.duo[255][0][3], 0);
  EXPECT_EQ(e->tables.duo[255][1][0], 0xFF);
  EXPECT_EQ(e->tables.duo[254][0][0], 0xFF);
}

TEST_F(LoaderTest, ShortPatternFileKeepsWhatWasRead) {
  auto bytes = StackOfPatternIndex(2, 4);
  bytes.resize(2 * 4 + 2 * 2 + 1);  // pattern 0, two rows and half a row of pattern 1
  folder.Write("Moths/short.pat", bytes);
  e->tables.mono[254][2][1] = 0x5A;
  e->tables.mono[253][0][0] = 0x5A;
  EXPECT_EQ(LoadPatternFile(*e, PatternDepth::kMono, "short.pat", 16, 4), kErrShortRead);
  EXPECT_EQ(e->tables.mono[255][3][1], 0);
  EXPECT_EQ(e->tables.mono[254][1][1], 1);
  EXPECT_EQ(e->tables.mono[254][2][0], 1);     // the part of the short row that arrived
  EXPECT_EQ(e->tables.mono[254][2][1], 0x5A);
  EXPECT_EQ(e->tables.mono[253][0][0], 0x5A);
}

TEST_F(LoaderTest, PatternSizesOutsideTheFormatChangeNothing) {
  folder.Write("Moths/p.pat", StackOfPatternIndex(32, 256));
  const std::pair<int, int> bad_mono[] = {{12, 8}, {264, 8}, {0, 8}, {-8, 8}, {256, 0}, {256, 257}, {256, -1}};
  for (auto [a, b] : bad_mono) {
    EXPECT_EQ(LoadPatternFile(*e, PatternDepth::kMono, "p.pat", a, b), kErrMalformedFile) << a << " x " << b;
    EXPECT_EQ(e->tables.geometry.width, 256);
    EXPECT_EQ(e->tables.geometry.bytes_per_row, 32);
    EXPECT_EQ(e->tables.masks.tail[0], 0);  // never written
    EXPECT_EQ(e->tables.mono[0][0][0], 0);
  }
  EXPECT_EQ(LoadPatternFile(*e, PatternDepth::kDuo, "p.pat", 6, 8), kErrMalformedFile);
  EXPECT_EQ(LoadPatternFile(*e, PatternDepth::kDuo, "p.pat", 260, 8), kErrMalformedFile);
}

TEST_F(LoaderTest, TextTableFillsColumnByColumn) {
  std::string text;
  for (int n = 0; n < 257; ++n) text += std::to_string(n) + (n % 16 == 15 ? "\r\n" : " ");
  folder.Write("Moths/t.txt", text + "\r\n");
  ASSERT_EQ(LoadLayerFile(*e, "t.txt"), kOk);
  const auto& layers = e->tables.layers;
  EXPECT_EQ(layers[0][1][0], 1);    // number 1: row 1, column 0
  EXPECT_EQ(layers[0][15][0], 15);
  EXPECT_EQ(layers[0][0][1], 16);   // number 16 starts column 1
  EXPECT_EQ(layers[0][3][2], 35);
  EXPECT_EQ(layers[0][15][15], 255);
  EXPECT_EQ(layers[1][0][0], 256);
  EXPECT_EQ(layers[1][1][0], 0);
}

// The first numbers of a layer file's first column, as loaded.
std::vector<int> FirstColumn(const Engine& e, int n) {
  std::vector<int> column;
  for (int r = 0; r < n; ++r) column.push_back(e.tables.layers[0][static_cast<std::size_t>(r)][0]);
  return column;
}

TEST_F(LoaderTest, TextTableNeedsASeparatorAndOneMoreByte) {
  const std::pair<const char*, std::vector<int>> files[] = {
      {"1 2 3\r\n", {1, 2, 3}},
      {"1 2 3", {1, 2, 0}},     // clears first, then stores 1 and 2
      {"1 2 3\r", {1, 2, 0}},  // the carriage return is the unread last byte
  };
  for (const auto& [text, column] : files) {
    folder.Write("Moths/a.txt", std::string(text));
    ASSERT_EQ(LoadLayerFile(*e, "a.txt"), kOk);
    EXPECT_EQ(FirstColumn(*e, 3), column) << text;
  }
}

TEST_F(LoaderTest, TextTableTokensReadLikeAtoiKeepingLow16Bits) {
  // Tokens: "-3", "\n70000" (line feed kept, skipped by the conversion), "12ab", "\n" (a lone
  // line feed is a token and stores 0), "99999999999" (saturates at 2^31 - 1 -> 0xFFFF),
  // "-99999999999" (saturates at -2^31 -> 0x0000), "+7".
  folder.Write("Moths/v.txt", std::string("-3\r\n70000 12ab\r\n\r99999999999 -99999999999 +7 \r\n"));
  ASSERT_EQ(LoadLayerFile(*e, "v.txt"), kOk);
  EXPECT_EQ(FirstColumn(*e, 7), (std::vector<int>{-3, 70000 - 65536, 12, 0, -1, 0, 7}));
}

TEST_F(LoaderTest, TextTablesBeyondTheFormatAreRefusedUntouched) {
  e->tables.layers[3][4][5] = 345;
  std::string full;
  for (std::size_t n = 0; n < kLayerNumbers; ++n) full += "1 ";
  folder.Write("Moths/full.txt", full + "\r\n");
  ASSERT_EQ(LoadLayerFile(*e, "full.txt"), kOk);  // exactly 65,536 numbers fit
  EXPECT_EQ(e->tables.layers[255][15][15], 1);
  e->tables.layers[3][4][5] = 345;

  folder.Write("Moths/over.txt", full + "2 \r\n");
  EXPECT_EQ(LoadLayerFile(*e, "over.txt"), kErrMalformedFile);
  folder.Write("Moths/long.txt", std::string(20, '7') + " \r\n");
  EXPECT_EQ(LoadLayerFile(*e, "long.txt"), kErrMalformedFile);
  folder.Write("Moths/endless.txt", std::string(1000, '7'));
  EXPECT_EQ(LoadLayerFile(*e, "endless.txt"), kErrMalformedFile);
  folder.Write("Moths/empty.txt", std::string());
  EXPECT_EQ(LoadLayerFile(*e, "empty.txt"), kErrMalformedFile);
  std::filesystem::create_directories(folder.path() / "Moths/dir.txt");
  EXPECT_EQ(LoadLayerFile(*e, "dir.txt"), kErrOpen);
  EXPECT_EQ(LoadLayerFile(*e, "missing.txt"), kErrOpen);
  EXPECT_EQ(e->tables.layers[3][4][5], 345);

  folder.Write("Moths/ok19.txt", std::string(19, '1') + " \r\n");
  EXPECT_EQ(LoadLayerFile(*e, "ok19.txt"), kOk);
}

// Through the exported names: the hidden codes reach halftone_last_load_status.
TEST(LoaderExports, ReturnCodesAndRecordedStatus) {
  TempFolder folder;
  ASSERT_EQ(halftone_set_host_folder(folder.with_separator().c_str()), 0);
  EXPECT_EQ(PuaningFa("missing.bmp", 0, 0), 0);
  EXPECT_EQ(halftone_last_load_status(), HALFTONE_ERR_OPEN);
  folder.Write("Moths/short.bmp", std::vector<std::uint8_t>(30, 0));
  EXPECT_EQ(PuaningFa13("short.bmp", 0, 0), 0);
  EXPECT_EQ(halftone_last_load_status(), HALFTONE_ERR_SHORT_READ);
  EXPECT_EQ(NiceMents("missing.txt", 0, 0), 0);
  EXPECT_EQ(halftone_last_load_status(), HALFTONE_ERR_OPEN);
  EXPECT_EQ(KaiDuaning("missing.pat", 256, 256), HALFTONE_ERR_OPEN);
  EXPECT_EQ(NingJing("missing.pat", 257, 256), HALFTONE_ERR_BAD_FILE);
  folder.Write("Moths/s.pat", std::vector<std::uint8_t>(100, 0));
  EXPECT_EQ(NingJing("s.pat", 256, 256), HALFTONE_ERR_SHORT_READ);
  EXPECT_EQ(SincesKai(), 0);
  EXPECT_EQ(halftone_last_load_status(), 0);
  EXPECT_EQ(PuaningFaAM("anything", 1, 2), 0);
  EXPECT_EQ(halftone_last_load_status(), 0);  // changes nothing, status included
  halftone_set_host_folder(nullptr);
}

// The engine keeps its tables in zero-filled pages and sets the defaults that are not zero
// itself: what it starts with must equal value-initialised tables, byte for byte, and no two
// engines share them.
TEST(ScreeningTablesAtRest, AnEngineStartsWithTheDefaultTablesOfItsOwn) {
  const auto expected = std::make_unique<ScreeningTables>();
  auto a = std::make_unique<Engine>();
  auto b = std::make_unique<Engine>();
  EXPECT_EQ(std::memcmp(&a->tables, expected.get(), sizeof(ScreeningTables)), 0);
  EXPECT_EQ(a->tables.geometry.width, 256);
  a->tables.duo[255][255][63] = 0xFF;
  a->tables.layers_double[3][4][5] = 1.5;
  EXPECT_EQ(std::memcmp(&b->tables, expected.get(), sizeof(ScreeningTables)), 0);
}

using halftone_test::Flags;

class PatternScreenTest : public ::testing::Test {
 protected:
  // A 1-bit stack described as a x b pixels; the stack itself is filled by each test.
  void DescribeMono(int a, int b) { ASSERT_EQ(DescribePatternStack(e->tables, PatternDepth::kMono, a, b), kOk); }
  std::vector<std::uint8_t> Run(PatternScreen screen, const std::vector<std::uint8_t>& row, unsigned bits = 1) {
    std::vector<std::uint8_t> out(DotStride(row.size(), bits), 0xEE);
    std::vector<std::uint8_t> in(RasterStride(row.size()));
    std::copy(row.begin(), row.end(), in.begin());
    EXPECT_EQ(ScreenWithPatterns(*e, screen, in.data(), out.data(), row.size(), 1, HalftoneFlags{Flags(1, 0)}), kOk);
    return out;
  }
  std::unique_ptr<Engine> e = std::make_unique<Engine>();
};

TEST_F(PatternScreenTest, OneLevelReproducesItsPatternTiled) {
  DescribeMono(16, 4);
  e->tables.mono[100][0][0] = 0xA5;
  e->tables.mono[100][0][1] = 0x3C;
  const auto out = Run(PatternScreen::kMonoLoadedGeometry, std::vector<std::uint8_t>(40, 100));
  const std::vector<std::uint8_t> expected = {0xA5, 0x3C, 0xA5, 0x3C, 0xA5, 0, 0, 0};
  EXPECT_EQ(out, expected);  // 40 pixels fill 5 bytes; the padding up to 8 bytes is cleared
}

TEST_F(PatternScreenTest, DifferingLastPixelStaysEmpty) {
  DescribeMono(256, 256);
  e->tables.mono[100][0].fill(0xFF);
  e->tables.mono[0][0].fill(0xFF);
  std::vector<std::uint8_t> row(16, 100);
  row[15] = 0;
  EXPECT_EQ(Run(PatternScreen::kMonoFixed, row)[1], 0xFE);
  row[15] = 100;
  EXPECT_EQ(Run(PatternScreen::kMonoFixed, row)[1], 0xFF);
  EXPECT_EQ(Run(PatternScreen::kMonoFixed, {100})[0], 0);  // a one-pixel row prints nothing
}

TEST_F(PatternScreenTest, RunsShareABoundaryByteThroughTheCarry) {
  e->tables.masks = {{0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE}, {0xFF, 0x7F, 0x3F, 0x1F, 0x0F, 0x07, 0x03, 0x01}};
  e->tables.mono[10][0].fill(0xFF);  // level 10 inks everything, level 20 nothing
  // Runs: pixels 0-2 level 10 (tail E0 kept as carry), 3-4 level 20 (merged: E0 | 00, cut at
  // 5 pixels -> E0), 5-11 level 10 (head E0 | 07 = E7, then tail F0 for pixels 8-11).
  const std::vector<std::uint8_t> row = {10, 10, 10, 20, 20, 10, 10, 10, 10, 10, 10, 10};
  const auto out = Run(PatternScreen::kMonoFixed, row);
  EXPECT_EQ(out[0], 0xE7);
  EXPECT_EQ(out[1], 0xF0);
}

TEST_F(PatternScreenTest, TwoBitPatternAndBlankTopLevel) {
  const std::vector<std::uint8_t> file(256 * 256 * 64, 0x1B);  // codes 0 1 2 3 repeated
  MemorySource source(file);
  ASSERT_EQ(DescribePatternStack(e->tables, PatternDepth::kDuo, 256, 256), kOk);
  ASSERT_EQ(ReadPatternStack(e->tables, PatternDepth::kDuo, 256, 256, source), kOk);
  auto out = Run(PatternScreen::kDuoFixed, std::vector<std::uint8_t>(9, 7), 2);
  EXPECT_EQ(out[0], 0x1B);
  EXPECT_EQ(out[1], 0x1B);
  EXPECT_EQ(out[2], 0x00);  // pixel 8 is code 0 in the pattern
  out = Run(PatternScreen::kDuoFixed, std::vector<std::uint8_t>(9, 255), 2);
  EXPECT_EQ(out[0] | out[1] | out[2], 0);
  // Head and tail masks of 2-bit pixels: levels 7 (pixels 0-2), 255 (3-5), 7 (6-8).
  out = Run(PatternScreen::kDuoFixed, {7, 7, 7, 255, 255, 255, 7, 7, 7}, 2);
  EXPECT_EQ(out[0], 0x18);  // 00 01 10 | 00
  EXPECT_EQ(out[1], 0x0B);  // 00 00 | 10 11
  EXPECT_EQ(out[2], 0x00);
}

// The fast screens read a row-first copy of the stack: a load after a screen must reach the
// next screen.
TEST_F(PatternScreenTest, ALoadBetweenBandsReachesTheNextBand) {
  for (const std::uint8_t fill : {0xA5, 0x3C}) {
    const std::vector<std::uint8_t> file(256 * 1 * 2, fill);  // 16 x 1 pixel patterns, 2 bytes a row
    MemorySource source(file);
    DescribeMono(16, 1);
    ASSERT_EQ(ReadPatternStack(e->tables, PatternDepth::kMono, 16, 1, source), kOk);
    const auto out = Run(PatternScreen::kMonoLoadedGeometry, std::vector<std::uint8_t>(32, 9));
    EXPECT_EQ(out, std::vector<std::uint8_t>(4, fill));
  }
}

TEST_F(PatternScreenTest, PatternRowsFollowTheBandRowAndRestartEachBand) {
  DescribeMono(8, 2);
  e->tables.mono[5][0][0] = 0x81;
  e->tables.mono[5][1][0] = 0x18;
  std::vector<std::uint8_t> in(8 * 3, 5), out(4 * 3);  // 8-byte raster rows, 4-byte dot rows
  ASSERT_EQ(ScreenWithPatterns(*e, PatternScreen::kMonoLoadedGeometry, in.data(), out.data(), 8, 3,
                               HalftoneFlags{Flags(1, 0)}),
            kOk);
  EXPECT_EQ(out[0], 0x81);
  EXPECT_EQ(out[4], 0x18);
  EXPECT_EQ(out[8], 0x81);  // pattern height 2: row 2 uses pattern row 0
}

// Every flushed pixel equals its level's pattern pixel at (x mod W, y mod H), across runs of
// all lengths and pattern wraps; only a differing last pixel is left empty.
TEST_F(PatternScreenTest, FlushedPixelsMatchThePatternEverywhere) {
  std::mt19937 rng(5);
  for (auto& slot : e->tables.mono)
    for (auto& row : slot)
      for (auto& byte : row) byte = static_cast<std::uint8_t>(rng());
  DescribeMono(24, 256);  // a width that is no power of two
  const std::size_t w = 611, h = 3;
  std::vector<std::uint8_t> in(RasterStride(w) * h), out(DotStride(w, 1) * h);
  for (std::size_t i = 0; i < in.size();) {
    const auto level = static_cast<std::uint8_t>(rng() % 4);
    for (std::size_t n = rng() % 20 + 1; n-- > 0 && i < in.size();) in[i++] = level;
  }
  for (PatternScreen screen : {PatternScreen::kMonoLoadedGeometry, PatternScreen::kMonoFixed}) {
    const std::size_t width = screen == PatternScreen::kMonoFixed ? 256 : 24;
    ASSERT_EQ(ScreenWithPatterns(*e, screen, in.data(), out.data(), w, h, HalftoneFlags{Flags(1, 0)}), kOk);
    for (std::size_t y = 0; y < h; ++y) {
      const std::uint8_t* s = &in[y * RasterStride(w)];
      const std::uint8_t* d = &out[y * DotStride(w, 1)];
      for (std::size_t x = 0; x < w; ++x) {
        const bool got = (d[x / 8] >> (7 - x % 8)) & 1;
        if (x == w - 1 && s[x] != s[x - 1]) {
          EXPECT_FALSE(got);
          continue;
        }
        const std::size_t q = x % width;
        const bool want = (e->tables.mono[s[x]][y][q / 8] >> (7 - q % 8)) & 1;
        ASSERT_EQ(got, want) << "x " << x << " y " << y;
      }
    }
  }
}

TEST_F(PatternScreenTest, AfterATwoBitLoadTheLoadedGeometryScreenRunsOnIntoTheNextRow) {
  // A 2-bit description of 256 pixels makes rows of 64 bytes; the 1-bit screen then copies 64
  // bytes of its 32-byte rows, running on into the stored row below.
  ASSERT_EQ(DescribePatternStack(e->tables, PatternDepth::kDuo, 256, 256), kOk);
  e->tables.mono[5][1].fill(0xFF);
  const auto out = Run(PatternScreen::kMonoLoadedGeometry, std::vector<std::uint8_t>(512, 5));
  EXPECT_EQ(out[31], 0x00);
  EXPECT_EQ(out[32], 0xFF);
  EXPECT_EQ(out[63], 0xFF);
}

class ThresholdScreenTest : public ::testing::Test {
 protected:
  std::vector<std::uint8_t> Screen(ThresholdScreen s, std::vector<std::uint8_t> in, std::size_t w, std::size_t h,
                                   unsigned planes, int* rc = nullptr) {
    std::vector<std::uint8_t> out(DotStride(w, 1) * h * planes, 0xEE);
    in.resize(RasterStride(w) * h * planes);
    const int r = ScreenWithThresholds(*e, s, in.data(), out.data(), w, h, HalftoneFlags{Flags(planes, 0)});
    if (rc) *rc = r;
    return out;
  }
  static bool Dot(const std::vector<std::uint8_t>& out, std::size_t offset, std::size_t x) {
    return (out[offset + x / 8] >> (7 - x % 8)) & 1;
  }
  std::unique_ptr<Engine> e = std::make_unique<Engine>();
};

TEST_F(ThresholdScreenTest, BitmapShiftsSixteenPixelsPerPlane) {
  e->tables.bitmap[16][16] = 200;
  e->tables.bitmap[0][0] = 99;
  // Two planes, one row of 8: plane 0 reads row 0 from column 0, plane 1 row 16 from column 16.
  std::vector<std::uint8_t> in(16, 100);
  in[1] = 99;  // plane 0, x = 1 reads bitmap[0][1] = 0
  in[8 + 1] = 0;
  const auto out = Screen(ThresholdScreen::kBitmap, in, 8, 1, 2);
  EXPECT_FALSE(Dot(out, 0, 0));  // 100 <= 99 fails
  EXPECT_FALSE(Dot(out, 0, 1));  // 99 <= 0 fails
  EXPECT_TRUE(Dot(out, 4, 0));   // 100 <= 200
  EXPECT_TRUE(Dot(out, 4, 1));   // 0 <= 0: the test includes equality
  EXPECT_FALSE(Dot(out, 4, 2));
}

TEST_F(ThresholdScreenTest, BayerSkipsItsZeroCellAndSpreadsMidGrey) {
  BuildBayerMatrix(e->tables);
  auto out = Screen(ThresholdScreen::kBayer, std::vector<std::uint8_t>(16 * 16, 0), 16, 16, 1);
  EXPECT_EQ(halftone_test::CountBits(out), 255u);
  EXPECT_FALSE(Dot(out, 0, 0));  // the cell holding 0
  out = Screen(ThresholdScreen::kBayer, std::vector<std::uint8_t>(16 * 16, 128), 16, 16, 1);
  EXPECT_EQ(halftone_test::CountBits(out), 127u);  // cells above 128
  EXPECT_FALSE(Dot(out, 0, 1));       // 128 < 128 fails
  EXPECT_TRUE(Dot(out, 0, 3));        // 128 < 160
  out = Screen(ThresholdScreen::kBayer, std::vector<std::uint8_t>(16 * 16, 255), 16, 16, 1);
  EXPECT_EQ(halftone_test::CountBits(out), 0u);
}

TEST_F(ThresholdScreenTest, ClusteredScreenLevelsAndRowCounters) {
  auto out = Screen(ThresholdScreen::kClusteredAm, std::vector<std::uint8_t>(2 * 16 * 16, 1), 16, 16, 2);
  // Level 1 prints where 1 < 2M - 1, i.e. M >= 2: all cells but the two holding 1 (row 4,
  // column 3 and row 12, column 11), on each plane.
  EXPECT_EQ(halftone_test::CountBits(out), 2u * 254u);
  EXPECT_FALSE(Dot(out, (4 * 2) * 4, 3));  // row y of plane 0 at (y * 2 planes) * 4 bytes
  EXPECT_FALSE(Dot(out, (12 * 2) * 4, 11));
  out = Screen(ThresholdScreen::kClusteredAm, std::vector<std::uint8_t>(16 * 16, 255), 16, 16, 1);
  EXPECT_EQ(halftone_test::CountBits(out), 0u);
  out = Screen(ThresholdScreen::kClusteredAm, std::vector<std::uint8_t>(16 * 16, 0), 16, 16, 1);
  EXPECT_EQ(halftone_test::CountBits(out), 256u);
  EXPECT_EQ(e->tables.plane_row_counters[0], 48u);
  EXPECT_EQ(e->tables.plane_row_counters[1], 16u);

  int rc = 0;
  out = Screen(ThresholdScreen::kClusteredAm, std::vector<std::uint8_t>(13 * 4, 0), 4, 1, 13, &rc);
  EXPECT_EQ(rc, kErrOutOfContract);
  for (std::uint8_t byte : out) EXPECT_EQ(byte, 0xEE);  // refused untouched
  EXPECT_EQ(e->tables.plane_row_counters[0], 48u);
}

class DispersedJobTest : public ThresholdScreenTest {
 protected:
  int Band(std::vector<std::uint8_t>& in, std::vector<std::uint8_t>& out, std::size_t w, std::size_t h,
           unsigned planes, unsigned phase) {
    in.resize(RasterStride(w) * h * planes);
    out.assign(DotStride(w, 1) * h * planes, 0xEE);
    return ScreenDispersedAmJob(*e, in.data(), out.data(), w, h, HalftoneFlags{Flags(planes, phase)});
  }
};

TEST_F(DispersedJobTest, ThresholdHoldsInBothScanDirections) {
  // Matrix row 1, column 3 holds 20 (threshold 39) and row 0, column 1 holds 7 (threshold 13).
  std::vector<std::uint8_t> in(8 * 2, 200), out;
  in[1] = 12;
  in[8 + 3] = 38;
  in[8 + 4] = 39;  // row 1, column 4 holds 124: 39 < 247 prints
  in[8 + 5] = 12;  // row 1, column 5 holds 13: 12 < 25 prints
  in[8 + 1] = 67;  // row 1, column 1 holds 34: 67 < 67 fails
  in[8 + 2] = 229; // row 1, column 2 holds 115: 229 < 229 fails
  ASSERT_EQ(Band(in, out, 8, 2, 1, kPhaseStart), kOk);
  EXPECT_EQ(out[0], 0x40);                // only x = 1 on row 0
  EXPECT_EQ(out[4], 0x10 | 0x08 | 0x04);  // x = 3, 4, 5 on the right-to-left row
}

TEST_F(DispersedJobTest, RowZeroTakesTheFirstCarryEntriesOnce) {
  std::vector<std::uint8_t> in, out;
  ASSERT_EQ(Band(in, out, 4, 1, 2, kPhaseStart), kOk);
  // Another routine of the job left a carry of -10 at entry 0. Pixel (0, 0) holds 64 in the
  // matrix (threshold 127): 130 alone does not print, 130 - 10 does, on plane 0 only.
  e->rows.carry_all()[0] = -10;
  in.assign(8, 130);
  ASSERT_EQ(Band(in, out, 4, 1, 2, 0), kOk);
  EXPECT_EQ(out[0], 0x80);
  EXPECT_EQ(out[4], 0x00);
  EXPECT_EQ(e->rows.carry_all()[0], 0);
}

TEST_F(DispersedJobTest, RefusesMorePlanesThanItsCountersAndCountsRowsPerPlane) {
  std::vector<std::uint8_t> in, out;
  EXPECT_EQ(Band(in, out, 4, 1, 13, kPhaseStart), kErrOutOfContract);
  EXPECT_EQ(out[0], 0xEE);
  ASSERT_EQ(Band(in, out, 4, 2, 2, kPhaseStart), kOk);
  EXPECT_EQ(Band(in, out, 4, 3, 2, kPhaseEnd), kOk);
  EXPECT_EQ(e->tables.plane_row_counters[1], 5u);
}

}  // namespace
}  // namespace halftone
