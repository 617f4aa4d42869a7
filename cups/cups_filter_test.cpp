// rastertohalftone with real CUPS parts: a PDF made here goes through cupsfilter with the
// generated PPD (pdftopdf, gstoraster, rastertohalftone), and every dot plane of every page must
// equal the library's own dots for the continuous-tone page gstoraster gave. Then the options,
// bad options, broken rasters and a cancelled job, straight to the filter.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <cups/raster.h>

#include "filter_options.h"
#include "page_source.h"
#include "picture.h"
#include "runner.h"
#include "tables.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

struct RasterPage {
  cups_page_header2_t header{};
  std::vector<std::uint8_t> data;  // every row as the raster holds them
};

std::vector<RasterPage> ReadRaster(const std::string& path) {
  std::vector<RasterPage> pages;
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return pages;
  cups_raster_t* r = cupsRasterOpen(fd, CUPS_RASTER_READ);
  RasterPage page;
  while (r && cupsRasterReadHeader2(r, &page.header)) {
    const std::size_t rows = page.header.cupsHeight * (page.header.cupsColorOrder == CUPS_ORDER_PLANAR ? page.header.cupsNumColors : 1);
    page.data.resize(rows * page.header.cupsBytesPerLine);
    if (cupsRasterReadPixels(r, page.data.data(), static_cast<unsigned>(page.data.size())) != page.data.size()) break;
    pages.push_back(page);
  }
  if (r) cupsRasterClose(r);
  close(fd);
  return pages;
}

struct Outcome {
  int status = -1;
  std::string err;
};

bool Have(const char* program) { return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0; }

class CupsFilter : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Have("cupsfilter") || !Have("gs") || !fs::exists("/usr/lib/cups/filter/gstoraster")) {
      // CI installs them: there a missing part is a failure, not a reason to skip.
      if (std::getenv("HALFTONE_CI")) FAIL() << "CUPS, cups-filters or ghostscript missing in CI";
      GTEST_SKIP() << "CUPS is missing here (install cups, cups-filters and ghostscript): the filter is not tried";
    }
    // A ServerBin of CUPS's own filters and ours, so nothing is installed system-wide.
    fs::create_directories(dir_.path() / "serverbin/filter");
    for (const auto& f : fs::directory_iterator("/usr/lib/cups/filter"))
      if (f.path().filename() != "rastertohalftone")  // an installed one is not the one under test
        fs::create_symlink(f.path(), dir_.path() / "serverbin/filter" / f.path().filename());
    fs::create_symlink(HALFTONE_FILTER_FILE, dir_.path() / "serverbin/filter/rastertohalftone");
    dir_.Write("cups-files.conf", "ServerBin " + Path("serverbin") + "\nDataDir /usr/share/cups\n");
    // Two pages: grey steps, then colour patches and a ramp.
    dir_.Write("doc.ps",
               "%!PS\n"
               "0 1 9 { /i exch def i 0.1 mul setgray 50 i 70 mul add 100 60 600 rectfill } for showpage\n"
               "1 0 0 setrgbcolor 50 450 200 200 rectfill 0 1 0 setrgbcolor 300 450 200 200 rectfill\n"
               "0 0 1 setrgbcolor 50 200 200 200 rectfill 0.2 0.5 0.8 setrgbcolor 300 200 200 200 rectfill\n"
               "0 1 99 { /i exch def 1 i 0.01 mul sub 0.3 i 0.005 mul setrgbcolor 50 i 4 mul add 50 4 100 rectfill } for showpage\n");
    ASSERT_EQ(Shell("gs -q -dSAFER -sDEVICE=pdfwrite -o doc.pdf doc.ps"), 0) << "ghostscript writes the PDF";
  }

  std::string Path(const std::string& name) const { return (dir_.path() / name).string(); }
  int Shell(const std::string& cmd) {
    const int raw = std::system(("cd '" + dir_.path().string() + "' && " + cmd).c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  // The chain up to `type` (application/vnd.cups-raster: up to gstoraster; printer/foo: through
  // the filter), at 75 dpi to keep the pages small.
  int Chain(const std::string& options, const std::string& type, const std::string& out) {
    return Shell("cupsfilter -e -c cups-files.conf -p '" HALFTONE_PPD_FILE "' -m " + type +
                 " -o Resolution=150dpi " + options + " doc.pdf > " + out + " 2> chain.log");
  }
  // The filter alone on a raster file, as CUPS calls it.
  Outcome Filter(const std::string& options, const std::string& in, const std::string& out, const std::string& env = "") {
    Outcome r;
    r.status = Shell(env + " '" HALFTONE_FILTER_FILE "' 7 user title 1 '" + options + "' " + in + " > " + out + " 2> filter.log");
    std::ifstream log(Path("filter.log"));
    std::stringstream ss;
    ss << log.rdbuf();
    r.err = ss.str();
    return r;
  }

  // The library's dots for each continuous-tone page, held whole, against the filter's pages.
  void ExpectLibraryDots(const std::string& contone, const std::string& dots, const std::string& options_text) {
    halftone_cups::FilterOptions options;
    ASSERT_EQ(halftone_cups::ParseFilterOptions(options_text.c_str(), nullptr, options), "");
    std::string message;
    ASSERT_EQ(halftone_tool::PrepareTables(options.method.tables, options.tables, message), 0) << message;
    const auto in = ReadRaster(Path(contone)), out = ReadRaster(Path(dots));
    ASSERT_FALSE(in.empty());
    ASSERT_EQ(out.size(), in.size()) << "a dot page for every page";
    for (std::size_t n = 0; n < in.size(); ++n) {
      SCOPED_TRACE("page " + std::to_string(n + 1));
      const auto& h = in[n].header;
      const auto& d = out[n].header;
      // What the raster's colours ask of the ink planes.
      using halftone_tool::SampleKind;
      const bool rgb = h.cupsColorSpace == CUPS_CSPACE_RGB || h.cupsColorSpace == CUPS_CSPACE_SRGB;
      const bool white = h.cupsColorSpace == CUPS_CSPACE_W || h.cupsColorSpace == CUPS_CSPACE_SW;
      const SampleKind kind = rgb ? SampleKind::kRgb : white ? SampleKind::kGrey
                            : h.cupsColorSpace == CUPS_CSPACE_CMYK ? SampleKind::kCmyk : SampleKind::kGreyInverted;
      const int colours = rgb ? 3 : kind == SampleKind::kCmyk ? 4 : 1;
      const bool colour = colours > 1;
      EXPECT_EQ(d.cupsColorSpace, colour ? CUPS_CSPACE_CMYK : CUPS_CSPACE_K);
      EXPECT_EQ(d.cupsColorOrder, CUPS_ORDER_PLANAR);
      EXPECT_EQ(d.cupsBitsPerColor, static_cast<unsigned>(options.method.output_bits));
      EXPECT_EQ(d.cupsNumColors, colour ? 4u : 1u);
      ASSERT_EQ(d.cupsWidth, h.cupsWidth);
      ASSERT_EQ(d.cupsHeight, h.cupsHeight);
      const int planes = colour ? 4 : 1;
      halftone_tool::Picture page;
      for (int p = 0; p < planes; ++p) {
        halftone_tool::GrayImage plane;
        plane.width = static_cast<int>(h.cupsWidth);
        plane.height = static_cast<int>(h.cupsHeight);
        plane.pixels.resize(static_cast<std::size_t>(plane.width) * static_cast<std::size_t>(plane.height));
        page.planes.push_back(std::move(plane));
      }
      std::vector<std::uint8_t> split(static_cast<std::size_t>(planes) * h.cupsWidth), chunky(h.cupsBytesPerLine);
      for (unsigned y = 0; y < h.cupsHeight; ++y) {
        const std::uint8_t* row = &in[n].data[y * h.cupsBytesPerLine];
        if (h.cupsColorOrder == CUPS_ORDER_BANDED) {  // each colour's run of samples in turn
          for (unsigned x = 0; x < h.cupsWidth; ++x)
            for (int c = 0; c < colours; ++c) chunky[x * static_cast<unsigned>(colours) + static_cast<unsigned>(c)] = row[static_cast<unsigned>(c) * h.cupsWidth + x];
          row = chunky.data();
        }
        halftone_tool::SplitRow(kind, row, colours, static_cast<int>(h.cupsWidth), split.data(), h.cupsWidth);
        for (std::size_t p = 0; p < static_cast<std::size_t>(planes); ++p)
          std::copy_n(&split[p * h.cupsWidth], h.cupsWidth, &page.planes[p].pixels[y * h.cupsWidth]);
      }
      halftone_tool::RunOptions run;
      run.mode = options.mode;
      run.levels = options.levels;
      run.band_rows = options.band_rows;
      run.fixed_time = options.fixed_time;
      halftone_tool::DotPlanes want;
      ASSERT_EQ(halftone_tool::RunMethod(options.method, page.planes, run, want), "");
      for (int p = 0; p < planes; ++p)
        for (unsigned y = 0; y < h.cupsHeight; ++y) {
          const std::uint8_t* row = &out[n].data[(static_cast<std::size_t>(p) * h.cupsHeight + y) * d.cupsBytesPerLine];
          for (int x = 0; x < static_cast<int>(h.cupsWidth); ++x) {
            const int bits = want.bits, per_byte = 8 / bits;
            const unsigned got = (row[x / per_byte] >> (8 - bits * (x % per_byte + 1))) & ((1u << bits) - 1);
            ASSERT_EQ(got, want.Code(p, x, static_cast<int>(y))) << "plane " << p << " at " << x << ", " << y;
          }
        }
    }
  }

  halftone_test::TempFolder dir_;
};

TEST_F(CupsFilter, PdfThroughCupsGivesTheLibrarysDots) {
  for (const std::string model : {"ColorModel=CMYK", "ColorModel=Gray"}) {
    SCOPED_TRACE(model);
    const std::string opts = "-o " + model + " -o HalftoneTime=5";
    ASSERT_EQ(Chain(opts, "application/vnd.cups-raster", "contone.ras"), 0);
    ASSERT_EQ(Chain(opts, "printer/foo", "dots.ras"), 0);
    ExpectLibraryDots("contone.ras", "dots.ras", "HalftoneTime=5");
  }
  std::ifstream log(Path("chain.log"));
  std::stringstream ss;
  ss << log.rdbuf();
  EXPECT_NE(ss.str().find("PAGE: 2 1"), std::string::npos) << ss.str();
}

TEST_F(CupsFilter, EveryOptionReachesTheMethod) {
  ASSERT_EQ(Chain("-o HalftoneTime=5", "application/vnd.cups-raster", "contone.ras"), 0);
  for (const std::string opts :
       {"HalftoneMethod=sdiufiavs HalftoneMode=1 HalftoneBandRows=17 HalftoneThreads=1 HalftoneTime=9",
        "HalftoneMethod=suiruiskao8 HalftoneLevels=0,40,90,140,180,210,240,255 HalftoneTime=3",
        "HalftoneMethod=CrisixOut HalftoneLevels=0,100,200,255 HalftoneMode=2 HalftoneTime=4 PageSize=A4"}) {
    SCOPED_TRACE(opts);
    const Outcome r = Filter(opts, "contone.ras", "dots.ras");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("PAGE: 1 1"), std::string::npos) << r.err;
    ExpectLibraryDots("contone.ras", "dots.ras", opts);
  }
  // A queue's defaults come from its PPD (as lpadmin -o sets them); the job's options win.
  std::ifstream ppd_in(HALFTONE_PPD_FILE);
  std::string ppd((std::istreambuf_iterator<char>(ppd_in)), std::istreambuf_iterator<char>());
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"*DefaultHalftoneMethod: RoundFaxest", "*DefaultHalftoneMethod: orangecagn"},
                                 {"*DefaultHalftoneMode: 0", "*DefaultHalftoneMode: 3"}}) {
    const auto at = ppd.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    ppd.replace(at, from.size(), to);
  }
  dir_.Write("queue.ppd", ppd);
  Outcome r = Filter("HalftoneTime=5", "contone.ras", "dots.ras", "PPD=queue.ppd");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("method orangecagn (1-bit), mode 3,"), std::string::npos) << r.err;
  r = Filter("HalftoneMethod=CrisixOut HalftoneMode=1", "contone.ras", "dots.ras", "PPD=queue.ppd");
  EXPECT_NE(r.err.find("method CrisixOut (1-bit), mode 1,"), std::string::npos) << r.err;
}

TEST_F(CupsFilter, BadOptionsAndBrokenRastersGiveAnErrorLine) {
  ASSERT_EQ(Chain("", "application/vnd.cups-raster", "contone.ras"), 0);
  for (const auto& [opts, named] : std::vector<std::pair<std::string, std::string>>{
           {"HalftoneMethod=NoSuchMethod", "HalftoneMethod"}, {"HalftoneMode=two", "HalftoneMode"},
           {"HalftoneLevels=0,200,100", "HalftoneLevels"}, {"HalftoneBandRows=0", "HalftoneBandRows"},
           {"HalftoneThreads=many", "HalftoneThreads"}, {"HalftoneTables=/no/such/folder", "HalftoneTables"},
           {"HalftoneTime=-4", "HalftoneTime"}, {"HalftoneSpeed=9", "HalftoneSpeed"}}) {
    const Outcome r = Filter(opts, "contone.ras", "out.ras");
    EXPECT_EQ(r.status, 1) << opts;
    EXPECT_NE(r.err.find("ERROR: " + named), std::string::npos) << opts << ": " << r.err;
  }
  const auto size = fs::file_size(Path("contone.ras"));
  fs::copy_file(Path("contone.ras"), Path("cut.ras"));
  fs::resize_file(Path("cut.ras"), size / 3);
  Outcome r = Filter("", "cut.ras", "out.ras");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("ERROR: page 1: the raster ends early"), std::string::npos) << r.err;
  dir_.Write("junk.ras", std::string(5000, 'x'));
  r = Filter("", "junk.ras", "out.ras");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("ERROR: "), std::string::npos) << r.err;
  // A header that claims 16 bits a colour.
  auto pages = ReadRaster(Path("contone.ras"));
  ASSERT_FALSE(pages.empty());
  {
    const int fd = open(Path("deep.ras").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    cups_raster_t* w = cupsRasterOpen(fd, CUPS_RASTER_WRITE);
    pages[0].header.cupsBitsPerColor = 16;
    cupsRasterWriteHeader2(w, &pages[0].header);
    cupsRasterClose(w);
    close(fd);
  }
  r = Filter("", "deep.ras", "out.ras");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("16 bits a colour"), std::string::npos) << r.err;
}

// Rasters gstoraster was not asked for here: RGB and sRGB separated by the command's rule,
// grey with white at 255, CMYK; chunky and banded; a width that fills no whole byte of dots.
TEST_F(CupsFilter, EveryRasterLayoutTakenGivesTheLibrarysDots) {
  struct Layout {
    cups_cspace_t space;
    unsigned colours;
    cups_order_t order;
  };
  for (const Layout& l : {Layout{CUPS_CSPACE_RGB, 3, CUPS_ORDER_CHUNKED}, Layout{CUPS_CSPACE_SRGB, 3, CUPS_ORDER_BANDED},
                          Layout{CUPS_CSPACE_SW, 1, CUPS_ORDER_CHUNKED}, Layout{CUPS_CSPACE_CMYK, 4, CUPS_ORDER_BANDED}}) {
    SCOPED_TRACE("colour space " + std::to_string(l.space) + ", order " + std::to_string(l.order));
    cups_page_header2_t h{};
    h.cupsWidth = 101;
    h.cupsHeight = 37;
    h.cupsBitsPerColor = 8;
    h.cupsBitsPerPixel = 8 * l.colours;
    h.cupsColorSpace = l.space;
    h.cupsColorOrder = l.order;
    h.cupsNumColors = l.colours;
    h.cupsBytesPerLine = h.cupsWidth * l.colours;
    h.HWResolution[0] = h.HWResolution[1] = 300;
    h.NumCopies = 1;
    std::vector<std::uint8_t> rows(static_cast<std::size_t>(h.cupsBytesPerLine) * h.cupsHeight);
    for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<std::uint8_t>((i * 37 + i / 101 * 11) % 256);
    const int fd = open(Path("made.ras").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    cups_raster_t* w = cupsRasterOpen(fd, CUPS_RASTER_WRITE);
    for (int page = 0; page < 2; ++page) {  // two pages: the second starts a job of its own
      ASSERT_TRUE(cupsRasterWriteHeader2(w, &h));
      ASSERT_EQ(cupsRasterWritePixels(w, rows.data(), static_cast<unsigned>(rows.size())), rows.size());
    }
    cupsRasterClose(w);
    close(fd);
    const std::string opts = "HalftoneMethod=sdiufiavs2 HalftoneBandRows=8 HalftoneTime=3";
    const Outcome r = Filter(opts, "made.ras", "made-dots.ras");
    ASSERT_EQ(r.status, 0) << r.err;
    ExpectLibraryDots("made.ras", "made-dots.ras", opts);
  }
}

// SIGTERM while the filter waits for rows: the page in hand ends with no ink in the rows left,
// whole, and the filter stops without error.
TEST_F(CupsFilter, CancelledJobEndsThePageCleanly) {
  ASSERT_EQ(Chain("-o ColorModel=Gray", "application/vnd.cups-raster", "contone.ras"), 0);
  std::ifstream in(Path("contone.ras"), std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(pipe_fds[0], 0);
    close(pipe_fds[1]);
    const int out = open(Path("cancelled.ras").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    const int err = open("/dev/null", O_WRONLY);
    dup2(err, 2);
    execl(HALFTONE_FILTER_FILE, "rastertohalftone", "7", "user", "title", "1", "", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(pipe_fds[0]);
  const std::size_t part = bytes.size() / 4;  // the header and some rows of page one
  ASSERT_EQ(write(pipe_fds[1], bytes.data(), part), static_cast<ssize_t>(part));
  usleep(300 * 1000);
  kill(child, SIGTERM);
  usleep(100 * 1000);
  close(pipe_fds[1]);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status)) << "no crash";
  EXPECT_EQ(WEXITSTATUS(status), 0);
  const auto pages = ReadRaster(Path("cancelled.ras"));
  ASSERT_EQ(pages.size(), 1u) << "the page in hand, and no more";
  const auto& h = pages[0].header;
  EXPECT_EQ(pages[0].data.size(), static_cast<std::size_t>(h.cupsHeight) * h.cupsBytesPerLine) << "every row";
  const std::size_t last = (h.cupsHeight - 1) * h.cupsBytesPerLine;
  for (std::size_t i = last; i < pages[0].data.size(); ++i) ASSERT_EQ(pages[0].data[i], 0) << "no ink in the last row";
}

}  // namespace
