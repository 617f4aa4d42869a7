// The halftone command as a user meets it: exit status and message on bad usage and bad files,
// and the files it writes on success.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "image_io.h"
#include "picture.h"
#include "runner.h"
#include "tables.h"
#include "test_support.h"
#include "tiff_io.h"

#if HALFTONE_HAVE_TIFF
#include <tiffio.h>
#endif

#ifndef _WIN32
#include <sys/wait.h>

namespace {

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
  Result r = Run("missing.png");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot open 'missing.png'"), std::string::npos) << r.err;

  std::ofstream(Path("notes.png")) << "not a picture at all";
  r = Run("notes.png");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("notes.png"), std::string::npos) << r.err;

  r = Run("--quiet -o no/such/folder/out.png");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("no/such/folder/out.png"), std::string::npos) << r.err;

  r = Run("-o out.gif");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("must end in"), std::string::npos) << r.err;
}

TEST_F(ToolCommand, HelpAndListSucceed) {
  EXPECT_EQ(Run("--help").status, 0);
  EXPECT_EQ(Run("--list").status, 0);
  EXPECT_EQ(Run("sheet --help").status, 0);
}

#if HALFTONE_HAVE_TIFF && HALFTONE_HAVE_PNG
// Every page's rows of a TIFF, as stored.
std::vector<std::vector<std::uint8_t>> TiffPages(const std::string& path) {
  std::vector<std::vector<std::uint8_t>> pages;
  TIFF* t = TIFFOpen(path.c_str(), "r");
  if (!t) return pages;
  do {
    std::uint32_t h = 0;
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize64(t))), page;
    for (std::uint32_t y = 0; y < h && TIFFReadScanline(t, line.data(), y, 0) >= 0; ++y) page.insert(page.end(), line.begin(), line.end());
    pages.push_back(std::move(page));
  } while (TIFFReadDirectory(t));
  TIFFClose(t);
  return pages;
}

// A CMYK page goes from file to files band by band, its dots those of the whole page held in
// memory; --no-preview and --preview-scale shape what is written, and a damaged page leaves
// no file behind.
TEST_F(ToolCommand, PageStreamsToTheDotsOfTheWholePage) {
  constexpr int kW = 45, kH = 23;
  TIFF* t = TIFFOpen(Path("page.tif").c_str(), "w");
  ASSERT_NE(t, nullptr);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, kW);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, kH);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 4);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 4);
  std::vector<std::uint8_t> line(kW * 4);
  for (int y = 0; y < kH; ++y) {
    for (int i = 0; i < kW * 4; ++i) line[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>((i * 7 + y * 19) % 256);
    ASSERT_GE(TIFFWriteScanline(t, line.data(), static_cast<std::uint32_t>(y), 0), 0);
  }
  TIFFClose(t);

  for (const char* name : {"sdiufiavs2", "CrisixOut", "Kaocosyx10"}) {
    SCOPED_TRACE(name);
    Result r = Run(std::string("page.tif -m ") + name + " --time 5 --band-rows 7 -o dots.tif --preview-scale 4");
    ASSERT_EQ(r.status, 0) << r.err;
    halftone_tool::Picture page;
    ASSERT_EQ(halftone_tool::ReadPicture(Path("page.tif"), page), "");
    halftone_method_info m{};
    ASSERT_TRUE(halftone_tool::FindMethod(name, m));
    std::string message;
    ASSERT_EQ(halftone_tool::PrepareTables(m.tables, "", message), 0) << message;
    halftone_tool::RunOptions options;
    options.levels = "0,85,170,255,";
    options.band_rows = 7;
    options.fixed_time = 5;
    halftone_tool::DotPlanes whole;
    ASSERT_EQ(halftone_tool::RunMethod(m, page.planes, options, whole), "");
    ASSERT_EQ(halftone_tool::WriteDotTiff(Path("whole.tif"), whole, page.names, ""), "");
    const auto streamed = TiffPages(Path("dots.tif"));
    EXPECT_EQ(streamed.size(), 4u);
    EXPECT_EQ(streamed, TiffPages(Path("whole.tif")));
    std::ifstream preview(Path("dots.png"), std::ios::binary);
    ASSERT_TRUE(preview.good());
    unsigned char ihdr[24] = {};
    preview.read(reinterpret_cast<char*>(ihdr), 24);
    EXPECT_EQ(ihdr[19], 12) << "45 wide at 1/4 is 12";
    EXPECT_EQ(ihdr[23], 6) << "23 high at 1/4 is 6";
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
#endif

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

}  // namespace
#endif
