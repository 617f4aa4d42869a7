// rastertohalftone: a CUPS filter that halftones continuous-tone raster pages into dot planes
// with any of the library's methods. Arguments as every CUPS filter takes them:
//   rastertohalftone job user title copies options [file]
// Reads CUPS raster (8-bit K, CMYK, RGB, sRGB or grey) from the file or standard input and
// writes CUPS raster of dot planes (K or CMYK, 1, 2 or 4 bits a pixel, planar; 0 = no ink) to
// standard output. Messages go to standard error as CUPS expects: INFO:, ERROR:, DEBUG:, PAGE:.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <cups/raster.h>

#include "filter_options.h"
#include "halftone/halftone.h"
#include "raster_page.h"
#include "tables.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;

std::atomic<bool> g_cancelled{false};

extern "C" void OnTerminate(int) { g_cancelled.store(true); }

int Error(const std::string& message) {
  std::fprintf(stderr, "ERROR: %s\n", message.c_str());
  return kExitFailed;
}

// Closes the raster streams however the filter ends.
struct Streams {
  int fd = 0;
  cups_raster_t* in = nullptr;
  cups_raster_t* out = nullptr;
  ~Streams() {
    if (out) cupsRasterClose(out);
    if (in) cupsRasterClose(in);
    if (fd > 0) close(fd);
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6 || argc > 7) {
    std::fprintf(stderr, "Usage: %s job user title copies options [file]\n", argc > 0 ? argv[0] : "rastertohalftone");
    return kExitFailed;
  }
  // A cancelled job gets SIGTERM: finish the page in hand without ink and stop.
  struct sigaction action {};
  action.sa_handler = OnTerminate;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);

  halftone_cups::FilterOptions options;
  if (std::string err = halftone_cups::ParseFilterOptions(argv[5], std::getenv("PPD"), options); !err.empty()) return Error(err);
  std::string message;
  if (halftone_tool::PrepareTables(options.method.tables, options.tables, message) != 0)
    return Error("HalftoneTables: " + message);
  const int threads = options.threads > 0 ? options.threads : static_cast<int>(std::thread::hardware_concurrency());
  halftone_set_threads(threads);

  Streams s;
  if (argc == 7 && (s.fd = open(argv[6], O_RDONLY)) < 0)
    return Error(std::string("cannot open the print file: ") + std::strerror(errno));
  s.in = cupsRasterOpen(s.fd, CUPS_RASTER_READ);
  if (!s.in) return Error("the input is not CUPS raster");
  s.out = cupsRasterOpen(1, CUPS_RASTER_WRITE_COMPRESSED);
  if (!s.out) return Error("cannot write CUPS raster to standard output");
  const std::string levels = options.levels.substr(0, options.levels.size() - 1);  // without the closing comma
  std::fprintf(stderr, "DEBUG: rastertohalftone: method %s (%d-bit), mode %d, levels %s, bands of %d rows, %d threads\n",
               options.method.name, options.method.output_bits, options.mode, levels.c_str(), options.band_rows, threads);

  int page = 0;
  cups_page_header2_t header;
  while (!g_cancelled.load() && cupsRasterReadHeader2(s.in, &header)) {
    ++page;
    std::fprintf(stderr, "INFO: Halftoning page %d (%ux%u pixels) with %s\n", page, header.cupsWidth, header.cupsHeight,
                 options.method.name);
    bool cancelled = false;
    if (std::string err = halftone_cups::HalftonePage(s.in, header, s.out, options, g_cancelled, cancelled); !err.empty())
      return Error("page " + std::to_string(page) + ": " + err);
    std::fprintf(stderr, "PAGE: %d %u\n", page, header.NumCopies > 0 ? header.NumCopies : 1u);
    if (cancelled) {
      std::fprintf(stderr, "INFO: Job cancelled: page %d ended without its last rows\n", page);
      break;
    }
  }
  if (page == 0 && !g_cancelled.load()) return Error("the raster holds no page");
  std::fprintf(stderr, "INFO: %d page%s halftoned\n", page, page == 1 ? "" : "s");
  return kExitOk;
}
