// Set-up through the exports: host folder, tone-curve file, load status, reproducible seeding.
#include <gtest/gtest.h>

#include <fstream>

#include "frame/platform.h"
#include "halftone/halftone.h"
#include "test_support.h"

namespace {

using halftone_test::Flags;
using halftone_test::TempFolder;

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
