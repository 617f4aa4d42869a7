// Set-up: tone curves (built in and from the tone-curve file), the level-values list, and the
// host folder, load status and reproducible seeding through the exports.
#include "tone/tone.h"

#include <gtest/gtest.h>

#include <fstream>

#include "frame/band.h"
#include "frame/platform.h"
#include "halftone/halftone.h"
#include "test_support.h"

namespace halftone {
namespace {

using halftone_test::Flags;
using halftone_test::TempFolder;

void WriteFile(const std::filesystem::path& path, std::size_t size, std::uint8_t fill_base) {
  std::ofstream out(path, std::ios::binary);
  for (std::size_t i = 0; i < size; ++i) out.put(static_cast<char>(fill_base + i / 256));
}

TEST(ToneCurves, BuiltInCurvesExpandToTheirDesign) {
  // Anchors where each kind of run starts and ends, so a wrong expansion shows.
  halftone_test::ExpectCells<int>(BuiltInCurve(1), {{101, 0}, {102, 1}, {106, 9}, {107, 10}, {128, 31}, {224, 31}, {225, 30}});
  halftone_test::ExpectCells<int>(BuiltInCurve(3), {{232, 36}, {233, 34}, {247, 11}});
  halftone_test::ExpectCells<int>(BuiltInCurve(14), {{55, 0}, {125, 76}, {128, 80}, {254, 2}});
  EXPECT_EQ(BuiltInCurve(0), ToneCurve{});

  // Every built-in curve rises to its plateau, falls back and ends at 0 for paper white.
  for (int slot = 1; slot < kCurveSlots; ++slot) {
    const ToneCurve c = BuiltInCurve(slot);
    std::size_t peak = 0;
    for (std::size_t i = 0; i < c.size(); ++i)
      if (c[i] > c[peak]) peak = i;
    for (std::size_t i = 1; i <= peak; ++i) EXPECT_LE(c[i - 1], c[i]) << "slot " << slot << " at " << i;
    for (std::size_t i = peak + 1; i < c.size(); ++i) EXPECT_GE(c[i - 1], c[i]) << "slot " << slot << " at " << i;
    EXPECT_EQ(c[255], 0) << "slot " << slot;
    EXPECT_EQ(c[0], 0) << "slot " << slot;
  }
}

TEST(ToneCurves, FileReplacesOnlyWholeCurvesAndKeepsThemForGood) {
  TempFolder folder;
  const auto file = folder.path() / kToneCurveFileName;
  struct Case {
    std::size_t size;
    int slots_replaced;
  } cases[] = {{256, 1}, {511, 1}, {512, 2}, {3840, 15}, {5000, 15}, {100, 0}};
  for (const Case& c : cases) {
    ToneCurveSet curves;
    WriteFile(file, c.size, 200);
    ASSERT_EQ(LoadToneCurveFile(curves, folder.with_separator()), kOk) << c.size;
    for (int k = 0; k < kCurveSlots; ++k) {
      const auto& slot = curves.slots[static_cast<std::size_t>(k)];
      if (k < c.slots_replaced)
        EXPECT_EQ(slot[17], 200 + k) << "size " << c.size << " slot " << k;
      else
        EXPECT_EQ(slot, BuiltInCurve(k)) << "size " << c.size << " slot " << k;
    }
  }

  // Once loaded, a later missing file leaves the loaded curves in place.
  ToneCurveSet curves;
  WriteFile(file, 512, 9);
  ASSERT_EQ(LoadToneCurveFile(curves, folder.with_separator()), kOk);
  std::filesystem::remove(file);
  EXPECT_EQ(LoadToneCurveFile(curves, folder.with_separator()), kErrOpen);
  EXPECT_EQ(curves.slots[1][0], 10);
  // A folder where the file should be cannot be opened as a file.
  std::filesystem::create_directory(file);
  EXPECT_EQ(LoadToneCurveFile(curves, folder.with_separator()), kErrOpen);
}

TEST(LevelValues, EveryValueNeedsItsCommaAndKeepsEightBits) {
  LevelValues lv;
  auto parse = [&](const char* text) {
    lv.L.fill(99);
    ParseLevelValues(lv, text);
    return lv.L;
  };
  using L = std::array<std::uint8_t, kLevelCount>;
  EXPECT_EQ(parse("0,85,170,255,"), (L{0, 85, 170, 255, 0, 0, 0, 0, 0}));
  EXPECT_EQ(parse("0,85,170,255"), (L{0, 85, 170, 0, 0, 0, 0, 0, 0})) << "the last value lacks its comma";
  EXPECT_EQ(parse(""), L{});
  EXPECT_EQ(parse(nullptr), L{});
  EXPECT_EQ(parse("300,"), (L{44, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(parse("10,,20,"), (L{10, 0, 20, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(parse(" 7,-1,x,"), (L{7, 255, 0, 0, 0, 0, 0, 0, 0}));
  // Beyond the list's format: long tokens are cut to three characters, values past the ninth
  // are dropped, and nothing spills.
  EXPECT_EQ(parse("12345,1,2,3,4,5,6,7,8,9,10,"), (L{123, 1, 2, 3, 4, 5, 6, 7, 8}));
}

std::vector<std::uint8_t> Halftone(int mode) {
  Itsdiufiavs(mode, "0,85,170,255,");
  auto src = halftone_test::MakeBand(64, 8, 1, [](std::size_t x, std::size_t y, unsigned) { return (x * 4 + y * 7) % 256; });
  std::vector<std::uint8_t> dst(halftone_test::DotStride(64, 2) * 8);
  EXPECT_EQ(RoundFaxest(src.data(), dst.data(), 64, 8, Flags(1, 1)), 0);
  return dst;
}

TEST(Setup, HostFolderFindsTheToneCurveFileAndReportsLoads) {
  TempFolder folder;
  halftone_set_fixed_time(99);
  // Without a trailing separator: the library adds it.
  ASSERT_EQ(halftone_set_host_folder(folder.path().string().c_str()), 0);
  EXPECT_EQ(Itsdiufiavs(1, "0,85,170,255,"), 0) << "a missing file is silent";
  EXPECT_EQ(halftone_last_load_status(), HALFTONE_ERR_OPEN);
  const auto plain = Halftone(0);

  // A file whose curve 1 adds 200 to every error turns mode 1 much lighter than mode 0.
  {
    std::ofstream out(folder.path() / "ToneAry.ham", std::ios::binary);
    std::vector<char> bytes(512, 0);
    std::fill(bytes.begin() + 256, bytes.end(), static_cast<char>(200));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  const auto curved = Halftone(1);
  EXPECT_EQ(halftone_last_load_status(), 0);
  EXPECT_NE(curved, plain);
  EXPECT_EQ(Halftone(0), plain) << "mode 0 selects the zero file curve";
  EXPECT_EQ(Halftone(1), curved) << "same fixed time, same dots";

  EXPECT_EQ(halftone_set_host_folder(nullptr), 0);
  halftone_set_fixed_time(-1);
}

TEST(Setup, DefaultHostFolderIsTheProgramsFolder) {
  const std::string folder = halftone::platform::ExecutableFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_EQ(folder.back(), '/');
  EXPECT_EQ(halftone::platform::ExecutablePath().rfind(folder, 0), 0u);
}

}  // namespace
}  // namespace halftone
