// The halftone command as a user meets it: exit status and message on bad usage and bad files,
// and the files it writes on success.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "image_io.h"
#include "test_support.h"

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
TEST_F(ToolCommand, ColourPictureGivesFourDotPagesAndAPreview) {
  halftone_tool::RgbImage img(40, 30, halftone_tool::Rgb{200, 100, 50});
  ASSERT_EQ(halftone_tool::WriteRgb(Path("photo.png"), img), "");
  const Result r = Run("photo.png --time 7 --band-rows 8 -o dots.tif");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "") << "quiet when stderr is no terminal";
  TIFF* t = TIFFOpen(Path("dots.tif").c_str(), "r");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(TIFFNumberOfDirectories(t), 4);
  TIFFClose(t);
  std::ifstream preview(Path("dots.png"), std::ios::binary);
  EXPECT_TRUE(preview.good()) << "the preview goes beside the TIFF";
}
#endif

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
